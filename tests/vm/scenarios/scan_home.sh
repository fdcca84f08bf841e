# A scan of the home networks through the module: "qira-wifi --json scan
# wlan1" finds HomeOpen (open, channel 1) and HomeWPA2 (WPA2-PSK, channel 6)
# with their channels, frequencies, band and security, in the ranking's
# order, and agrees with "iw dev wlan1 scan dump" (after a trigger whose end
# "iw event" reported) on every BSSID, SSID, frequency and signal in dBm (in
# its JSON and in the table it prints); a second results
# call for the same scan delivers nothing; a scan cut short by taking the
# interface down reports aborted; and with the camera's setup access point
# up, the results call of an aborted scan in access-point mode restarts
# hostapd.
scan=$QVM_STATE/scenario/scan
ip link set "$SPARE_IF" up

# ap_field FLAT SSID FIELD: FIELD of the access point named SSID.
ap_field() {
  awk -F '\t' -v s="$2" -v f="$3" '
    $1 ~ /^access_points\.[0-9]+\.ssid$/ && $3 == s { split($1, p, "."); found = p[2] }
    { value[$1] = $3 }
    END { if (found != "") print value["access_points." found "." f] }' "$1"
}
# ap_position FLAT SSID: the access point's index in the ranked list.
ap_position() {
  awk -F '\t' -v s="$2" '$1 ~ /^access_points\.[0-9]+\.ssid$/ && $3 == s { split($1, p, "."); print p[2]; exit }' "$1"
}
# qira_scan NAME ARGS...: runs "qira-wifi --json --verbose ARGS..." (a full-band
# scan takes 3 to 15 s under emulation, so it may wait 30 s), keeps its
# output in $scan.NAME.json (flattened in $scan.NAME) and its log in
# $scan.NAME.stderr; answers its exit status.
qira_scan() {
  local name=$1 status
  shift
  echo "camera# qira-wifi --json $*"
  qira-wifi --json --verbose --timeout 30000 "$@" > "$scan.$name.json" 2> "$scan.$name.stderr"
  status=$?
  cat "$scan.$name.json"
  sed 's/^/  log: /' "$scan.$name.stderr"
  json_flatten "$scan.$name.json" > "$scan.$name" || fail "qira-wifi $* printed JSON that does not parse"
  return "$status"
}

step "the module scans $SPARE_IF, and asks for the same scan's results again"
qira_scan home --again scan "$SPARE_IF"
expect_eq "scan exit status" 0 "$?"
flat=$scan.home
expect_eq "ifname" "$SPARE_IF" "$(json_get "$flat" ifname)"
expect_eq "aborted" false "$(json_kind "$flat" aborted)"
expect_eq "access points found" 2 "$(json_count "$flat" access_points)"
for ap in "$HOME_OPEN_SSID $HOME_OPEN_IF $HOME_OPEN_CHANNEL $HOME_OPEN_FREQ open" \
  "$HOME_WPA2_SSID $HOME_WPA2_IF $HOME_WPA2_CHANNEL $HOME_WPA2_FREQ WPA2"; do
  set -- $ap
  expect_eq "$1 bssid" "$(in_home cat "/sys/class/net/$2/address")" "$(ap_field "$flat" "$1" bssid)"
  expect_eq "$1 channel" "$3" "$(ap_field "$flat" "$1" channel)"
  expect_eq "$1 frequency" "$4" "$(ap_field "$flat" "$1" frequency)"
  expect_eq "$1 band" "2.4 GHz" "$(ap_field "$flat" "$1" band)"
  expect_eq "$1 security" "$5" "$(ap_field "$flat" "$1" security)"
done
# The ranking puts a WPA2 network ahead of every network without WPA2,
# whatever their signals: HomeWPA2 first, then HomeOpen.
expect_eq "ranked order (WPA2 before open)" "0 1" \
  "$(ap_position "$flat" "$HOME_WPA2_SSID") $(ap_position "$flat" "$HOME_OPEN_SSID")"
# A scan's results are handed out once: the second call's answer is empty.
expect_true "second results call delivers nothing" grep -q '"again": \[\]' "$scan.home.json"

step "iw's own scan of $SPARE_IF: trigger, the end reported by iw event, dump"
listen_spare_events || return 1
ended=$(spare_event_count 'scan finished')
iw dev "$SPARE_IF" scan trigger
expect_true "iw event reports the end of the scan" wait_for 30 spare_event_count_above 'scan finished' "$ended"
stop_pidfile "$QVM_STATE/scan-iw-event.pid"
cat "$SPARE_EVENTS"
iw dev "$SPARE_IF" scan dump > "$scan.iw"
grep -E '^BSS|SSID|freq|signal' "$scan.iw"
# "BSSID SSID FREQUENCY SIGNAL" lines, sorted, from each side; iw's signal
# ("-30.00 dBm") cut to whole dBm, as the module's mBm figure is.
iw_view() {
  awk '/^BSS / { if (b != "") print b, s, f, g; b = substr($2, 1, 17); s = ""; f = ""; g = "" }
    /^[[:space:]]+freq:/ { f = $2; sub(/\..*/, "", f) }
    /^[[:space:]]+SSID:/ { s = $2 }
    /^[[:space:]]+signal:/ { g = $2; sub(/\..*/, "", g) }
    END { if (b != "") print b, s, f, g }' "$scan.iw" | sort
}
module_view() {
  awk -F '\t' '$1 ~ /^access_points\.[0-9]+\./ { split($1, p, "."); v[p[2], p[3]] = $3; n[p[2]] = 1 }
    END { for (i in n) print v[i, "bssid"], v[i, "ssid"], v[i, "frequency"], v[i, "signal"] }' \
    "$flat" | sort
}
echo "iw:     $(iw_view | tr '\n' ';')"
echo "module: $(module_view | tr '\n' ';')"
expect_eq "iw and the module agree on BSSID, SSID, frequency and signal (dBm)" "$(iw_view)" \
  "$(module_view)"
