# Demo chapter: nl80211 events. "qira-wifi events" (what the module hands its
# subscribers) and "iw event -t" listen side by side while wlan1 scans and the
# regulatory domain goes to DE and back to the world's (00). wlan0 stays
# associated; both listeners are stopped at the end.
events_demo_dir=$QVM_STATE/scenario
events_demo_out=$events_demo_dir/events.out
events_demo_iw=$events_demo_dir/iw-event.txt

echo
echo "=== nl80211 events: what the module's subscribers get, next to iw's view"
echo
echo "camera# qira-wifi events > events.out &"
echo "camera# iw event -t > iw-event.txt &"
if start_event_listeners "$events_demo_dir" TEXT; then
  cat "$events_demo_dir/events.err"
  ip link set "$SPARE_IF" up
  show iw dev "$SPARE_IF" scan trigger freq "$HOME_OPEN_FREQ" "$HOME_WPA2_FREQ"
  wait_for 30 grep -q "^9 new_scan_results .*\"ifname\":\"$SPARE_IF\"" "$events_demo_out" &&
    wait_for 10 grep -q "$SPARE_IF (phy #[0-9]*): scan finished" "$events_demo_iw" ||
    echo "(the scan did not end within 40 s)"
  show iw reg set DE
  wait_for 10 grep -q '^12 reg_change .*"country":"DE"' "$events_demo_out" &&
    wait_for 10 grep -q 'set to DE by' "$events_demo_iw" || echo "(no change to DE within 20 s)"
  show iw reg set 00
  wait_for 10 grep -q '^12 reg_change .*"world_roaming"' "$events_demo_out" &&
    wait_for 10 grep -q 'set to world roaming by' "$events_demo_iw" ||
    echo "(no change to the world's domain within 20 s)"
fi
stop_pidfile "$QVM_STATE/qira-events.pid"
stop_pidfile "$QVM_STATE/iw-event.pid"
echo
echo "camera# cat events.out"
cat "$events_demo_out"
echo
echo "camera# cat iw-event.txt"
cat "$events_demo_iw"
echo
