#!/usr/bin/env bash
# Builds the benchmarks optimised (Release, -O2) into build/bench and runs
# them all, printing their tables. Arguments go to every benchmark program
# (for example --benchmark_filter=scan or --benchmark_repetitions=3).
#   scripts/bench.sh [--json DIR] [benchmark arguments...]
# --json DIR also writes each program's results as DIR/<program>.json.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="$root/build/bench"
json_dir=""
if [ "${1:-}" = "--json" ]; then
  json_dir="${2:?usage: scripts/bench.sh [--json DIR] [benchmark arguments...]}"
  shift 2
  mkdir -p "$json_dir"
  json_dir="$(cd "$json_dir" && pwd)"
fi

programs=(qira_bench_iface qira_bench_events qira_bench_scan qira_bench_wpa_client)

# CMake's Release flags are -O3; the figures are taken at -O2.
cmake -S "$root" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_C_FLAGS_RELEASE="-O2 -DNDEBUG" -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
  -DQIRA_BUILD_BENCH=ON
cmake --build "$build_dir" --target "${programs[@]}"

cpu="$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -1)"
echo "bench: $(nproc) x ${cpu:-unknown processor}, Linux $(uname -r)," \
  "load average $(cut -d' ' -f1-3 /proc/loadavg)"
for program in "${programs[@]}"; do
  out_arguments=()
  if [ -n "$json_dir" ]; then
    out_arguments=(--benchmark_out="$json_dir/$program.json" --benchmark_out_format=json)
  fi
  echo "==== $program"
  "$build_dir/bench/$program" --benchmark_counters_tabular=true "${out_arguments[@]}" "$@"
done
