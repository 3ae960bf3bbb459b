#!/usr/bin/env bash
# Builds the library, the test peers and the tests, then runs the suite.
#   scripts/test.sh              release build in build/
#   scripts/test.sh --sanitize   AddressSanitizer + UBSan build in build-asan/
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh

if [ "${1:-}" = "--sanitize" ]; then
  dir=build-asan
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCIMXML_SANITIZE=ON -DCIMXML_BUILD_BENCH=OFF >/dev/null
  export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:strict_string_checks=1"
  export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"
  export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
else
  dir=build
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$dir" -j2
ctest --test-dir "$dir" --output-on-failure -j2 --timeout 300
