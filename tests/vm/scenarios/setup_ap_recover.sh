# Scan recovery in access-point mode: "qira-wifi recover ap0 --ap" stops the
# setup access point's hostapd and starts a new one on the same files; the
# new one is ENABLED and the phone joins again.
conf=$QVM_STATE/scenario/network.json
echo '{}' > "$conf"
step "the setup access point, and the phone on it"
setup_ap_up "$conf" || return 1
phone_join "$SETUP_AP_SSID" || return 1
phone_log=$QVM_STATE/scenario/phone-wpa_supplicant.log
expect_eq "phone connections before recovery" 1 "$(grep -c CTRL-EVENT-CONNECTED "$phone_log")"
old_pid=$(pids_named hostapd)
expect_match "one hostapd" '^[0-9]+$' "$old_pid"

step "recover $SETUP_AP_IF --ap"
run_qira_wifi "recover --ap" "recover $SETUP_AP_IF: done" recover "$SETUP_AP_IF" --ap || return 1
new_hostapd() { pid=$(pids_named hostapd) && [ -n "$pid" ] && [ "$pid" != "$old_pid" ]; }
expect_true "a new hostapd" wait_for 10 new_hostapd
expect_true "the old hostapd is gone" wait_for 10 sh -c "! kill -0 $old_pid"
expect_true "the new hostapd ENABLED" wait_for 20 setup_ap_state_is ENABLED
expect_eq "its SSID" "$SETUP_AP_SSID" "$(setup_ap_value 'ssid\[0\]')"
phone_rejoined() { [ "$(grep -c CTRL-EVENT-CONNECTED "$phone_log")" -ge 2 ] && phone_state_is COMPLETED; }
expect_true "the phone joins again" wait_for 30 phone_rejoined
phone_mac=$(in_phone cat "/sys/class/net/$PHONE_IF/address")
expect_true "the new hostapd lists the phone" wait_for 10 sh -c \
  "hostapd_cli -p /var/run/hostapd -i $SETUP_AP_IF all_sta | grep -qx $phone_mac"
