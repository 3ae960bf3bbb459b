#!/usr/bin/env bash
# The one way the scripts configure a build folder, so the tour, the suite
# and CI share build/ instead of fighting over its generator.
#   scripts/configure.sh              build/       (RelWithDebInfo)
#   scripts/configure.sh --sanitize   build-asan/  (Debug, ASan + UBSan, no benches)
# Prints the build folder. A configured folder is reused as it is.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "${1:-}" = "--sanitize" ]; then
  dir=build-asan
  options=(-DCMAKE_BUILD_TYPE=Debug -DCIMXML_SANITIZE=ON -DCIMXML_BUILD_BENCH=OFF)
else
  dir=build
  options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
fi
generator=Ninja

cache="$dir/CMakeCache.txt"
if [ -f "$cache" ]; then
  previous=$(sed -n 's/^CMAKE_GENERATOR:INTERNAL=//p' "$cache")
  if [ "$previous" != "$generator" ]; then
    # CMake refuses to switch generators in place.
    echo "configure.sh: $dir/ was configured for '$previous'; configuring it again for $generator" >&2
    rm -rf "$cache" "$dir/CMakeFiles"
  fi
fi
if [ ! -f "$cache" ] || [ ! -f "$dir/build.ninja" ]; then
  cmake -S . -B "$dir" -G "$generator" "${options[@]}" >/dev/null
fi
echo "$dir"
