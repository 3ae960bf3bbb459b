#!/usr/bin/env bash
# Builds the fuzz targets with libFuzzer, AddressSanitizer and UBSan in
# build-fuzz/ and runs each in turn, one job at a time.
#   scripts/fuzz.sh                 each target for FUZZ_SECONDS (default 30) seconds
#   scripts/fuzz.sh --long          each target for FUZZ_LONG_SECONDS (default 3 hours)
#   scripts/fuzz.sh --runs N        each target for N executions
#   scripts/fuzz.sh ... target...   only these targets
# New inputs go to build-fuzz/corpus/<target>/ (seeded from fuzz/corpus/);
# a crash is written to build-fuzz/findings/ and fails the script. Keep each
# crash, once fixed, in fuzz/regressions/<target>/: the normal suite replays it.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh

# clang with its libFuzzer runtime, installed as deps.sh installs the rest.
if ! command -v clang++ >/dev/null 2>&1 || ! ls /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1; then
  CIMXML_EXTRA_PACKAGES="clang libclang-rt-dev" bash scripts/deps.sh
fi

limit=(-max_total_time="${FUZZ_SECONDS:-30}")
targets=()
while [ $# -gt 0 ]; do
  case "$1" in
    --long) limit=(-max_total_time="${FUZZ_LONG_SECONDS:-10800}") ;;
    --runs) shift; limit=(-runs="$1") ;;
    *) targets+=("$1") ;;
  esac
  shift
done
[ ${#targets[@]} -gt 0 ] || targets=(parse_xml builders cdata base64 reply mof mock_server broker_args roundtrip)

dir=build-fuzz
if [ ! -f "$dir/build.ninja" ]; then
  CC=clang CXX=clang++ cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCIMXML_SANITIZE=ON -DCIMXML_BUILD_FUZZ=ON -DCIMXML_BUILD_TESTS=OFF -DCIMXML_BUILD_BENCH=OFF >/dev/null
fi
cmake --build "$dir" -j2 --target $(printf 'fuzz_%s ' "${targets[@]}")

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:allocator_may_return_null=1"
export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
mkdir -p "$dir/findings"
status=0
for t in "${targets[@]}"; do
  corpus="$dir/corpus/$t"
  mkdir -p "$corpus"
  dict=()
  [ -f "fuzz/$t.dict" ] && dict=(-dict="fuzz/$t.dict")
  [ -f "fuzz/cimxml.dict" ] && [ ${#dict[@]} -eq 0 ] && dict=(-dict=fuzz/cimxml.dict)
  echo "fuzz.sh: $t" >&2
  # The library's own messages (stdout) are dropped; libFuzzer's go to stderr.
  if ! "$dir/fuzz/fuzz_$t" "${limit[@]}" "${dict[@]}" -max_len=65536 -timeout=25 -rss_limit_mb=3072 \
       -print_final_stats=1 -artifact_prefix="$dir/findings/$t-" "$corpus" "fuzz/corpus/$t" \
       >/dev/null 2> >(grep -aE '^(#[0-9]+[[:space:]]+(INITED|DONE)|stat::number_of_executed_units|==[0-9]+==|SUMMARY|Done [0-9]|.*Test unit written| +#[0-9]+ 0x)' >&2); then
    echo "fuzz.sh: $t found a fault; the input is in $dir/findings/" >&2
    status=1
  fi
done
exit $status
