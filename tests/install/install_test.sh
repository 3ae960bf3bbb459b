#!/usr/bin/env bash
# Installs the build into a temporary prefix, then builds a C consumer
# against the installed package only (through pkg-config, then through
# find_package) and runs each against the installed mock-cimom.
#   install_test.sh BUILD_DIR SOURCE_DIR SANITIZE(ON|OFF)
set -euo pipefail
build=$1 source=$2 sanitize=$3
work=$(mktemp -d)
prefix=$work/prefix
mock_pid=
cleanup() {
  if [ -n "$mock_pid" ]; then kill "$mock_pid" 2>/dev/null || true; wait "$mock_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null
# Installed package files must not point back into the trees they came from.
if grep -rlF -e "$source" -e "$build" "$prefix/lib/pkgconfig" "$prefix/lib/cmake"; then
  echo "installed package files refer to the source or build tree" >&2; exit 1
fi

# The consumer is built from a copy, so nothing but the prefix is reachable.
cp -r "$source/tests/install/consumer" "$work/consumer"
flags=(-std=c99 -Wall -Wextra -pedantic -Werror)
if [ "$sanitize" = ON ]; then
  # The installed library is instrumented; the runtime must come first.
  flags+=(-fsanitize=address,undefined)
fi

# The installed sample repository must load on its own (its include file too).
"$prefix/bin/mock-cimom" --repo "$prefix/share/cimxmlclient/mof" --port 0 --port-file "$work/port" >"$work/mock.log" 2>&1 &
mock_pid=$!
for _ in $(seq 100); do
  [ -s "$work/port" ] && break
  kill -0 "$mock_pid" 2>/dev/null || break
  sleep 0.1
done
[ -s "$work/port" ] || { echo "mock-cimom did not start:" >&2; cat "$work/mock.log" >&2; exit 1; }
port=$(cat "$work/port")

echo "-- pkg-config"
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
# shellcheck disable=SC2046  # pkg-config prints several words
${CC:-cc} "${flags[@]}" "$work/consumer/consumer.c" $(pkg-config --cflags --libs cimxmlclient) -o "$work/pc-consumer"
LD_LIBRARY_PATH=$prefix/lib "$work/pc-consumer" 127.0.0.1 "$port"

echo "-- find_package"
cmake -S "$work/consumer" -B "$work/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_C_FLAGS="${flags[*]}" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
LD_LIBRARY_PATH=$prefix/lib "$work/cmake-build/consumer" 127.0.0.1 "$port"

kill "$mock_pid"
wait "$mock_pid" || { echo "mock-cimom did not stop cleanly:" >&2; cat "$work/mock.log" >&2; exit 1; }
mock_pid=
