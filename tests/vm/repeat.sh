#!/bin/bash
# Runs the VM suite N times in a row (one boot each) to measure how reliable
# and how fast it is. Builds once first, then calls run.sh; keeps every
# console log in build/vm/logs/repeat-<time>/.
#
# Usage: tests/vm/repeat.sh [--arch amd64|armhf] N [SCENARIO...]
#   (default: amd64, or QIRA_VM_ARCH; every scenario)
# Prints one line per run, the pass count of every scenario, and finally
# "N passed, N failed" counting runs (a run passes when all its scenarios do).
set -uo pipefail

VM_DIR=$(cd "$(dirname "$0")" && pwd)
SOURCE_DIR=$(cd "$VM_DIR/../.." && pwd)
arch=${QIRA_VM_ARCH:-amd64}
case ${1:-} in
  --arch) arch=${2:-}; shift 2 ;;
  --arch=*) arch=${1#*=}; shift ;;
esac
case $arch in
  amd64) OUT=${QIRA_VM_OUT:-$SOURCE_DIR/build/vm} ;;
  armhf) OUT=${QIRA_VM_OUT:-$SOURCE_DIR/build/vm-armhf} ;;
  *) echo "repeat.sh: unknown architecture $arch (amd64 or armhf)" >&2; exit 2 ;;
esac
runs=${1:?usage: repeat.sh [--arch amd64|armhf] N [SCENARIO...]}
shift

"$VM_DIR/build.sh" --arch "$arch" || exit 2
log_dir=$OUT/logs/repeat-$(date +%Y%m%d-%H%M%S)
mkdir -p "$log_dir"
declare -A scenario_passes=()
passed_runs=0
failed_runs=0
total_us=0
min_us=
max_us=0
for ((run = 1; run <= runs; run++)); do
  log=$log_dir/run-$run.log
  started=${EPOCHREALTIME/./}
  QIRA_VM_LOG=$log "$VM_DIR/run.sh" --arch "$arch" "$@" > "$log.out" 2>&1
  status=$?
  took=$((${EPOCHREALTIME/./} - started))
  total_us=$((total_us + took))
  [ "$took" -gt "$max_us" ] && max_us=$took
  [ -z "$min_us" ] || [ "$took" -lt "$min_us" ] && min_us=$took
  if [ "$status" -eq 0 ]; then passed_runs=$((passed_runs + 1)); else failed_runs=$((failed_runs + 1)); fi
  while read -r _ _ name verdict _; do
    [ "$verdict" = PASS ] && scenario_passes[$name]=$((${scenario_passes[$name]:-0} + 1))
    [ -n "${scenario_passes[$name]:-}" ] || scenario_passes[$name]=0
  done < <(grep -a '^@@@ RESULT ' "$log.out")
  printf 'run %2d: %s in %d.%01d s (%s)\n' "$run" "$([ $status -eq 0 ] && echo pass || echo FAIL)" \
    $((took / 1000000)) $((took % 1000000 / 100000)) "$(tail -1 "$log.out")"
done
# Every result line ends with the scenario's own time in the guest, "(12.3s)".
for name in $(printf '%s\n' "${!scenario_passes[@]}" | sort); do
  times=$(grep -ah "^@@@ RESULT $name " "$log_dir"/run-*.log.out | sed -n 's/.*(\([0-9.]*\)s)$/\1/p' |
    awk 'NR == 1 || $1 < min { min = $1 } $1 > max { max = $1 } { sum += $1 }
      END { if (NR) printf "%.1f s average (%.1f to %.1f)", sum / NR, min, max }')
  echo "scenario $name: ${scenario_passes[$name]}/$runs passed; ${times:-no time}"
done
average=$((total_us / runs))
printf 'wall per run: min %d.%01d s, average %d.%01d s, max %d.%01d s; logs in %s\n' \
  $((min_us / 1000000)) $((min_us % 1000000 / 100000)) $((average / 1000000)) \
  $((average % 1000000 / 100000)) $((max_us / 1000000)) $((max_us % 1000000 / 100000)) "$log_dir"
echo "$passed_runs passed, $failed_runs failed"
[ "$failed_runs" -eq 0 ]
