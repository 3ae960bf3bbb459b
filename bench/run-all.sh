#!/usr/bin/env bash
# Builds the benches (RelWithDebInfo, build/), runs every one of them and
# prints one table of the ratios they measure: metric | measured | target | pass.
# Each ratio is measured within one run (median of 5 repetitions unless the
# bench says otherwise), so the table stays comparable on a loaded machine.
# The full logs go to build/bench/logs/. Not part of CI; takes a few minutes
# (the 200,000-instance scale step alone a minute or two).
#
#   bench/run-all.sh            build, run everything, print the table
#   bench/run-all.sh --no-build run what is built
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "${1:-}" != "--no-build" ]; then
  bash scripts/configure.sh >/dev/null
  cmake --build build -j2 >/dev/null
fi

logs=build/bench/logs
mkdir -p "$logs"
results="$logs/results.txt"
: >"$results"

run() {
  local name=$1
  shift
  echo "running $name ..." >&2
  if ! build/bench/"$name" "$@" >"$logs/$name.txt" 2>&1; then
    echo "  $name failed, see $logs/$name.txt" >&2
  fi
  grep '^RESULT ' "$logs/$name.txt" >>"$results" || true
}

run floor_bench
run exchange_bench
run scale_bench
run parser_bench --benchmark_color=false
run e2e_bench --benchmark_color=false
run dom_bench --benchmark_color=false
run writer_bench --benchmark_color=false
run local_bench --benchmark_color=false

# metric key, description, comparison, target
table='parse_over_floor|parseXML / allocation floor (50 MB reply)|<=|1.6
free_over_floor_free|Free_CIM / free of the floor blocks, free calls only|<=|1.2
free_over_floor_free_settled|  the same, each with the merging glibc defers|<=|1.2
getinstance_over_bare|GetInstance / bare exchange, per call|<=|1.25
scale_time_ratio|parseXML time 200,000 / 20,000 instances|<=|11
scale_peak_x_max|peak memory / reply, worst of 5, 50, 500 MB|<=|4.0
parse_peak_x|peak memory / reply, 50 MB reply|<=|4.0
tree_heap_x|heap the record tree holds / reply (the floor of peak)|info|
floor_peak_x|peak of the floor (whole DOM alive) / reply|info|
getinstance_per_s|GetInstance round trips per second|info|
getinstance_client_cpu_extra_us|GetInstance client CPU beyond the bare exchange, us per call|info|
small_parse_over_floor|parseXML / allocation floor, one-instance reply (2.6 KB)|info|
parse_over_pugixml_load|parseXML speed / pugixml copying load|>=|0.15
enumerate_over_parse|EnumerateInstances end to end / parseXML|<=|1.3'

printf '\n%-55s | %9s | %7s | %s\n' "metric" "measured" "target" "pass"
printf '%s\n' "--------------------------------------------------------+-----------+---------+-----"
while IFS='|' read -r key text cmp target; do
  value=$(awk -v k="$key" '$2 == k { v = $3 } END { print v }' "$results")
  if [ -z "$value" ]; then
    printf '%-55s | %9s | %7s | %s\n' "$text" "-" "$cmp $target" "not run"
    continue
  fi
  if [ "$cmp" = "info" ]; then
    printf '%-55s | %9s | %7s | %s\n' "$text" "$value" "" ""
    continue
  fi
  pass=$(awk -v v="$value" -v t="$target" -v c="$cmp" \
    'BEGIN { ok = (c == "<=") ? (v <= t) : (v >= t); print ok ? "yes" : "NO" }')
  printf '%-55s | %9s | %7s | %s\n' "$text" "$value" "$cmp $target" "$pass"
done <<<"$table"
printf '\n%s, %s CPUs, %s, %s GB RAM\n' "$(date -u '+%Y-%m-%d %H:%M UTC')" "$(nproc)" \
  "$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -1)" \
  "$(awk '/MemTotal/ { printf "%.0f", $2 / 1048576 }' /proc/meminfo)"
