#!/usr/bin/env bash
# Smoke run of one benchmark program: every benchmark runs briefly, the
# program must exit 0 (no benchmark failed its checks) and its table must
# show each counter named. Timings are printed, never judged.
#   bench/smoke.sh PROGRAM COUNTER...
set -euo pipefail

program="${1:?usage: bench/smoke.sh PROGRAM COUNTER...}"
shift
output="$("$program" --benchmark_min_time=0.01 --benchmark_counters_tabular=true 2>&1)" || {
  status=$?
  printf '%s\n' "$output"
  echo "smoke: $program exited with status $status" >&2
  exit 1
}
printf '%s\n' "$output"
if grep -q 'ERROR OCCURRED' <<<"$output"; then
  echo "smoke: a benchmark of $program reported an error" >&2
  exit 1
fi
for counter in "$@"; do
  if ! grep -qw -- "$counter" <<<"$output"; then
    echo "smoke: $program printed no counter \"$counter\"" >&2
    exit 1
  fi
done
echo "smoke: $program ran, counters present: $*"
