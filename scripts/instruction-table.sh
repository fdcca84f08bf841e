#!/usr/bin/env bash
# Counts instructions per operation with callgrind: runs each benchmark
# program twice under valgrind, with a short and a long fixed number of
# iterations (QIRA_BENCH_ITERATIONS), and prints the table that
# scripts/instruction-table.awk makes of their dumps (module / floor,
# allocations, system calls per operation).
#   scripts/instruction-table.sh --dumps DIR [--runs SHORT,LONG] [--filter REGEX]
#                                [--json FILE] PROGRAM...
# scripts/bench.sh --instructions builds the programs and runs this; the
# bench smoke test runs it on a few rows.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
usage="usage: scripts/instruction-table.sh --dumps DIR [--runs SHORT,LONG] [--filter REGEX] [--json FILE] PROGRAM..."
dumps=""
runs="5,15"
filter=""
json=""
while [ "$#" -gt 0 ]; do
  case "$1" in
    --dumps) dumps="${2:?$usage}"; shift 2 ;;
    --runs) runs="${2:?$usage}"; shift 2 ;;
    --filter) filter="${2:?$usage}"; shift 2 ;;
    --json) json="${2:?$usage}"; shift 2 ;;
    --*) echo "$usage" >&2; exit 2 ;;
    *) break ;;
  esac
done
if [ -z "$dumps" ] || [ "$#" -eq 0 ]; then
  echo "$usage" >&2
  exit 2
fi
IFS=, read -r short_run long_run <<<"$runs"
if ! [[ "$short_run" =~ ^[1-9][0-9]*$ && "$long_run" =~ ^[1-9][0-9]*$ ]] ||
  [ "$short_run" -ge "$long_run" ]; then
  echo "instruction-table: --runs wants two counts, the first the smaller: $runs" >&2
  exit 2
fi
command -v valgrind >/dev/null || {
  echo "instruction-table: valgrind is needed (scripts/deps.sh installs it)" >&2
  exit 1
}

rm -rf "$dumps"
mkdir -p "$dumps"
filter_arguments=()
if [ -n "$filter" ]; then
  filter_arguments=(--benchmark_filter="$filter")
fi
# glibc's memset and memcpy switch to "rep stosb" / "rep movsb" above a few
# kilobytes on x86, and callgrind counts every byte such an instruction
# moves as one instruction. The thresholds are raised out of reach so that
# large fills and copies run as the vector loops of the smaller ones, closer
# to what the camera's ARM core executes.
tunables="glibc.cpu.x86_rep_stosb_threshold=0x100000000:glibc.cpu.x86_rep_movsb_threshold=0x100000000"
for iterations in "$short_run" "$long_run"; do
  for program in "$@"; do
    name="$(basename "$program")"
    echo "instruction-table: $name under callgrind, $iterations iterations of each benchmark"
    log="$dumps/$name.$iterations.log"
    if ! GLIBC_TUNABLES="$tunables" QIRA_BENCH_ITERATIONS="$iterations" \
      valgrind --tool=callgrind --collect-atstart=no --vgdb=no --dump-line=no \
      --callgrind-out-file="$dumps/$name.$iterations" \
      "$program" "${filter_arguments[@]}" >"$log" 2>&1; then
      cat "$log"
      echo "instruction-table: $name failed under callgrind" >&2
      exit 1
    fi
  done
done
echo
awk -v json="$json" -f "$root/scripts/instruction-table.awk" "$dumps"/*.[0-9]*.[0-9]*
