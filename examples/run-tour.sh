#!/bin/sh
# Builds the tour, the mock CIM object manager, the mock local broker and
# the cimxml command-line client; starts the mock with its sample repository
# on a free loopback port; runs the tour against it over HTTP, then the same
# tour through the local broker back end (the mock broker, found through
# LD_LIBRARY_PATH), then three cimxml commands; stops the mock. Exits
# non-zero when any of them failed.
#
#   examples/run-tour.sh            (from anywhere; builds in build/)
set -eu

cd "$(dirname "$0")/.."
bash scripts/deps.sh
build=$(bash scripts/configure.sh)
cmake --build "$build" --target tour mock-cimom cimcClientSfcbLocal cimxml

work=$(mktemp -d)
mock_pid=
stop_mock() {
    if [ -n "$mock_pid" ]; then
        kill "$mock_pid" 2>/dev/null || true
        wait "$mock_pid" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap stop_mock EXIT
trap 'exit 130' INT TERM

"$build/testing/server/mock-cimom" --port 0 --port-file "$work/port" \
    --user tour --password secret >"$work/mock.log" 2>&1 &
mock_pid=$!

# The port file appears (in one step) once the mock is listening.
tries=0
while [ ! -s "$work/port" ]; do
    if ! kill -0 "$mock_pid" 2>/dev/null || [ "$tries" -ge 100 ]; then
        echo "mock-cimom did not start:" >&2
        cat "$work/mock.log" >&2
        exit 1
    fi
    tries=$((tries + 1))
    sleep 0.1
done
port=$(cat "$work/port")

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
exit "$status"
