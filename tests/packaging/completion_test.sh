#!/usr/bin/env bash
# The bash completion of qira-wifi (tools/qira-wifi/qira-wifi.bash-completion):
# its commands, each command's options and words are those of the program's
# --help, and it completes what a user types: commands, options, interface
# names, files, wpa_supplicant commands, values that skip an option's value.
#
#   completion_test.sh COMPLETION_FILE [PROGRAM...]
# PROGRAM... runs qira-wifi (an emulator and the program for a cross build).
set -euo pipefail

completion="${1:?usage: completion_test.sh COMPLETION_FILE PROGRAM...}"
shift
program=("$@")
failures=0

fail() {
  echo "completion_test.sh: FAILED: $*" >&2
  failures=$((failures + 1))
}

# expect_same WHAT EXPECTED ACTUAL
expect_same() {
  if [ "$2" != "$3" ]; then
    fail "$1: expected '$2', got '$3'"
  fi
}

help_text=$("${program[@]}" --help)
# The commands section of --help: "  NAME [OPTIONS] WORDS" lines.
synopses=$(printf '%s\n' "$help_text" | sed -n '/^commands/,/^$/p' | grep -E '^  [a-z]')

# shellcheck source=/dev/null
source "$completion"

expect_same "the commands" "$(printf '%s\n' "$synopses" | awk '{ print $1 }' | tr '\n' ' ' | sed 's/ $//')" \
  "$_qira_wifi_commands"
while read -r name rest; do
  options=$(printf '%s\n' "$rest" | { grep -oE '\[--[a-z]+' || true; } | tr -d '[' | tr '\n' ' ' |
    sed 's/ $//')
  words=$(printf '%s\n' "$rest" | sed -E 's/\[--[a-z]+( [A-Z]+)?\] ?//g')
  expect_same "options of $name" "$options" "$(_qira_wifi_command_options "$name")"
  expect_same "words of $name" "$words" "$(_qira_wifi_command_words "$name")"
done <<<"$synopses"
expect_same "the common options" "--json --verbose --module --help" "$_qira_wifi_common_options"

# complete WORD...: what the completion offers for the last word of the line.
complete_line() {
  COMP_WORDS=("$@")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMPREPLY=()
  _qira_wifi
  printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort | tr '\n' ' ' | sed 's/ $//'
}

interfaces=$(for path in /sys/class/net/*; do echo "${path##*/}"; done | LC_ALL=C sort |
  tr '\n' ' ' | sed 's/ $//')
expect_same "a command" "scan" "$(complete_line qira-wifi sc)"
expect_same "every command" \
  "$(tr ' ' '\n' <<<"$_qira_wifi_commands" | LC_ALL=C sort | tr '\n' ' ' | sed 's/ $//')" \
  "$(complete_line qira-wifi '')"
expect_same "after an option's value" "scan" "$(complete_line qira-wifi --timeout 5 sc)"
expect_same "scan's options" "--again --ap" "$(complete_line qira-wifi scan --a)"
expect_same "info takes no --ap" "" "$(complete_line qira-wifi info --a)"
expect_same "an interface" "$interfaces" "$(complete_line qira-wifi --json info '')"
expect_same "doctor's optional interface" "$interfaces" "$(complete_line qira-wifi doctor '')"
expect_same "no second interface" "" "$(complete_line qira-wifi info lo '')"
expect_same "a wpa_supplicant command" "PING" "$(complete_line qira-wifi wpa lo PI)"
expect_same "the key algorithm of write-sta" "wpa wpa2" "$(complete_line qira-wifi write-sta lo Home w)"
expect_same "the auth of write-sta" "psk" "$(complete_line qira-wifi write-sta lo Home wpa2 p)"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
touch "$work/network.json"
expect_same "apply's CONFIG.json" "$work/network.json" "$(complete_line qira-wifi apply lo "$work/net")"
expect_same "a module file" "$work/network.json" "$(complete_line qira-wifi --module "$work/ne")"
expect_same "after --, no option" "" "$(complete_line qira-wifi wpa lo -- -)"

if [ "$failures" -ne 0 ]; then
  exit 1
fi
echo "completion_test.sh: the completion's commands, options and words are --help's, and it completes them"
