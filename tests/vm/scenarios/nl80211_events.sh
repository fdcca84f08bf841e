# nl80211 events from the real kernel: "qira-wifi --json events" and
# "iw event -t" listen side by side while the camera scans on wlan1, changes
# the regulatory domain, joins the home WPA2 network on wlan0 and leaves it.
# For each action the module's events come in the kernel's order, and each
# event's whole line is the one that iw's report of the same notification
# implies (interface, radio, addresses, country, status, reason).
#
# One read of the module's socket hands the subscribers only the last
# notification in it. The kernel sends every nl80211 notification as a
# datagram of its own and qira-wifi services the module whenever its socket
# is readable, so none is lost; still, nothing here depends on what else the
# kernel says in between (wpa_supplicant's own scans, its P2P device, frame
# status reports): each action's events are looked for in order after the
# action began, as a subsequence, and then compared whole.
dir=$QVM_STATE/scenario
events=$dir/events.out
iw_events=$dir/iw-event.txt

# qira_find AFTER NAME IFNAME: the number of the first line after line AFTER
# of qira-wifi's output that is event NAME of interface IFNAME ("" for the
# events of no interface).
qira_find() {
  awk -v after="$1" -v name="{\"name\":\"$2\"," -v ifname="\"ifname\":\"$3\"" \
    'NR > after && index($0, name) == 1 && index($0, ifname) { print NR; exit }' "$events"
}
# iw_find AFTER REGEX: the same in iw's output, for the first line matching
# the extended REGEX.
iw_find() {
  awk -v after="$1" -v pattern="$2" 'NR > after && $0 ~ pattern { print NR; exit }' "$iw_events"
}
# qira_sequence AFTER IFNAME NAME... / iw_sequence AFTER REGEX...: the line
# numbers of the events in the order given, each the first match after the
# one before; fails when one is missing.
qira_sequence() {
  local at=$1 ifname=$2 name lines=
  shift 2
  for name in "$@"; do
    at=$(qira_find "$at" "$name" "$ifname")
    [ -n "$at" ] || return 1
    lines="$lines $at"
  done
  echo $lines
}
iw_sequence() {
  local at=$1 pattern lines=
  shift
  for pattern in "$@"; do
    at=$(iw_find "$at" "$pattern")
    [ -n "$at" ] || return 1
    lines="$lines $at"
  done
  echo $lines
}
line_of() { sed -n "$2p" "$1"; } # line_of FILE NUMBER
# iw_text LINE: an iw line without its time stamp.
iw_text() { line_of "$iw_events" "$1" | sed 's/^[0-9.]*: //'; }
marks() { qira_mark=$(wc -l < "$events"); iw_mark=$(wc -l < "$iw_events"); }

step "qira-wifi and iw listen for nl80211 events"
start_event_listeners "$dir" || return 1
joined=0
mask=$((0x$EVENT_GROUPS))
while [ "$mask" -ne 0 ]; do
  joined=$((joined + (mask & 1)))
  mask=$((mask >> 1))
done
expect_eq "nl80211 groups joined by the module (config, scan, regulatory, mlme)" 4 "$joined"

# ------------------------------------------------------------------ scan
step "a scan on $SPARE_IF"
ip link set "$SPARE_IF" up
spare_index=$(cat "/sys/class/net/$SPARE_IF/ifindex")
spare_phy=$(cat "/sys/class/net/$SPARE_IF/phy80211/index")
spare_wdev=$(printf '%d' "$(iw dev "$SPARE_IF" info | sed -n 's/^[[:space:]]*wdev //p')")
marks
iw dev "$SPARE_IF" scan trigger freq "$HOME_OPEN_FREQ" "$HOME_WPA2_FREQ" || fail "iw scan trigger on $SPARE_IF failed"
wait_for 30 qira_sequence "$qira_mark" "$SPARE_IF" trigger_scan new_scan_results &&
  wait_for 10 iw_sequence "$iw_mark" ": $SPARE_IF [(]phy #[0-9]+[)]: scan started" \
    ": $SPARE_IF [(]phy #[0-9]+[)]: scan finished"
