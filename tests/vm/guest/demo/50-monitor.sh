# Demo chapter: "qira-wifi monitor", one timeline of what the module hears,
# while the station part's wlan0 (in station mode again after the setup
# chapter) is disconnected and reconnected, and "qira-wifi connect" restarts
# wpa_supplicant under it. Leaves wlan0 associated and the monitor stopped.
monitor_demo_out=$QVM_STATE/scenario/monitor.txt
monitor_demo_has() { grep -q " $1\( \|\$\)" "$monitor_demo_out"; }

echo "=== One timeline of nl80211 and wpa_supplicant events"
echo
echo "camera# qira-wifi monitor $CAMERA_IF > $monitor_demo_out &"
qira-wifi monitor "$CAMERA_IF" > "$monitor_demo_out" &
monitor_demo_pid=$!
wait_for 10 monitor_demo_has wpa_attached || echo "(the monitor did not attach within 10 s)"
show qira-wifi wpa "$CAMERA_IF" DISCONNECT
wait_for 15 monitor_demo_has disconnected_from_ap || echo "(no disconnected_from_ap within 15 s)"
show qira-wifi connect "$CAMERA_IF"
wait_for 15 monitor_demo_has wpa_reattached || echo "(the monitor did not attach again within 15 s)"
wait_for 30 monitor_demo_has connected_to_ap || echo "(no connected_to_ap within 30 s)"
show kill -INT "$monitor_demo_pid"
wait "$monitor_demo_pid"
echo "(qira-wifi monitor ended on the interrupt with exit status $?, as an interrupted command does)"
show cat "$monitor_demo_out"
wait_associated "$CAMERA_IF" 30 && echo "($CAMERA_IF associated)"
echo
