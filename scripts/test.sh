#!/usr/bin/env bash
# Builds the library, the test peers and the tests, then runs the suite.
#   scripts/test.sh              release build in build/
#   scripts/test.sh --sanitize   AddressSanitizer + UBSan build in build-asan/
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh

if [ "${1:-}" = "--sanitize" ]; then
  dir=$(bash scripts/configure.sh --sanitize)
  export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:strict_string_checks=1"
  export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"
  export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
else
  dir=$(bash scripts/configure.sh)
fi
cmake --build "$dir" -j2
ctest --test-dir "$dir" --output-on-failure -j2 --timeout 300
