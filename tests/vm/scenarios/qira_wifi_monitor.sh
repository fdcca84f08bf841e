# qira-wifi monitor wlan0 --json while wlan0 joins HomeWPA2, is disconnected,
# and wpa_supplicant is restarted (SIGTERM, then started again): the timeline
# holds the nl80211 connect and the wpa_supplicant connected event, then the
# disconnect pair, then wpa_supplicant's stop and the monitor's re-attach, in
# that order, with rising timestamps; every line is one JSON object.
conf=$QVM_STATE/scenario/wpa.conf
out=$QVM_STATE/scenario/monitor.out
err=$QVM_STATE/scenario/monitor.err
status_file=$QVM_STATE/scenario/monitor.status
pidfile=$QVM_STATE/qira-monitor.pid
supplicant_pidfile=$QVM_STATE/wpa_supplicant-$CAMERA_IF.pid
lines=$QVM_STATE/scenario/monitor.lines

command -v qira-wifi > /dev/null || {
  fail "qira-wifi is not in the image (built with --world-only?)"
  return 1
}

# timeline: "SOURCE NAME" of each line so far, one per line, from the JSON.
timeline() {
  local line
  : > "$lines"
  while IFS= read -r line; do
    printf '%s\n' "$line" > "$lines.one"
    json_flatten "$lines.one" > "$lines.flat" 2> /dev/null || {
      echo "UNPARSED"
      continue
    }
    echo "$(json_get "$lines.flat" source) $(json_get "$lines.flat" name)"
  done < "$out"
}
# has SOURCE NAME: the timeline holds that line.
has() { timeline | grep -qxF "$1 $2"; }
# position SOURCE NAME: the line number of its first occurrence in the whole
# timeline (0 when none).
position() { grep -nxF "$1 $2" "$lines.all" | head -1 | cut -d: -f1 | grep . || echo 0; }

step "wpa_supplicant on $CAMERA_IF with $HOME_WPA2_SSID disabled; the monitor starts"
home_wpa2_conf "$conf" disabled=1
start_wpa_supplicant "$CAMERA_IF" "$conf" || return 1
(
  qira-wifi --json monitor "$CAMERA_IF" > "$out" 2> "$err" &
  echo $! > "$pidfile"
  wait $!
  echo $? > "$status_file"
) &
expect_true "the monitor is attached to wpa_supplicant" wait_for 15 has monitor wpa_attached

step "$CAMERA_IF joins $HOME_WPA2_SSID"
expect_eq "ENABLE_NETWORK 0" OK "$(qira-wifi wpa "$CAMERA_IF" ENABLE_NETWORK 0)"
wait_associated "$CAMERA_IF" 30
expect_true "nl80211 connect in the timeline" wait_for 15 has nl80211 connect
expect_true "wpa_supplicant connected_to_ap in the timeline" wait_for 15 has wpa_supplicant connected_to_ap

step "$CAMERA_IF is disconnected"
expect_eq "DISCONNECT" OK "$(qira-wifi wpa "$CAMERA_IF" DISCONNECT)"
expect_true "nl80211 disconnect in the timeline" wait_for 15 has nl80211 disconnect
expect_true "wpa_supplicant disconnected_from_ap in the timeline" \
  wait_for 15 has wpa_supplicant disconnected_from_ap

step "wpa_supplicant is restarted"
stop_pidfile "$supplicant_pidfile"
expect_true "the monitor says that wpa_supplicant stopped" wait_for 15 has monitor wpa_stopped
start_wpa_supplicant "$CAMERA_IF" "$conf" || return 1
expect_true "the monitor attached again" wait_for 15 has monitor wpa_reattached

step "the monitor ends on SIGINT"
kill -INT "$(cat "$pidfile")"
expect_true "qira-wifi monitor has ended" wait_for 15 test -s "$status_file"
rm -f "$pidfile"
# 130: ended by a signal, as --help lists it.
expect_eq "monitor exit status" 130 "$(cat "$status_file")"
expect_eq "monitor stderr" "" "$(cat "$err")"
echo "# qira-wifi --json monitor $CAMERA_IF:"
cat "$out"

step "the timeline"
timeline > "$lines.all"
cat "$lines.all"
expect_eq "every line is one JSON object" 0 "$(grep -c '^UNPARSED$' "$lines.all")"
expect_eq "first line" "monitor listening" "$(sed -n 1p "$lines.all")"
expect_eq "second line" "monitor wpa_attached" "$(sed -n 2p "$lines.all")"
connect=$(position nl80211 connect)
connected=$(position wpa_supplicant connected_to_ap)
disconnect=$(position nl80211 disconnect)
disconnected=$(position wpa_supplicant disconnected_from_ap)
stopped=$(position monitor wpa_stopped)
reattached=$(position monitor wpa_reattached)
echo "positions: connect $connect, connected_to_ap $connected, disconnect $disconnect," \
  "disconnected_from_ap $disconnected, wpa_stopped $stopped, wpa_reattached $reattached"
in_order() {
  [ "$connect" -gt 2 ] && [ "$connected" -gt 2 ] &&
    [ "$disconnect" -gt "$connect" ] && [ "$disconnect" -gt "$connected" ] &&
    [ "$disconnected" -gt "$connect" ] && [ "$disconnected" -gt "$connected" ] &&
    [ "$stopped" -gt "$disconnect" ] && [ "$stopped" -gt "$disconnected" ] &&
    [ "$reattached" -gt "$stopped" ]
}
expect_true "connect pair, then disconnect pair, then the stop, then the re-attach" in_order
rising() {
  local line ms last=0
  while IFS= read -r line; do
    ms=${line#\{\"ms\":}
    ms=${ms%%,*}
    case $ms in '' | *[!0-9]*) return 1 ;; esac
    [ "$ms" -ge "$last" ] || return 1
    last=$ms
  done < "$out"
}
expect_true "the timestamps rise" rising
expect_eq "payload of connect" 0 "$(grep -m1 '"name":"connect"' "$out" > "$lines.one" &&
  json_flatten "$lines.one" | awk -F '\t' '$1 == "payload.status" { print $3 }')"
expect_eq "payload of connected_to_ap" "$CAMERA_IF" "$(grep -m1 '"name":"connected_to_ap"' "$out" > "$lines.one" &&
  json_flatten "$lines.one" | awk -F '\t' '$1 == "payload.ifname" { print $3 }')"
