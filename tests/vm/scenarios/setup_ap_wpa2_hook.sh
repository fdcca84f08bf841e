# A WPA2 setup access point through the hostapd hook: "qira-wifi hook ap0"
# with key=value overrides has the module write hostapd's file with the
# hook's settings added to its own and create the interface; "connect --ap"
# starts hostapd and dnsmasq on it; a wrong passphrase fails the phone's
# handshake, the right one joins it through WPA2-PSK, and the phone then
# leases an address and reaches the access point.
passphrase="setup secret 42"

step "hook $SETUP_AP_IF: WPA2-PSK settings over the module's own"
run_qira_wifi "hook" "hook $SETUP_AP_IF: done" hook "$SETUP_AP_IF" --address "$SETUP_AP_ADDRESS" \
  wpa=2 wpa_key_mgmt=WPA-PSK rsn_pairwise=CCMP "wpa_passphrase=$passphrase" || return 1
expect_eq "/etc/hostapd.conf with the hook's settings" "channel=1
ctrl_interface=/var/run/hostapd
driver=nl80211
hw_mode=g
interface=$SETUP_AP_IF
rsn_pairwise=CCMP
ssid=$SETUP_AP_SSID
wpa=2
wpa_key_mgmt=WPA-PSK
wpa_passphrase=$passphrase" "$(cat /etc/hostapd.conf)"
expect_eq "/etc/dnsmasq.conf" "$SETUP_AP_DNSMASQ_CONF" "$(cat /etc/dnsmasq.conf)"
expect_eq "iw: $SETUP_AP_IF exists" "$SETUP_AP_IF" \
  "$(iw dev "$SETUP_AP_IF" info | sed -n 's/^Interface //p')"

step "connect --ap: hostapd serves WPA2"
run_qira_wifi "connect --ap" "connect $SETUP_AP_IF: done" connect "$SETUP_AP_IF" --ap || return 1
expect_true "setup access point hostapd ENABLED" wait_for 20 setup_ap_state_is ENABLED
hostapd_cli -p /var/run/hostapd -i "$SETUP_AP_IF" get_config > "$QVM_STATE/scenario/get_config"
cat "$QVM_STATE/scenario/get_config"
expect_eq "hostapd wpa" 2 "$(sed -n 's/^wpa=//p' "$QVM_STATE/scenario/get_config")"
expect_eq "hostapd key_mgmt" WPA-PSK "$(sed -n 's/^key_mgmt=//p' "$QVM_STATE/scenario/get_config")"
expect_eq "hostapd rsn_pairwise_cipher" CCMP \
  "$(sed -n 's/^rsn_pairwise_cipher=//p' "$QVM_STATE/scenario/get_config")"

step "a wrong passphrase fails the phone's handshake"
phone_start "$SETUP_AP_SSID" proto=RSN key_mgmt=WPA-PSK 'psk="not the secret"' || return 1
expect_true "phone: network temporarily disabled for WRONG_KEY" wait_for 30 grep -q \
  "CTRL-EVENT-SSID-TEMP-DISABLED .*reason=WRONG_KEY" "$QVM_STATE/scenario/phone-wpa_supplicant.log"
expect_eq "phone never completed" 0 \
  "$(grep -c 'CTRL-EVENT-CONNECTED' "$QVM_STATE/scenario/phone-wpa_supplicant.log")"
stop_pidfile "$QVM_STATE/phone-wpa_supplicant.pid"

step "the phone joins '$SETUP_AP_SSID' with the passphrase"
phone_join "$SETUP_AP_SSID" proto=RSN key_mgmt=WPA-PSK "psk=\"$passphrase\"" || return 1
expect_eq "phone: key_mgmt" WPA2-PSK "$(phone_cli status | sed -n 's/^key_mgmt=//p')"
expect_eq "phone: pairwise_cipher" CCMP "$(phone_cli status | sed -n 's/^pairwise_cipher=//p')"
phone_mac=$(in_phone cat "/sys/class/net/$PHONE_IF/address")
expect_true "hostapd has authorized the phone" wait_for 10 sh -c \
  "hostapd_cli -p /var/run/hostapd -i $SETUP_AP_IF sta $phone_mac | grep -q '^flags=.*\\[AUTHORIZED\\]'"

step "the phone's lease from the camera's dnsmasq and the way to the access point"
expect_phone_served