set -- $(qira_sequence "$qira_mark" "$SPARE_IF" trigger_scan new_scan_results)
expect_eq "the module's scan events of $SPARE_IF" 2 "$#"
qira_started=$(line_of "$events" "${1:-0}") qira_finished=$(line_of "$events" "${2:-0}")
set -- $(iw_sequence "$iw_mark" ": $SPARE_IF [(]phy #[0-9]+[)]: scan started" \
  ": $SPARE_IF [(]phy #[0-9]+[)]: scan finished")
expect_eq "iw's scan events of $SPARE_IF" 2 "$#"
iw_started=$(iw_text "${1:-0}") iw_finished=$(iw_text "${2:-0}")
echo "iw: $iw_started"
echo "iw: $iw_finished"
iw_phy=$(echo "$iw_started" | sed -n 's/^[^ ]* (phy #\([0-9]*\)): scan started$/\1/p')
expect_eq "iw: radio of the scan" "$spare_phy" "$iw_phy"
expect_eq "iw: the scan finished on the same radio" "$SPARE_IF (phy #$iw_phy): scan finished" \
  "$(echo "$iw_finished" | sed -n 's/^\(.*: scan finished\)[:,].*/\1/p')"
scan_payload() { # scan_payload ID NAME
  echo "{\"eventId\":$1,\"eventName\":\"$2\",\"ifindex\":$spare_index,\"ifname\":\"$SPARE_IF\",\"wdev\":$spare_wdev,\"wiphy\":$iw_phy}"
}
expect_eq "trigger_scan event" \
  "{\"name\":\"trigger_scan\",\"payload\":$(scan_payload 33 trigger_scan),\"type\":8}" "$qira_started"
expect_eq "new_scan_results event" \
  "{\"name\":\"new_scan_results\",\"payload\":$(scan_payload 34 new_scan_results),\"type\":9}" \
  "$qira_finished"

# ------------------------------------------------------------------ regulatory domain
# reg_change_matches COUNTRY-TEXT: the first regulatory change of both
# outputs after the marks, compared (iw: "set to DE by a user request" or
# "set to world roaming by a user request").
reg_change_matches() {
  local domain=$1 qira_line iw_line expected_line set_to by
  wait_for 20 qira_sequence "$qira_mark" "" reg_change &&
    wait_for 10 iw_sequence "$iw_mark" ": regulatory domain change: "
  set -- $(qira_sequence "$qira_mark" "" reg_change)
  qira_line=$(line_of "$events" "${1:-0}")
  set -- $(iw_sequence "$iw_mark" ": regulatory domain change: ")
  iw_line=$(iw_text "${1:-0}")
  echo "iw: $iw_line"
  set_to=$(echo "$iw_line" | sed -n 's/^regulatory domain change: set to \(.*\) by \(.*\) request$/\1/p')
  by=$(echo "$iw_line" | sed -n 's/^regulatory domain change: set to \(.*\) by \(.*\) request$/\2/p')
  expect_eq "iw: the domain set" "$domain" "$set_to"
  expect_eq "iw: who set it" "a user" "$by"
  case $set_to in
    "world roaming") expected_line="{\"name\":\"reg_change\",\"payload\":{\"eventId\":36,\"eventName\":\"reg_change\",\"ifindex\":-1,\"ifname\":\"\",\"regdom_type\":\"world_roaming\",\"requestBy\":\"$by\"},\"type\":12}" ;;
    *) expected_line="{\"name\":\"reg_change\",\"payload\":{\"country\":\"$set_to\",\"eventId\":36,\"eventName\":\"reg_change\",\"ifindex\":-1,\"ifname\":\"\",\"regdom_type\":\"country\",\"requestBy\":\"$by\"},\"type\":12}" ;;
  esac
  expect_eq "reg_change event ($domain)" "$expected_line" "$qira_line"
}
step "the regulatory domain set to DE"
marks
iw reg set DE || fail "iw reg set DE failed"
reg_change_matches DE

