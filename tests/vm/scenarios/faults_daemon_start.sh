# Daemons that will not start. The module starts hostapd and dnsmasq
# detached (the host's runDaemon reports success once the program is
# executed) and runs "wpa_supplicant -B" to completion (its exit status is
# the answer):
#   1. hostapd given a channel the regulatory domain forbids (channel 14,
#      through the hostapd hook): "connect --ap" reports success, as the
#      module's contract makes it (the program did start), hostapd ends at
#      once and says why in its log, dnsmasq runs on;
#   2. dnsmasq with its port (53) taken by another program: "connect --ap"
#      reports success, dnsmasq ends at once, hostapd runs and the phone
#      joins but gets no address;
#   3. wpa_supplicant with a broken file (cut short, as a torn write leaves
#      it): "connect" fails with the module's two lines and no wpa_supplicant
#      is left;
# and after each, the next apply and connect with good settings succeed,
# and no process of the module's is left twice or behind.
ap_conf=$QVM_STATE/scenario/ap.json
sta_conf=$QVM_STATE/scenario/station.json
out=$QVM_STATE/scenario/out
write_setup_ap_config "$ap_conf"
write_station_config "$sta_conf" "$STATION_STATIC_MEMBERS"
count_named() { pids_named "$1" | wc -l; }
gone() { no_process_named "$1"; }

# good_access_point WHAT: apply and connect with good settings; hostapd
# ENABLED, one hostapd and one dnsmasq; the phone joins and is served.
good_access_point() {
  local started
  step "$1: the next apply and connect with good settings"
  started=$(uptime_cs)
  setup_ap_up "$ap_conf" || return 1
  echo "figure: $1: hostapd ENABLED $((($(uptime_cs) - started) * 10)) ms after the good apply began"
  expect_eq "$1: one hostapd" 1 "$(count_named hostapd)"
  expect_eq "$1: one dnsmasq" 1 "$(count_named dnsmasq)"
  stop_pidfile "$QVM_STATE/phone-wpa_supplicant.pid"
  in_phone ip addr flush dev "$PHONE_IF"
  phone_join "$SETUP_AP_SSID" || return 1
  expect_phone_served
  echo "figure: $1: the phone served $((($(uptime_cs) - started) * 10)) ms after the good apply began"
  run_qira_wifi "$1: disconnect --ap" "disconnect $SETUP_AP_IF: done" disconnect "$SETUP_AP_IF" --ap
  stop_pidfile "$QVM_STATE/phone-wpa_supplicant.pid"
  expect_true "$1: no hostapd left" wait_for 10 gone hostapd
  expect_true "$1: no dnsmasq left" wait_for 10 gone dnsmasq
}

command -v qira-wifi > /dev/null || {
  fail "qira-wifi is not in the image (built with --world-only?)"
  return 1
}

step "1. hostapd on channel 14"
run_qira_wifi "apply --ap" "apply $SETUP_AP_IF: done" apply "$SETUP_AP_IF" "$QVM_STATE/scenario/ap.json" --ap
run_qira_wifi "hook channel=14" "hook $SETUP_AP_IF: done" hook "$SETUP_AP_IF" channel=14 \
  --address "$SETUP_AP_ADDRESS"
expect_eq "/etc/hostapd.conf channel" channel=14 "$(grep '^channel=' /etc/hostapd.conf)"
run_qira_wifi "connect --ap (hostapd started)" "connect $SETUP_AP_IF: done" connect "$SETUP_AP_IF" --ap
expect_true "hostapd ended by itself" wait_for 20 gone hostapd
hostapd_reason='Could not select hw_mode and channel'
grep -E "channel|$hostapd_reason" /var/log/hostapd.log | tail -4
expect_true "hostapd's log says why: $hostapd_reason" grep -q "$hostapd_reason" /var/log/hostapd.log
expect_eq "dnsmasq runs on" 1 "$(count_named dnsmasq)"
good_access_point "after channel 14" || return 1

step "2. dnsmasq with port 53 taken"
ln -sf /usr/bin/dnsmasq "$QVM_WORLD_BIN/port-taker"
"$QVM_WORLD_BIN/port-taker" --keep-in-foreground --conf-file=/dev/null --port=53 --user=root \
  --group=root --no-resolv --pid-file= > "$QVM_STATE/scenario/port-taker.log" 2>&1 &
echo $! > "$QVM_STATE/port-taker.pid"
port_taken() { netstat -lnu 2> /dev/null | grep -q '0\.0\.0\.0:53 '; }
expect_true "port 53 taken" wait_for 10 port_taken
messages_before=$(wc -l < /var/log/messages)
setup_ap_up "$ap_conf" || return 1
expect_true "dnsmasq ended by itself" wait_for 20 gone dnsmasq
# It says why on syslog, before it reads its log file option.
dnsmasq_reason='failed to create listening socket for port 53: Address already in use'
new_messages() { tail -n "+$((messages_before + 1))" /var/log/messages; }
dnsmasq_said_why() { new_messages | grep -q "dnsmasq.*$dnsmasq_reason"; }
expect_true "dnsmasq says why on syslog: $dnsmasq_reason" wait_for 10 dnsmasq_said_why
new_messages | grep 'crit.*dnsmasq'
expect_eq "hostapd runs" 1 "$(count_named hostapd)"
stop_pidfile "$QVM_STATE/phone-wpa_supplicant.pid"
in_phone ip addr flush dev "$PHONE_IF"
phone_join "$SETUP_AP_SSID" || return 1
no_lease() {
  ! in_phone udhcpc -i "$PHONE_IF" -n -q -t 3 -T 1 -A 1 -s "$QVM_DIR/udhcpc.sh" > /dev/null 2>&1
}
expect_true "the phone gets no address" no_lease
stop_pidfile "$QVM_STATE/port-taker.pid"
good_access_point "after port 53 was freed" || return 1

step "3. wpa_supplicant with a broken file"
run_qira_wifi "apply $CAMERA_IF" "apply $CAMERA_IF: done" apply "$CAMERA_IF" "$sta_conf"
head -c 60 /etc/wlan0.conf > "$QVM_STATE/scenario/torn" && cat "$QVM_STATE/scenario/torn" > /etc/wlan0.conf
qira-wifi --json connect "$CAMERA_IF" > "$out" 2>&1
status=$?
cat "$out"
json_flatten "$out" > "$out.flat"
expect_eq "connect with a broken file: exit status" 3 "$status"
expect_eq "connect with a broken file: the module's lines" \
  "Failed to run wpa_supplicant;Failed to execute wpa_supplicant;" \
  "$(awk -F '\t' '$1 ~ /^log\.[0-9]+\.message$/ { print $3 }' "$out.flat" | tr '\n' ';')"
expect_true "no wpa_supplicant left" wait_for 10 gone wpa_supplicant
step "after the broken file: the next apply and connect"
started=$(uptime_cs)
run_qira_wifi "apply $CAMERA_IF" "apply $CAMERA_IF: done" apply "$CAMERA_IF" "$sta_conf"
run_qira_wifi "connect $CAMERA_IF" "connect $CAMERA_IF: done" connect "$CAMERA_IF" || return 1
expect_eq "one wpa_supplicant" 1 "$(count_named wpa_supplicant)"
wait_associated "$CAMERA_IF" 60 || return 1
echo "figure: after the broken file: associated $((($(uptime_cs) - started) * 10)) ms after the good apply began"
expect_true "ping $HOME_WPA2_ADDRESS over the air" ping -c 1 -W 5 "$HOME_WPA2_ADDRESS"
