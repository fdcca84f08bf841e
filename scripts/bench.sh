#!/usr/bin/env bash
# Builds the benchmarks optimised (Release, -O2) into build/bench and runs
# them.
#   scripts/bench.sh [--json DIR] [benchmark arguments...]
#     runs every benchmark program and prints its table of times and
#     counters. Arguments go to every program (for example
#     --benchmark_filter=scan or --benchmark_repetitions=3); --json DIR also
#     writes each program's results as DIR/<program>.json.
#   scripts/bench.sh --instructions [--json FILE]
#     counts instructions with callgrind instead (scripts/instruction-table.sh):
#     the module's event, scan, de-duplication and control request paths and
#     their floors (bench/floor) and one table per operation is printed
#     (module / floor, allocations, system calls); --json FILE also writes it
#     as JSON (default build/bench/instructions.json).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="$root/build/bench"
usage="usage: scripts/bench.sh [--json DIR] [benchmark arguments...] | --instructions [--json FILE]"
instructions=0
if [ "${1:-}" = "--instructions" ]; then
  instructions=1
  shift
fi
json=""
if [ "${1:-}" = "--json" ]; then
  json="${2:?$usage}"
  shift 2
fi
if [ "$instructions" -eq 1 ] && [ "$#" -ne 0 ]; then
  echo "$usage" >&2
  exit 2
fi

programs=(qira_bench_iface qira_bench_events qira_bench_scan qira_bench_wpa_client
  qira_bench_floor)
# The programs whose rows make the instruction table.
counted=(qira_bench_events qira_bench_scan qira_bench_wpa_client qira_bench_floor)

# CMake's Release flags are -O3; the figures are taken at -O2.
cmake -S "$root" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_C_FLAGS_RELEASE="-O2 -DNDEBUG" -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
  -DQIRA_BUILD_BENCH=ON
cmake --build "$build_dir" --target "${programs[@]}"

cpu="$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -1)"
echo "bench: $(nproc) x ${cpu:-unknown processor}, Linux $(uname -r)," \
  "load average $(cut -d' ' -f1-3 /proc/loadavg)"

if [ "$instructions" -eq 0 ]; then
  if [ -n "$json" ]; then
    mkdir -p "$json"
    json="$(cd "$json" && pwd)"
  fi
  for program in "${programs[@]}"; do
    out_arguments=()
    if [ -n "$json" ]; then
      out_arguments=(--benchmark_out="$json/$program.json" --benchmark_out_format=json)
    fi
    echo "==== $program"
    "$build_dir/bench/$program" --benchmark_counters_tabular=true "${out_arguments[@]}" "$@"
  done
  exit 0
fi

json="${json:-$build_dir/instructions.json}"
"$root/scripts/instruction-table.sh" --dumps "$build_dir/instructions" --json "$json" \
  "${counted[@]/#/$build_dir/bench/}"
echo
echo "bench: instructions and allocations per operation, written to $json"
