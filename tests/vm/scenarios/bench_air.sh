# Wall time of the command-line program against the system's own tools on
# the same radios, side by side in one boot: "qira-wifi scan wlan1" against
# iw's scan of wlan1, taking turns (each triggers a scan, waits for the
# kernel's end of scan and reads the results); and "qira-wifi info wlan0"
# (load the module, every wireless-extension query) against
# "iwconfig wlan0", with wlan0 associated to HomeWPA2, and "qira-wifi --help"
# as the cost of starting the program without loading the module.
#
# The figures are printed, never judged: what is checked is that every run
# succeeded and saw what the world holds. Times come from /proc/uptime
# (centiseconds), so the queries are timed over a loop of many runs.
# "qira_bench_scans=N qira_bench_queries=N" on the kernel command line
# (QIRA_VM_APPEND="qira_bench_scans=10" tests/vm/run.sh bench_air) change
# the counts.
scans=${qira_bench_scans:-3}
queries=${qira_bench_queries:-50}
out=$QVM_STATE/scenario/bench
conf=$QVM_STATE/scenario/wpa.conf

# timed_ms COMMAND...: runs COMMAND with its output in $out.stdout and
# $out.stderr; prints the wall milliseconds, answers its exit status.
timed_ms() {
  local started status
  started=$(uptime_cs)
  "$@" > "$out.stdout" 2> "$out.stderr"
  status=$?
  echo $((($(uptime_cs) - started) * 10))
  return "$status"
}
# loop_us COUNT COMMAND...: runs COMMAND COUNT times (output discarded);
# prints the wall microseconds per run, answers 1 if one run failed.
loop_us() {
  local count=$1 started i=0 failed=0
  shift
  started=$(uptime_cs)
  while [ "$i" -lt "$count" ]; do
    "$@" > /dev/null 2>&1 || failed=1
    i=$((i + 1))
  done
  echo $((($(uptime_cs) - started) * 10000 / count))
  return "$failed"
}
# iw_scan: iw's scan of the spare radio. The combined "iw dev wlan1 scan"
# can livelock on this kernel, so it is iw's three steps: "scan trigger",
# the end that "iw event" reports, "scan dump" (the wait polls every 0.1 s,
# which iw's figure includes).
iw_scan() {
  local ended
  ended=$(spare_event_count 'scan finished')
  iw dev "$SPARE_IF" scan trigger || return 1
  wait_for 30 spare_event_count_above 'scan finished' "$ended" || return 1
  iw dev "$SPARE_IF" scan dump
}
# summary NAME MS...: "NAME: min A avg B max C ms over N runs".
summary() {
  local name=$1
  shift
  echo "$*" | tr ' ' '\n' | awk -v name="$name" '
    NR == 1 || $1 < min { min = $1 } $1 > max { max = $1 } { sum += $1; n++ }
    END { printf "%s: min %d avg %d max %d ms over %d runs\n", name, min, sum / n, max, n }'
}

step "wlan0 joins $HOME_WPA2_SSID; $SPARE_IF is up"
home_wpa2_conf "$conf"
start_wpa_supplicant "$CAMERA_IF" "$conf" || return 1
wait_associated "$CAMERA_IF" 30 || return 1
ip link set "$SPARE_IF" up
listen_spare_events || return 1

step "$scans rounds: qira-wifi scan $SPARE_IF, then iw's scan of $SPARE_IF"
qira_times='' iw_times='' qira_ok=0 iw_ok=0 round=0
while [ "$round" -lt "$scans" ]; do
  round=$((round + 1))
  ms=$(timed_ms qira-wifi --json --timeout 30000 scan "$SPARE_IF")
  status=$?
  found=$(grep -cE "\"ssid\": \"($HOME_OPEN_SSID|$HOME_WPA2_SSID)\"" "$out.stdout")
  [ "$status" -eq 0 ] && [ "$found" -eq 2 ] && qira_ok=$((qira_ok + 1))
  qira_times="$qira_times $ms"
  echo "round $round: qira-wifi scan $ms ms (exit $status, $found of 2 home networks)"
  ms=$(timed_ms iw_scan)
  status=$?
  found=$(grep -cE "^	SSID: ($HOME_OPEN_SSID|$HOME_WPA2_SSID)\$" "$out.stdout")
  [ "$status" -eq 0 ] && [ "$found" -eq 2 ] && iw_ok=$((iw_ok + 1))
  iw_times="$iw_times $ms"
  echo "round $round: iw scan $ms ms (exit $status, $found of 2 home networks)"
done
expect_eq "qira-wifi scans that listed both home networks" "$scans" "$qira_ok"
expect_eq "iw scans that listed both home networks" "$scans" "$iw_ok"
stop_pidfile "$QVM_STATE/scan-iw-event.pid"

step "$queries runs each: qira-wifi info $CAMERA_IF, iwconfig $CAMERA_IF, qira-wifi --help"
expect_match "qira-wifi info names the network" "^essid: *\"?$HOME_WPA2_SSID\"?\$" \
  "$(qira-wifi info "$CAMERA_IF" 2>&1 | grep '^essid:')"
expect_match "iwconfig names the network" "ESSID:\"$HOME_WPA2_SSID\"" "$(iwconfig "$CAMERA_IF" 2>&1)"
info_us=$(loop_us "$queries" qira-wifi info "$CAMERA_IF")
expect_eq "every qira-wifi info run succeeded" 0 "$?"
iwconfig_us=$(loop_us "$queries" iwconfig "$CAMERA_IF")
expect_eq "every iwconfig run succeeded" 0 "$?"
help_us=$(loop_us "$queries" qira-wifi --help)
expect_eq "every qira-wifi --help run succeeded" 0 "$?"

step "figures (wall time in this guest; $(cat /sys/devices/system/clocksource/clocksource0/current_clocksource) clock)"
summary "bench: qira-wifi scan $SPARE_IF" $qira_times
summary "bench: iw scan trigger+dump $SPARE_IF" $iw_times
echo "bench: qira-wifi info $CAMERA_IF: $info_us us per run over $queries runs"
echo "bench: iwconfig $CAMERA_IF: $iwconfig_us us per run over $queries runs"
echo "bench: qira-wifi --help: $help_us us per run over $queries runs"
# The ratios within this boot: qira-wifi against the system tool on the same
# radio (the scans took turns), total against total.
echo "$qira_times" "$iw_times" "$info_us" "$iwconfig_us" | awk -v n="$scans" '{
  for (i = 1; i <= n; i++) { qira += $i; iw += $(n + i) }
  printf "bench: ratio qira-wifi scan / iw scan: %.2f\n", iw ? qira / iw : 0
  printf "bench: ratio qira-wifi info / iwconfig: %.2f\n", $(2 * n + 2) ? $(2 * n + 1) / $(2 * n + 2) : 0 }'
