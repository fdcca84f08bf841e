#!/usr/bin/env bash
# Smoke run of the instruction table (scripts/instruction-table.sh): the
# rows named must come out with the module's count, its floor's count and
# their ratio. Counts are printed, never judged.
#   bench/instruction_smoke.sh DUMP_DIR FILTER ROW... -- PROGRAM...
set -euo pipefail

usage="usage: bench/instruction_smoke.sh DUMP_DIR FILTER ROW... -- PROGRAM..."
dumps="${1:?$usage}"
filter="${2:?$usage}"
shift 2
rows=()
while [ "$#" -gt 0 ] && [ "$1" != "--" ]; do
  rows+=("$1")
  shift
done
[ "${1:-}" = "--" ] && [ "$#" -gt 1 ] || { echo "$usage" >&2; exit 2; }
shift
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
output="$("$root/scripts/instruction-table.sh" --dumps "$dumps" --runs 1,2 --filter "$filter" \
  --json "$dumps/table.json" "$@" 2>&1)" || {
  status=$?
  printf '%s\n' "$output"
  echo "instruction smoke: the table failed with status $status" >&2
  exit 1
}
printf '%s\n' "$output"
for row in "${rows[@]}"; do
  # row, unit, module, of which host, floor, module / floor
  if ! grep -qE "^\| $row \| [a-z ]+ \| [0-9]+ \| [0-9]+ \| [0-9]+ \| [0-9]+\.[0-9]+ \|" <<<"$output"; then
    echo "instruction smoke: no counted row \"$row\" with its floor" >&2
    exit 1
  fi
done
grep -q "\"row\": \"${rows[0]}\"" "$dumps/table.json" || {
  echo "instruction smoke: ${rows[0]} is missing from the JSON table" >&2
  exit 1
}
echo "instruction smoke: rows counted: ${rows[*]}"
