# wpa_supplicant killed under the module's client, as a crash that a
# watchdog repairs. "qira-wifi wpa-events wlan0" and "qira-wifi monitor
# wlan0" (the "monitor" below is wpa-events; qira-wifi monitor is checked
# beside it) stay attached throughout:
#   1. SIGKILL while the monitor is attached and idle: it says that the
#      daemon does not answer (its PING is refused), closes its client (the
#      "/tmp/wpacl-" file goes) and attaches again once wpa_supplicant has
#      been started again; events flow.
#   2. SIGKILL while a request waits for its reply: the daemon is stopped
#      (SIGSTOP), "qira-wifi disconnect wlan0" sends DISCONNECT through the
#      module's client (5000 ms deadline) and waits in select(); then the
#      daemon is killed. The request ends at its deadline with the module's
#      failure line, once; its client's file is removed.
# qira-wifi monitor notes the same as "monitor wpa_lost" and "monitor
# wpa_reattached", and prints the new daemon's events. "figure:" lines give
# the times.
conf=$QVM_STATE/scenario/wpa.conf
events=$QVM_STATE/scenario/wpa-events.out
events_err=$QVM_STATE/scenario/wpa-events.err
events_status=$QVM_STATE/scenario/wpa-events.status
events_pidfile=$QVM_STATE/wpa-events.pid
supplicant_pidfile=$QVM_STATE/wpa_supplicant-$CAMERA_IF.pid
gone_line="qira-wifi: the wpa_supplicant of $CAMERA_IF does not answer: waiting for it to come back"
back_line="qira-wifi: the wpa_supplicant of $CAMERA_IF is back: attached again"
timeline=$QVM_STATE/scenario/monitor.out
timeline_pidfile=$QVM_STATE/qira-monitor.pid

line_count() { grep -cxF "$1" "$events_err"; }
has_lines() { [ "$(line_count "$1")" -ge "$2" ]; }
connected_count() { grep -c '^25 connected_to_ap ' "$events"; }
has_connected() { [ "$(connected_count)" -ge "$1" ]; }
ms_since() { echo $((($(uptime_cs) - $1) * 10)); }
# timeline_count SOURCE NAME: how many lines of qira-wifi monitor's timeline
# ("MS SOURCE NAME KEY=VALUE...") came from SOURCE with NAME.
timeline_count() { awk -v s="$1" -v n="$2" '$2 == s && $3 == n { c++ } END { print c + 0 }' "$timeline"; }
timeline_has() { [ "$(timeline_count "$1" "$2")" -ge "$3" ]; }

# kill_supplicant: SIGKILL, waits until it is gone; the pid file and the
# control socket stay behind, as after a crash.
kill_supplicant() {
  local pid
  pid=$(cat "$supplicant_pidfile")
  kill -9 "$pid"
  expect_true "wpa_supplicant (pid $pid) killed" wait_for 10 sh -c "! kill -0 $pid 2> /dev/null"
}

# restart_supplicant ROUND: the watchdog's restart (the network disabled, so
# that the association comes when the scenario asks for it); the monitor
# attaches again and sees the association.
restart_supplicant() {
  local started listening
  rm -f "$supplicant_pidfile"
  home_wpa2_conf "$conf" disabled=1
  started=$(uptime_cs)
  start_wpa_supplicant "$CAMERA_IF" "$conf" -d || return 1
  listening=$(uptime_cs)
  expect_true "round $1: the monitor is attached again" wait_for 15 has_lines "$back_line" "$1"
  echo "figure: round $1: monitor attached again $(ms_since "$listening") ms after the control" \
    "socket appeared ($(ms_since "$started") ms after wpa_supplicant was started)"
  expect_true "round $1: qira-wifi monitor attached again" wait_for 15 timeline_has monitor wpa_reattached "$1"
  echo "figure: round $1: qira-wifi monitor attached again $(ms_since "$listening") ms after the control socket appeared"
  connected=$(($(connected_count) + 1))
  expect_eq "round $1: ENABLE_NETWORK 0" OK "$(qira-wifi wpa "$CAMERA_IF" ENABLE_NETWORK 0)"
  expect_true "round $1: connected_to_ap printed after the return" wait_for 30 has_connected "$connected"
  expect_true "round $1: qira-wifi monitor prints connected_to_ap" \
    wait_for 30 timeline_has wpa_supplicant connected_to_ap "$1"
  expect_eq "round $1: a new client's PING" PONG "$(qira-wifi wpa "$CAMERA_IF" PING)"
}

command -v qira-wifi > /dev/null || {
  fail "qira-wifi is not in the image (built with --world-only?)"
  return 1
}
step "wpa_supplicant on $CAMERA_IF joins $HOME_WPA2_SSID; qira-wifi wpa-events and monitor attach"
home_wpa2_conf "$conf"
start_wpa_supplicant "$CAMERA_IF" "$conf" -d || return 1
wait_associated "$CAMERA_IF" 30 || return 1
wpacl_before=$(wpacl_files)
start_wpa_events
expect_true "wpa_supplicant logs the monitor's ATTACH" wait_for 10 monitors_attached 1
monitor_socket=$(wpacl_files | grep -vxF "$wpacl_before")
expect_match "the monitor's client socket" '^/tmp/wpacl-[A-Za-z0-9]{6}$' "$monitor_socket"
qira-wifi monitor "$CAMERA_IF" > "$timeline" 2> "$timeline.err" &
echo $! > "$timeline_pidfile"
expect_true "qira-wifi monitor attached" wait_for 10 timeline_has monitor wpa_attached 1

