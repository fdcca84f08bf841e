# What a scan's results request meets on the real kernel when nl80211's
# notifications share the socket with the dump, and what the module makes of
# it. While wlan0 keeps leaving and rejoining HomeWPA2 (a dozen
# notifications a round, among them wpa_supplicant's own scans), each round
# scans wlan1 three times:
#
#   scan-dump-probe wlan1 once     the contract's sequence: one GET_SCAN dump
#                                  request, one nl_recvmsgs with only the
#                                  sequence check and the valid handler
#   scan-dump-probe wlan1 to-end   one request, read on until the dump's end,
#                                  noting every refusal, overrun and empty
#                                  queue met before the end
#   qira-wifi scan wlan1           the module
#
# (tests/vm/probes/scan_dump_probe.cpp says how the probe follows a scan the
# way the module does.) A run succeeds when both home networks are listed.
# The figures are printed; the checks: every module scan and every to-end
# probe scan succeeds, and every scan that the contract's sequence left short
# has its cause identified in what the request left on the socket.
#
# The suite runs 3 rounds; the measurement of docs/scanning.md runs 50 with
# "qira_dump_rounds=50" on the kernel command line (QIRA_VM_APPEND=
# "qira_dump_rounds=50" QIRA_VM_SCENARIO_TIMEOUT=2400 tests/vm/run.sh
# --timeout 2500 scan_dump_sequence).
rounds=${qira_dump_rounds:-3}
# Each run may wait 30 s for its scan's end, and is killed after 40 s.
guard=40
dir=$QVM_STATE/scenario
conf=$dir/wpa.conf
ip link set "$SPARE_IF" up

step "a first scan of $SPARE_IF fills the kernel's table before the measurement"
# A scan ends on any interface's new_scan_results (the module follows the
# kernel's notifications, not one interface's), so a dump may show the
# table as the previous scan left it: it must hold the home networks then.
qira-wifi --timeout 30000 scan "$SPARE_IF" > "$dir/first-scan.txt" 2>&1
expect_eq "first scan lists both home networks" 2 \
  "$(grep -cE "($HOME_OPEN_SSID|$HOME_WPA2_SSID)" "$dir/first-scan.txt")"

home_wpa2_conf "$conf"
step "wlan0 joins $HOME_WPA2_SSID, then leaves and rejoins it in a loop"
start_wpa_supplicant "$CAMERA_IF" "$conf" || return 1
wait_associated "$CAMERA_IF" 30 || return 1
(
  while :; do
    wpa_cli -i "$CAMERA_IF" disconnect > /dev/null 2>&1
    wait_for 5 wpa_state_is "$CAMERA_IF" DISCONNECTED
    wpa_cli -i "$CAMERA_IF" reconnect > /dev/null 2>&1
    wait_for 10 wpa_state_is "$CAMERA_IF" COMPLETED
  done
) &
echo $! > "$QVM_STATE/dump-events.pid"

# both_home FILE: FILE names both home networks.
both_home() {
  grep -q "$HOME_OPEN_SSID" "$1" && grep -q "$HOME_WPA2_SSID" "$1"
}

step "$rounds rounds: the contract's sequence, read to the end, the module"
probes=$dir/probe-lines
: > "$probes"
module_ok=0 module_hung=0 module_total_ms=0 module_max_ms=0
round=0
while [ "$round" -lt "$rounds" ]; do
  round=$((round + 1))
  for sequence in once to-end; do
    timeout -s KILL "$guard" scan-dump-probe "$SPARE_IF" "$sequence" 30000 > "$dir/probe.out" 2>&1
    echo "round $round: $(cat "$dir/probe.out")"
    # One line per run, also when the probe was killed or said nothing.
    if grep -q "^probe $sequence: " "$dir/probe.out"; then
      grep "^probe $sequence: " "$dir/probe.out" | head -1 >> "$probes"
    else
      echo "probe $sequence: no-line" >> "$probes"
    fi
  done
  started=$(uptime_cs)
  timeout -s KILL "$guard" qira-wifi --verbose --timeout 30000 scan "$SPARE_IF" > "$dir/module.out" 2> "$dir/module.err"
  status=$?
  ms=$((($(uptime_cs) - started) * 10))
  module_total_ms=$((module_total_ms + ms))
  [ "$ms" -gt "$module_max_ms" ] && module_max_ms=$ms
  if [ "$status" -eq 137 ]; then
    module_hung=$((module_hung + 1))
    echo "round $round: module HUNG (killed after $ms ms)"
  elif [ "$status" -eq 0 ] && both_home "$dir/module.out"; then
    module_ok=$((module_ok + 1))
    echo "round $round: module ok $ms ms"
  else
    echo "round $round: module FAILED exit $status, $ms ms:"
    cat "$dir/module.out" "$dir/module.err"
  fi