# ------------------------------------------------------------------ association
step "$CAMERA_IF joins $HOME_WPA2_SSID"
camera_index=$(cat "/sys/class/net/$CAMERA_IF/ifindex")
camera_phy=$(cat "/sys/class/net/$CAMERA_IF/phy80211/index")
camera_address=$(cat "/sys/class/net/$CAMERA_IF/address")
ap_address=$(in_home cat "/sys/class/net/$HOME_WPA2_IF/address")
conf=$dir/wpa.conf
home_wpa2_conf "$conf"
marks
start_wpa_supplicant "$CAMERA_IF" "$conf" || return 1
wait_associated "$CAMERA_IF" 30 || return 1
camera_iw="^[0-9.]+: $CAMERA_IF [(]phy #$camera_phy[)]: "
wait_for 10 qira_sequence "$qira_mark" "$CAMERA_IF" authenticate associate connect &&
  wait_for 10 iw_sequence "$iw_mark" "${camera_iw}auth " "${camera_iw}assoc " "${camera_iw}connected to "
set -- $(qira_sequence "$qira_mark" "$CAMERA_IF" authenticate associate connect)
expect_eq "the module's association events of $CAMERA_IF" 3 "$#"
qira_auth=$(line_of "$events" "${1:-0}") qira_assoc=$(line_of "$events" "${2:-0}")
qira_connect=$(line_of "$events" "${3:-0}")
set -- $(iw_sequence "$iw_mark" "${camera_iw}auth " "${camera_iw}assoc " "${camera_iw}connected to ")
expect_eq "iw's association events of $CAMERA_IF" 3 "$#"
iw_auth=$(iw_text "${1:-0}") iw_assoc=$(iw_text "${2:-0}") iw_connect=$(iw_text "${3:-0}")
# "wlan0 (phy #0): auth FROM -> TO status: 0: Successful": the frame's
# sender and receiver, its status code and text.
frame_fields() { # frame_fields IW-TEXT KIND
  frame_from=$(echo "$1" | sed -n "s/^.*: $2 \\([0-9a-f:]*\\) -> .*/\\1/p")
  frame_to=$(echo "$1" | sed -n "s/^.*: $2 [0-9a-f:]* -> \\([0-9a-f:]*\\) .*/\\1/p")
  frame_status=$(echo "$1" | sed -n 's/^.* status: \([0-9]*\): .*/\1/p')
  frame_text=$(echo "$1" | sed -n 's/^.* status: [0-9]*: //p')
  expect_eq "iw: $2 from" "$ap_address" "$frame_from"
  expect_eq "iw: $2 to" "$camera_address" "$frame_to"
  expect_eq "iw: $2 status" 0 "$frame_status"
}
frame_payload() { # frame_payload ID NAME
  echo "{\"eventId\":$1,\"eventName\":\"$2\",\"from\":\"$frame_from\",\"ifindex\":$camera_index,\"ifname\":\"$CAMERA_IF\",\"status\":$frame_status,\"status_str\":\"$frame_text\",\"to\":\"$frame_to\",\"wiphy\":$camera_phy}"
}
echo "iw: $iw_auth"
echo "iw: $iw_assoc"
echo "iw: $iw_connect"
frame_fields "$iw_auth" auth
expect_eq "authenticate event" \
  "{\"name\":\"authenticate\",\"payload\":$(frame_payload 37 authenticate),\"type\":17}" \
  "$qira_auth"
frame_fields "$iw_assoc" assoc
expect_eq "associate event" \
  "{\"name\":\"associate\",\"payload\":$(frame_payload 38 associate),\"type\":18}" \
  "$qira_assoc"
