# Demo chapter: the module's wpa_supplicant client (WpaClient), through
# "qira-wifi wpa" (one command, its reply) and "qira-wifi wpa-events" (the
# translated events), with wlan0 joined to HomeWPA2 by the station chapter.
# Leaves wlan0 associated again and the event monitor stopped.
wpa_demo_events=$QVM_STATE/scenario/wpa-events.txt

# wpa_demo_attached PID: the monitor has sent its ATTACH. qira-wifi waits in
# select or poll only after Init and the ATTACH request, and wpa_supplicant
# handles the datagrams of its control socket in order, so a command sent
# from now on reaches it after the ATTACH.
wpa_demo_attached() {
  local call
  read -r call _ < "/proc/$1/syscall" || return 1
  case $call in 7 | 23 | 270 | 271) return 0 ;; esac
  return 1
}

echo "=== The module's wpa_supplicant client: one command and its reply"
show qira-wifi wpa "$CAMERA_IF" PING
show qira-wifi wpa "$CAMERA_IF" STATUS
echo
echo "=== Its events around a DISCONNECT and a RECONNECT"
echo
echo "camera# qira-wifi wpa-events $CAMERA_IF > $wpa_demo_events &"
qira-wifi wpa-events "$CAMERA_IF" > "$wpa_demo_events" &
wpa_demo_pid=$!
wait_for 10 wpa_demo_attached "$wpa_demo_pid" || echo "(the monitor did not attach within 10 s)"
show qira-wifi wpa "$CAMERA_IF" DISCONNECT
wait_for 15 grep -q ' disconnected_from_ap ' "$wpa_demo_events" || echo "(no disconnected_from_ap within 15 s)"
show qira-wifi wpa "$CAMERA_IF" RECONNECT
wait_for 30 grep -q ' connected_to_ap ' "$wpa_demo_events" || echo "(no connected_to_ap within 30 s)"
show kill -INT "$wpa_demo_pid"
wait "$wpa_demo_pid"
echo "(qira-wifi wpa-events ended on the interrupt with exit status $?, as an interrupted command does)"
show cat "$wpa_demo_events"
wait_associated "$CAMERA_IF" 30 && echo "($CAMERA_IF associated again)"
echo
