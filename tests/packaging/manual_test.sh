#!/usr/bin/env bash
# The manual page of qira-wifi (tools/qira-wifi/qira-wifi.1): groff reads it
# without a warning, and it names every command, option and exit status that
# the program's --help lists.
#
#   manual_test.sh MANUAL_FILE [PROGRAM...]
# PROGRAM... runs qira-wifi (an emulator and the program for a cross build).
set -euo pipefail

manual="${1:?usage: manual_test.sh MANUAL_FILE PROGRAM...}"
shift
program=("$@")
failures=0

fail() {
  echo "manual_test.sh: FAILED: $*" >&2
  failures=$((failures + 1))
}

warnings=$(groff -man -Tutf8 -ww -z "$manual" 2>&1) || fail "groff cannot read $manual"
[ -z "$warnings" ] || fail "groff warns: $warnings"
# The page as a reader sees it, one space between words.
rendered=$(groff -man -Tutf8 -P-cbou "$manual" 2>/dev/null | tr -s ' \n' ' ')

help_text=$("${program[@]}" --help)
section() { printf '%s\n' "$help_text" | sed -n "/^$1/,/^\$/p"; }

# Every command, with its synopsis as --help gives it.
while read -r synopsis; do
  [[ $rendered == *"$synopsis"* ]] || fail "the page lacks the synopsis '$synopsis'"
done < <(section commands | grep -E '^  [a-z]' | sed 's/^  //')
# Every option, with its value's name.
while read -r option; do
  [[ $rendered == *"$option"* ]] || fail "the page lacks the option '$option'"
done < <(section options | grep -oE '^  --[a-z]+( [A-Z]+)?')
# Every exit status, in the EXIT STATUS section.
statuses=$(printf '%s\n' "$rendered" | sed -n 's/.*EXIT STATUS \(.*\) ENVIRONMENT.*/\1/p')
while read -r status; do
  [[ " $statuses" == *" $status "* ]] || fail "the page lacks the exit status $status"
done < <(section 'exit status' | grep -oE '^  [0-9]+' | tr -d ' ')

if [ "$failures" -ne 0 ]; then
  exit 1
fi
echo "manual_test.sh: the page reads cleanly and names every command, option and exit status"
