#!/bin/sh
# Builds the tour, the mock CIM object manager, the mock local broker and
# the cimxml command-line client; starts the mock with its sample repository
# on a free loopback port; runs the tour against it over HTTP, then the same
# tour through the local broker back end (the mock broker, found through
# LD_LIBRARY_PATH), then three cimxml commands; then the tour in standard
# wire mode against a strict mock that writes headers and body apart, and
# over HTTPS against a strict mock with a certificate made here (openssl);
# stops the mocks. Exits non-zero when any of them failed.
#
#   examples/run-tour.sh            (from anywhere; builds in build/)
set -eu

cd "$(dirname "$0")/.."
bash scripts/deps.sh
build=$(bash scripts/configure.sh)
cmake --build "$build" --target tour mock-cimom cimcClientSfcbLocal cimxml

work=$(mktemp -d)
mock_pids=
stop_mocks() {
    for pid in $mock_pids; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap stop_mocks EXIT
trap 'exit 130' INT TERM

# start_mock NAME [options]: starts a mock with the tour's credentials and
# sets $port once it listens.
start_mock() {
    name=$1
    shift
    "$build/testing/server/mock-cimom" --port 0 --port-file "$work/$name.port" \
        --user tour --password secret "$@" >"$work/$name.log" 2>&1 &
    pid=$!
    mock_pids="$mock_pids $pid"
    # The port file appears (in one step) once the mock is listening.
    tries=0
    while [ ! -s "$work/$name.port" ]; do
        if ! kill -0 "$pid" 2>/dev/null || [ "$tries" -ge 100 ]; then
            echo "mock-cimom did not start:" >&2
            cat "$work/$name.log" >&2
            exit 1
        fi
        tries=$((tries + 1))
        sleep 0.1
    done
    port=$(cat "$work/$name.port")
}

start_mock plain

status=0
"$build/examples/tour" 127.0.0.1 "$port" tour secret root/cimv2 || status=$?

echo
echo "==== The same tour through the local broker back end"
LD_LIBRARY_PATH="$build/testing/broker${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" \
    "$build/examples/tour" 127.0.0.1 "$port" tour secret root/cimv2 local || status=$?

echo
echo "==== The command-line client"
export CIMXML_URL="http://tour@127.0.0.1:$port/root/cimv2" CIMXML_PASSWORD=secret
cli() {
    echo "\$ cimxml $*"
    "$build/tools/cimxml" "$@" || status=$?
}
cli instance enumerate CIM_Processor
cli instance get 'Mock_ComputerSystem.CreationClassName="Mock_ComputerSystem",Name="mock-server.example.com"'
cli method invoke Mock_AllTypes Echo S=hello U32=42 'SArray=[a,"b,c"]'
unset CIMXML_URL CIMXML_PASSWORD

echo
echo "==== The tour in standard wire mode, against a strict object manager that writes headers and body apart"
start_mock strict --strict --split-writes
CIMXML_WIRE=standard "$build/examples/tour" 127.0.0.1 "$port" tour secret root/cimv2 || status=$?

echo
echo "==== The tour over HTTPS, against a strict object manager that sends its bodies in chunks"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 1 -subj /CN=127.0.0.1 \
    -addext subjectAltName=IP:127.0.0.1 -keyout "$work/key.pem" -out "$work/cert.pem" 2>/dev/null
start_mock tls --strict --chunked --tls "$work/cert.pem" "$work/key.pem"
CIMXML_WIRE=standard CIMXML_TLS=1 CIMXML_CA_FILE="$work/cert.pem" \
    "$build/examples/tour" 127.0.0.1 "$port" tour secret root/cimv2 || status=$?
exit "$status"
