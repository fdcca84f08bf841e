# Fifty scans in a row through the module while nl80211 notifications keep
# flowing: wlan0 leaves and rejoins HomeWPA2 (wpa_supplicant scans,
# authenticates, associates, disconnects) in a loop while "qira-wifi scan
# wlan1" runs again and again. The results dump shares the module's event
# socket (8 KB buffers, every nl80211 group joined), so notifications are
# queued there ahead of and during the dump. Every run must end on its own,
# succeed and list both home networks; the figures are printed.
#
# A full-band scan takes 3 to 9 s under emulation, so the suite runs 8
# scans; the 50-scan measurement runs with "qira_scan_runs=50" on the kernel
# command line (QIRA_VM_TCG_APPEND="clocksource=hpet no_timer_check qira_scan_runs=50"
# QIRA_VM_SCENARIO_TIMEOUT=900 tests/vm/run.sh --timeout 1000 scan_endurance).
runs=${qira_scan_runs:-8}
# Each run may wait 30 s for its scan's end, and is killed after 40 s.
guard=40
conf=$QVM_STATE/scenario/wpa.conf
home_wpa2_conf "$conf"
step "wlan0 joins $HOME_WPA2_SSID, then leaves and rejoins it in a loop"
start_wpa_supplicant "$CAMERA_IF" "$conf" || return 1
wait_associated "$CAMERA_IF" 30 || return 1
# The event source: each round is a disconnection and a new association
# (with its scan), a dozen notifications on the module's socket.
(
  while :; do
    wpa_cli -i "$CAMERA_IF" disconnect > /dev/null 2>&1
    wait_for 5 wpa_state_is "$CAMERA_IF" DISCONNECTED
    wpa_cli -i "$CAMERA_IF" reconnect > /dev/null 2>&1
    wait_for 10 wpa_state_is "$CAMERA_IF" COMPLETED
  done
) &
echo $! > "$QVM_STATE/scan-events.pid"
ip link set "$SPARE_IF" up

step "$runs scans of $SPARE_IF, each guarded by $guard s"
successes=0 failures=0 hangs=0 total=0 min= max=0
out=$QVM_STATE/scenario/scan
run=0
while [ "$run" -lt "$runs" ]; do
  run=$((run + 1))
  started=$(uptime_cs)
  timeout -s KILL "$guard" qira-wifi --json --verbose --timeout 30000 scan "$SPARE_IF" > "$out.json" 2> "$out.stderr"
  status=$?
  took=$(($(uptime_cs) - started))
  ms=$((took * 10))
  total=$((total + ms))
  [ -z "$min" ] || [ "$ms" -lt "$min" ] && min=$ms
  [ "$ms" -gt "$max" ] && max=$ms
  found=$(grep -cE "\"ssid\": \"($HOME_OPEN_SSID|$HOME_WPA2_SSID)\"" "$out.json")
  if [ "$status" -eq 137 ] || [ "$took" -ge $((guard * 100)) ]; then
    hangs=$((hangs + 1))
    echo "run $run: HUNG (killed after $ms ms)"
  elif [ "$status" -eq 0 ] && [ "$found" -eq 2 ]; then
    successes=$((successes + 1))
    echo "run $run: ok $ms ms"
  else
    failures=$((failures + 1))
    echo "run $run: FAILED exit $status, $found of 2 home networks, $ms ms:"; cat "$out.stderr"
  fi
done
stop_pidfile "$QVM_STATE/scan-events.pid"
echo "scan endurance: $successes of $runs succeeded, $failures failed, $hangs hung;" \
  "ms per scan min $min avg $((total / runs)) max $max"
expect_eq "scans that succeeded" "$runs" "$successes"
expect_eq "scans that hung" 0 "$hangs"
