# The interface disappears under the module, as when a driver removes and
# re-creates it after a firmware hiccup. One long-lived host (qira-vm-host)
# holds the module, subscribed to its events, for the whole scenario:
#   1. the spare radio's interface deleted ("iw dev wlan1 del") during a scan
#      the module triggered: the scan ends, aborted, and nothing waits;
#   2. every query on the vanished interface fails with its log line;
#   3. the interface created again ("iw phy PHY interface add wlan1"):
#      queries, events and a new scan work, the module not initialised again;
#   4. deleted and created again while the event module is subscribed and no
#      scan runs: both notifications reach the host, and a scan works after.
# "figure:" lines give the times from the interface's return to the module
# working again.
. "$QVM_DIR/camera_host.sh"
phy=$(cat "/sys/class/net/$SPARE_IF/phy80211/name")
answer=$QVM_STATE/scenario/answer
on_reset "[ -e /sys/class/net/$SPARE_IF ] || iw phy $phy interface add $SPARE_IF type managed"

# events_named NAME: how many events of that name the host printed.
events_named() { grep -c "^event [0-9]* [a-z_]* {.*\"eventName\":\"$1\"" "$HOST_OUT"; }
has_events_named() { [ "$(events_named "$1")" -ge "$2" ]; }
# scan_ssids: the SSIDs of the last answer's records, sorted, one line.
answer_ssids() { sed -n 's/^bss [^ ]* //p' "$answer" | sort | tr '\n' ' '; }
# recreate: the spare radio's interface back, up.
recreate() {
  iw phy "$phy" interface add "$SPARE_IF" type managed &&
    ip link set "$SPARE_IF" up
}
# expect_scan_works WHAT: a scan through the host ends, not aborted, with
# both home networks.
expect_scan_works() {
  host_call 40 scan "$SPARE_IF" 30000 > "$answer"
  expect_eq "$1: scan answer" ok "$(sed -n 's/^end //p' "$answer")"
  expect_match "$1: the scan ended, not aborted" '^scan ended finished=1 aborted=0 ' \
    "$(grep '^scan ended' "$answer")"
  expect_eq "$1: the home networks found" "$HOME_OPEN_SSID $HOME_WPA2_SSID " "$(answer_ssids)"
}

ip link set "$SPARE_IF" up
listen_spare_events || return 1
host_start || return 1
host_call 10 events on > "$answer"
expect_eq "events on" ok "$(sed -n 's/^end //p' "$answer")"
resources_before=$(host_resources "$HOST_PID")

step "1. $SPARE_IF deleted during a scan that the module triggered"
started_scans=$(spare_event_count 'scan started')
id=$(host_send scan "$SPARE_IF" 30000)
expect_true "the kernel started the module's scan" wait_for 20 spare_event_count_above 'scan started' "$started_scans"
deleted=$(uptime_cs)
iw dev "$SPARE_IF" del
expect_true "qira-vm-host answered the scan within 40 s" wait_for 40 host_ended "$id"
echo "figure: the scan ended $(((($(uptime_cs) - deleted)) * 10)) ms after the deletion"
host_answer "$id" > "$answer"
cat "$answer"
expect_match "the scan ended aborted" '^scan ended finished=1 aborted=1 ' "$(grep '^scan ' "$answer" | tail -1)"

step "2. every query on the vanished $SPARE_IF fails with its line"
host_call 20 info "$SPARE_IF" > "$answer"
cat "$answer"
for query in essid:8B1B bssid:8B15 freq:8B05 channel:8B05 bitrate:8B21 txpower:8B27 \
  quality:8B0F quality_max:8B0B signal_level:8B0F wireless_mode:8B07; do
  name=${query%:*}
  expect_eq "$name on the vanished interface" \
    "query $name failed;log 3 19 do_ioctl: netlib: ioctl(${query#*:}) failed;" \
    "$(sed -n "/^query $name /{p;n;/^log /p}" "$answer" | tr '\n' ';')"
done
expect_eq "noise_level answers without the interface" "query noise_level ok -96" \
  "$(grep '^query noise_level ' "$answer")"

step "3. $SPARE_IF created again: queries, events and a scan without a new module"
recreated=$(uptime_cs)
recreate || fail "cannot create $SPARE_IF again on $phy"
host_call 20 info "$SPARE_IF" > "$answer"
echo "figure: queries answer again $(((($(uptime_cs) - recreated)) * 10)) ms after the interface's return"
expect_eq "wireless_mode of the new $SPARE_IF" "query wireless_mode ok 2 (managed)" \
  "$(grep '^query wireless_mode ' "$answer")"
expect_eq "txpower of the new $SPARE_IF" "query txpower ok 20" "$(grep '^query txpower ' "$answer")"
expect_true "new_interface reached the host" wait_for 10 has_events_named new_interface 1
expect_scan_works "after the return"
echo "figure: a scan worked again $(((($(uptime_cs) - recreated)) * 10)) ms after the interface's return"
expect_true "the scan's notifications reached the host" has_events_named new_scan_results 1

step "4. deleted and created again while the host listens for events"
deletions=$(events_named del_interface)
creations=$(events_named new_interface)
iw dev "$SPARE_IF" del
expect_true "del_interface reached the host" wait_for 10 has_events_named del_interface $((deletions + 1))
recreate || fail "cannot create $SPARE_IF again on $phy"
expect_true "new_interface reached the host" wait_for 10 has_events_named new_interface $((creations + 1))
expect_scan_works "after the second return"

step "the host's descriptors and memory"
resources_after=$(host_resources "$HOST_PID")
echo "figure: qira-vm-host RSS kB and descriptors: before $resources_before, after $resources_after"
expect_eq "the host's descriptors" "${resources_before#* }" "${resources_after#* }"
host_stop
stop_pidfile "$QVM_STATE/scan-iw-event.pid"