bssid=${iw_connect##*connected to }
expect_eq "iw: connected to $HOME_WPA2_IF's address" "$ap_address" "$bssid"
expect_eq "connect event" \
  "{\"name\":\"connect\",\"payload\":{\"eventId\":46,\"eventName\":\"connect\",\"ifindex\":$camera_index,\"ifname\":\"$CAMERA_IF\",\"mac\":\"$bssid\",\"status\":0,\"status_str\":\"connected\",\"wiphy\":$camera_phy},\"type\":23}" \
  "$qira_connect"

# ------------------------------------------------------------------ disconnection
step "wpa_supplicant disconnects $CAMERA_IF"
marks
expect_eq "wpa_cli disconnect" OK "$(wpa_cli -i "$CAMERA_IF" disconnect)"
wait_for 10 qira_sequence "$qira_mark" "$CAMERA_IF" deauthenticate disconnect &&
  wait_for 10 iw_sequence "$iw_mark" "${camera_iw}deauth " "${camera_iw}disconnected "
set -- $(qira_sequence "$qira_mark" "$CAMERA_IF" deauthenticate disconnect)
expect_eq "the module's disconnection events of $CAMERA_IF" 2 "$#"
qira_deauth=$(line_of "$events" "${1:-0}") qira_disconnect=$(line_of "$events" "${2:-0}")
set -- $(iw_sequence "$iw_mark" "${camera_iw}deauth " "${camera_iw}disconnected ")
expect_eq "iw's disconnection events of $CAMERA_IF" 2 "$#"
iw_deauth=$(iw_text "${1:-0}") iw_disconnect=$(iw_text "${2:-0}")
echo "iw: $iw_deauth"
echo "iw: $iw_disconnect"
# "wlan0 (phy #0): deauth FROM -> TO reason 3: TEXT" (sent by the camera)
deauth_from=$(echo "$iw_deauth" | sed -n 's/^.*: deauth \([0-9a-f:]*\) -> .*/\1/p')
deauth_to=$(echo "$iw_deauth" | sed -n 's/^.*: deauth [0-9a-f:]* -> \([0-9a-f:]*\) .*/\1/p')
deauth_reason=$(echo "$iw_deauth" | sed -n 's/^.* reason \([0-9]*\): .*/\1/p')
deauth_text=$(echo "$iw_deauth" | sed -n 's/^.* reason [0-9]*: //p')
expect_eq "iw: deauthentication from" "$camera_address" "$deauth_from"
expect_eq "iw: deauthentication to" "$ap_address" "$deauth_to"
expect_eq "iw: deauthentication reason" 3 "$deauth_reason"
expect_eq "deauthenticate event" \
  "{\"name\":\"deauthenticate\",\"payload\":{\"eventId\":39,\"eventName\":\"deauthenticate\",\"from\":\"$deauth_from\",\"ifindex\":$camera_index,\"ifname\":\"$CAMERA_IF\",\"reason\":$deauth_reason,\"reason_str\":\"$deauth_text\",\"to\":\"$deauth_to\",\"wiphy\":$camera_phy},\"type\":19}" \
  "$qira_deauth"
# "wlan0 (phy #0): disconnected (local request) reason: 3: TEXT"
by=$(echo "$iw_disconnect" | sed -n 's/^.*: disconnected (\([^)]*\)).*/\1/p')
expect_eq "iw: disconnected by" "local request" "$by"
reason_text=$(echo "$iw_disconnect" | sed -n 's/^.* reason: [0-9]*: //p')
expect_eq "iw: disconnection reason" "$deauth_text" "$reason_text"
expect_eq "disconnect event" \
  "{\"name\":\"disconnect\",\"payload\":{\"by\":\"Local request\",\"eventId\":48,\"eventName\":\"disconnect\",\"ifindex\":$camera_index,\"ifname\":\"$CAMERA_IF\",\"reason\":\"$reason_text\",\"wiphy\":$camera_phy},\"type\":24}" \
  "$qira_disconnect"

# ------------------------------------------------------------------ back to the world's domain
step "the regulatory domain back to the world's (00)"
marks
iw reg set 00 || fail "iw reg set 00 failed"
reg_change_matches "world roaming"
wait_for 10 sh -c 'iw reg get | grep -q "^country 00:"' || fail "the world's domain is not back"

step "qira-wifi ends on SIGTERM"
qira_pid=$(cat "$QVM_STATE/qira-events.pid")
rm -f "$QVM_STATE/qira-events.pid"
kill -TERM "$qira_pid"
wait "$qira_pid"
# 130: ended by a signal, as --help lists it.
expect_eq "qira-wifi events exit status after SIGTERM" 130 "$?"
expect_eq "qira-wifi events stderr" "qira-wifi: listening for nl80211 events" "$(cat "$dir/events.err")"
stop_pidfile "$QVM_STATE/iw-event.pid"
echo "# every event the module printed:"
cat "$events"