# The byte beside the dBm is the record's own: dBm + 256.
for bssid in $(iw_view | cut -d' ' -f1); do
  dbm=$(iw_view | awk -v b="$bssid" '$1 == b { print $4 }')
  ssid=$(iw_view | awk -v b="$bssid" '$1 == b { print $2 }')
  expect_eq "$ssid signal_raw" "$((dbm + 256))" "$(ap_field "$flat" "$ssid" signal_raw)"
done

step "the table qira-wifi scan prints shows the same signal in dBm"
echo "camera# qira-wifi scan $SPARE_IF"
qira-wifi --timeout 30000 scan "$SPARE_IF" > "$scan.table" 2> "$scan.table.stderr"
expect_eq "text scan exit status" 0 "$?"
cat "$scan.table" "$scan.table.stderr"
expect_eq "table header" "BSSID              SSID     CHANNEL FREQUENCY BAND       SIGNAL SECURITY" \
  "$(head -1 "$scan.table")"
# "BSSID SIGNAL" from the table: the number before "dBm".
table_view() {
  awk 'NR > 1 { for (i = 2; i <= NF; i++) if ($i == "dBm") print $1, $(i - 1) }' "$scan.table" | sort
}
expect_eq "the table's dBm, as iw says" "$(iw_view | awk '{ print $1, $4 }')" "$(table_view)"

step "a scan cut short: $SPARE_IF goes down while it runs"
listen_spare_events || return 1
started=$(spare_event_count 'scan started')
qira_scan aborted scan "$SPARE_IF" &
scan_pid=$!
expect_true "the module's scan started" wait_for 30 spare_event_count_above 'scan started' "$started"
ip link set "$SPARE_IF" down
# qira-wifi ends on its own: the abort, or its own 30 s limit.
wait "$scan_pid"
expect_eq "aborted scan: exit status" 0 "$?"
expect_true "iw event reports the abort" wait_for 10 spare_event_count_above 'scan aborted' 0
stop_pidfile "$QVM_STATE/scan-iw-event.pid"
cat "$SPARE_EVENTS"
expect_eq "aborted scan: aborted" true "$(json_kind "$scan.aborted" aborted)"
expect_true "aborted scan: the module logged the abort" grep -q "Scan was aborted$" "$scan.aborted.stderr"

step "access-point mode: an aborted scan's results call restarts the setup access point's hostapd"
conf=$QVM_STATE/scenario/network.json
cat > "$conf" << JSON
{"dhcp": {"fallbackIP": "$SETUP_AP_ADDRESS", "fallbackNetmask": "255.255.255.0"}}
JSON
setup_ap_up "$conf" || return 1
hostapd_before=$(pids_named hostapd)
expect_match "one hostapd before the scan" '^[0-9]+$' "$hostapd_before"
# The spare radio scans (a radio that beacons refuses an ordinary scan); the
# abort comes from nl80211's own abort request.
ip link set "$SPARE_IF" up
listen_spare_events || return 1
started=$(spare_event_count 'scan started')
qira_scan ap --ap scan "$SPARE_IF" &
scan_pid=$!
expect_true "the module's scan started" wait_for 30 spare_event_count_above 'scan started' "$started"
iw dev "$SPARE_IF" scan abort
wait "$scan_pid"
expect_eq "access-point mode: exit status" 0 "$?"
stop_pidfile "$QVM_STATE/scan-iw-event.pid"
expect_eq "access-point mode: aborted" true "$(json_kind "$scan.ap" aborted)"
expect_true "access-point mode: the module tried to recover" \
  grep -q "Scan was aborted: results may be incomplete or missing. Try to recover$" "$scan.ap.stderr"
no_old_hostapd() { ! kill -0 "$hostapd_before" 2> /dev/null; }
expect_true "the old hostapd is gone" wait_for 10 no_old_hostapd
expect_true "hostapd ENABLED again" wait_for 20 setup_ap_state_is ENABLED
hostapd_after=$(pids_named hostapd)
expect_match "one hostapd after the scan" '^[0-9]+$' "$hostapd_after"
expect_true "hostapd has a new pid ($hostapd_before -> $hostapd_after)" \
  test "$hostapd_before" != "$hostapd_after"
expect_eq "restarted hostapd command line" "/bin/hostapd -B -d -f /var/log/hostapd.log /etc/hostapd.conf" \
  "$(tr '\0' ' ' < "/proc/$hostapd_after/cmdline" | sed 's/ $//')"
