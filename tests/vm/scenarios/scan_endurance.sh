# Scans in a row through the module while nl80211 notifications keep
# flowing: an interface is created and deleted again and again on the
# camera's radio (wlan0's phy) while "qira-wifi scan wlan1" runs again and
# again. The results dump shares the module's event socket (8 KB buffers,
# every nl80211 group joined), so notifications are queued there ahead of
# and during the dump. Every run must end on its own, succeed and list both
# home networks; the figures are printed.
#
# The event source sends "config" notifications only, never a scan's: the
# module ends its scan at the first new_scan_results or scan_aborted of any
# interface (its scan handler does not read the payload), so another
# radio's scan in the root namespace would end a run before wlan1's own
# scan had reached both home channels. An earlier source (wlan0 leaving and
# rejoining HomeWPA2) made wpa_supplicant scan wlan0's channel every round,
# and on the slower armhf camera 2 or 3 of 8 runs then listed one network.
#
# A full-band scan takes about 8 s under emulation, so the suite runs 4
# scans; the 50-scan measurement runs with "qira_scan_runs=50" on the kernel
# command line (QIRA_VM_APPEND="qira_scan_runs=50"
# QIRA_VM_SCENARIO_TIMEOUT=900 tests/vm/run.sh --timeout 1000 scan_endurance,
# with --arch armhf for the ARM camera).
runs=${qira_scan_runs:-4}
# Each run may wait 30 s for its scan's end, and is killed after 40 s.
guard=40
phy=$(cat "/sys/class/net/$CAMERA_IF/phy80211/name")
churn_if=qvmchurn0
churn_log=$QVM_STATE/scenario/churn
: > "$churn_log"
on_reset "[ -e /sys/class/net/$churn_if ] && iw dev $churn_if del"
step "an interface created and deleted on $phy in a loop, about 3 times a second"
# Paced, so that the module's socket (8 KB) never overruns between two
# services of a run: an overrun is faults_event_overrun's subject.
(
  while :; do
    iw phy "$phy" interface add "$churn_if" type managed > /dev/null 2>&1
    iw dev "$churn_if" del > /dev/null 2>&1 && echo >> "$churn_log"
    sleep 0.3
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
cycles=$(wc -l < "$churn_log")
echo "figure: $cycles interface creations and deletions during the scans"
expect_true "the event source kept running (one cycle a second at least)" \
  [ "$cycles" -ge $((total / 1000)) ]
echo "scan endurance: $successes of $runs succeeded, $failures failed, $hangs hung;" \
  "ms per scan min $min avg $((total / runs)) max $max"
expect_eq "scans that succeeded" "$runs" "$successes"
expect_eq "scans that hung" 0 "$hangs"