step "1. SIGKILL while the monitor is attached"
killed=$(uptime_cs)
kill_supplicant
expect_true "the monitor says that wpa_supplicant does not answer" wait_for 10 has_lines "$gone_line" 1
echo "figure: round 1: the monitor noticed the kill after $(ms_since "$killed") ms"
expect_true "qira-wifi monitor notes the loss" wait_for 10 timeline_has monitor wpa_lost 1
echo "figure: round 1: qira-wifi monitor noted the loss after $(ms_since "$killed") ms"
expect_true "the monitor's client socket is removed" test ! -e "$monitor_socket"
expect_true "qira-wifi wpa-events still runs" kill -0 "$(cat "$events_pidfile")"
# The control socket is a leftover now: connect() is refused.
qira-wifi --json wpa "$CAMERA_IF" PING > /dev/null 2> "$QVM_STATE/scenario/ping.err"
expect_eq "qira-wifi wpa PING to the dead daemon" \
  "qira-wifi: cannot reach the wpa_supplicant of $CAMERA_IF: failed (connect() failed: Connection refused)" \
  "$(cat "$QVM_STATE/scenario/ping.err")"
restart_supplicant 1 || return 1

step "2. SIGSTOP, DISCONNECT waiting for its reply, SIGKILL"
kill -STOP "$(cat "$supplicant_pidfile")"
started=$(uptime_cs)
qira-wifi --json disconnect "$CAMERA_IF" > "$QVM_STATE/scenario/disconnect.json" 2>&1 &
disconnect_pid=$!
# Its client has sent DISCONNECT and waits in select() for the reply.
waiting_in_select() { grep -q select "/proc/$disconnect_pid/wchan"; }
expect_true "qira-wifi disconnect waits in select()" wait_for 10 waiting_in_select
kill_supplicant
expect_true "qira-wifi disconnect ended within 10 s" wait_for 10 sh -c "! kill -0 $disconnect_pid 2> /dev/null"
wait "$disconnect_pid"
status=$?
took=$(ms_since "$started")
echo "figure: round 2: the pending DISCONNECT ended after $took ms (deadline 5000 ms)"
cat "$QVM_STATE/scenario/disconnect.json"
expect_eq "qira-wifi disconnect exit status" 3 "$status"
ended_at_deadline() { [ "$took" -ge 5000 ] && [ "$took" -le 10000 ]; }
expect_true "the request ended at its deadline, 5000 ms ($took ms)" ended_at_deadline
json_flatten "$QVM_STATE/scenario/disconnect.json" > "$QVM_STATE/scenario/disconnect.flat"
flat=$QVM_STATE/scenario/disconnect.flat
expect_eq "disconnect ok" false "$(json_get "$flat" ok)"
expect_eq "disconnect: one log line" 1 "$(json_count "$flat" log)"
expect_eq "disconnect: the module's line" 'Failed to perform wpactrl action "DISCONNECT": ' \
  "$(json_get "$flat" log.0.message)"
expect_eq "disconnect: its level" 3 "$(json_get "$flat" log.0.level)"
expect_eq "disconnect: its function" net_exec_wpactrl_cmd "$(json_get "$flat" log.0.function)"
expect_true "the monitor says again that wpa_supplicant does not answer" \
  wait_for 10 has_lines "$gone_line" 2
expect_true "qira-wifi monitor notes the loss again" wait_for 10 timeline_has monitor wpa_lost 2
restart_supplicant 2 || return 1

step "the monitor ends on SIGINT; no client file is left"
kill -INT "$(cat "$events_pidfile")"
expect_true "qira-wifi wpa-events has ended" wait_for 15 test -s "$events_status"
rm -f "$events_pidfile"
# 130: ended by a signal, as --help lists it.
expect_eq "qira-wifi wpa-events exit status" 130 "$(cat "$events_status")"
echo "# qira-wifi wpa-events, stderr:"
cat "$events_err"
echo "# qira-wifi wpa-events, events:"
cat "$events"
expect_eq "the monitor's account: gone, back, gone, back" \
  "$gone_line;$back_line;$gone_line;$back_line;" "$(tr '\n' ';' < "$events_err")"
kill -INT "$(cat "$timeline_pidfile")"
expect_true "qira-wifi monitor has ended" wait_for 15 sh -c "! kill -0 $(cat "$timeline_pidfile") 2> /dev/null"
rm -f "$timeline_pidfile"
echo "# qira-wifi monitor:"
cat "$timeline"
expect_eq "qira-wifi monitor's notes: attached, lost, back, lost, back" \
  "wpa_attached wpa_lost wpa_reattached wpa_lost wpa_reattached" \
  "$(awk '$2 == "monitor" && $3 ~ /^wpa_/ { printf "%s%s", sep, $3; sep = " " }' "$timeline")"
expect_eq "/tmp/wpacl- files afterwards" "$wpacl_before" "$(wpacl_files)"