done
stop_pidfile "$QVM_STATE/dump-events.pid"

# The probe's lines, summed up. A "once" run is short when it did not list
# both home networks; its cause is read from what the request left behind:
# "left behind" when the dump's own replies were still queued (the one read
# returned with a notification), "refused" on an error reply to the request,
# "overrun" when a read reported lost datagrams.
awk -v open="$HOME_OPEN_SSID" -v wpa2="$HOME_WPA2_SSID" '
  function field(name,   i, kv) {
    for (i = 3; i <= NF; i++) { split($i, kv, "="); if (kv[1] == name) return kv[2] }
    return ""
  }
  function number(name) { return field(name) + 0 }
  function listed() { s = field("ssids"); return index(s, open) && index(s, wpa2) }
  $2 == "once:" {
    once++
    if ($3 != "listed" && $3 != "empty") { once_noresult++; next }
    if (listed()) { once_ok++; next }
    if (number("left_replies") > 0 || number("left_done") == 1) left++
    else if (field("errors") != "none" || field("left_errors") != "none" || number("result") < 0) refused++
    else if (number("overruns") > 0 || number("left_overruns") > 0) overrun++
    else unexplained++
    if (field("first") == "notification") behind_notification++
  }
  $2 == "to-end:" {
    toend++
    if ($3 != "listed" && $3 != "empty") { toend_noresult++; next }
    if (listed() && number("done") == 1) toend_ok++
    before += number("notes_before"); during += number("notes_during")
    if (number("notes_before") > 0) ahead++
    if (field("errors") != "none") { refusals++; refusal_codes = refusal_codes " " field("errors") }
    overruns += number("overruns"); empties += number("empty_before_end"); foreign += number("foreign")
    if (number("longest_wait_ms") > wait_max) wait_max = number("longest_wait_ms")
    if (number("reads") > reads_max) reads_max = number("reads")
    if (number("us") > us_max) us_max = number("us")
    us_total += number("us")
  }
  END {
    printf "dump sequence once: %d of %d listed both home networks; short: %d dump left queued behind a notification, %d refused, %d overrun, %d unexplained (%d began with a notification); %d without a results request\n", once_ok, once, left, refused, overrun, unexplained, behind_notification, once_noresult
    printf "dump sequence to-end: %d of %d complete with both home networks; %d began behind notifications (%d read before, %d during the dumps), refusals %d (%s), overruns %d, queue empty before the end %d times (longest wait %d ms), replies to other requests %d, reads max %d, us per dump max %d avg %d; %d without a results request\n", toend_ok, toend, ahead, before, during, refusals, refusal_codes == "" ? "none" : refusal_codes, overruns, empties, wait_max, foreign, reads_max, us_max, toend ? us_total / toend : 0, toend_noresult
    printf "summary once_unexplained=%d once_noresult=%d toend_ok=%d toend=%d\n", unexplained, once_noresult, toend_ok, toend
  }' "$probes" > "$dir/summary"
grep -v '^summary ' "$dir/summary"
echo "dump sequence module: $module_ok of $rounds succeeded, $module_hung hung; ms per scan avg $((module_total_ms / rounds)) max $module_max_ms"

summary_value() { sed -n 's/.* '"$1"'=\([0-9]*\).*/\1/p' "$dir/summary"; }
expect_eq "module scans that succeeded" "$rounds" "$module_ok"
expect_eq "to-end probe scans complete with both home networks" "$rounds" "$(summary_value toend_ok)"
expect_eq "short once-scans without an identified cause" 0 "$(summary_value once_unexplained)"
expect_eq "once probe runs without a results request" 0 "$(summary_value once_noresult)"
