# "qira-wifi disconnect ap0 --ap" takes the setup access point down: hostapd,
# dnsmasq and every udhcpc stopped (by name, in the whole system: the phone
# keeps a DHCP client running here, and it ends too), the interface deleted,
# the phone left without its network; the home networks keep running.
conf=$QVM_STATE/scenario/network.json
echo '{}' > "$conf"
step "the setup access point, and the phone on it with a DHCP client running"
setup_ap_up "$conf" || return 1
phone_join "$SETUP_AP_SSID" || return 1
in_phone udhcpc -f -i "$PHONE_IF" -t 10 -T 1 -A 1 -s "$QVM_DIR/udhcpc.sh" \
  > "$QVM_STATE/scenario/udhcpc-phone.log" 2>&1 &
expect_match "running before: hostapd" '^[0-9]+$' "$(pids_named hostapd)"
expect_match "running before: dnsmasq" '^[0-9]+$' "$(pids_named dnsmasq)"
udhcpc_running() { ! no_process_named udhcpc; }
expect_true "running before: udhcpc" wait_for 10 udhcpc_running

step "disconnect $SETUP_AP_IF --ap"
run_qira_wifi "disconnect --ap" "disconnect $SETUP_AP_IF: done" disconnect "$SETUP_AP_IF" --ap || return 1
expect_true "$SETUP_AP_IF deleted" test ! -e "/sys/class/net/$SETUP_AP_IF"
expect_true "no hostapd left" wait_for 10 no_process_named hostapd
expect_true "no dnsmasq left" wait_for 10 no_process_named dnsmasq
expect_true "no udhcpc left" wait_for 10 no_process_named udhcpc
phone_lost() { ! phone_state_is COMPLETED; }
expect_true "the phone lost the network" wait_for 10 phone_lost
expect_true "home AP $HOME_OPEN_SSID still enabled" hostapd_enabled "$HOME_OPEN_IF"
expect_true "home AP $HOME_WPA2_SSID still enabled" hostapd_enabled "$HOME_WPA2_IF"
expect_true "home dnsmasq still running" kill -0 "$(cat "$QVM_HOME/dnsmasq.pid")"
