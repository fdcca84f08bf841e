# The camera's world itself: wlan0 joins the home WPA2 network with
# wpa_supplicant, leases an address from the home DHCP server and reaches it
# over the simulated air.
step "wpa_supplicant on $CAMERA_IF for $HOME_WPA2_SSID"
home_wpa2_conf "$QVM_STATE/scenario/wpa.conf"
start_wpa_supplicant "$CAMERA_IF" "$QVM_STATE/scenario/wpa.conf" || return 1
wait_associated "$CAMERA_IF" 30 || return 1
expect_eq "wpa_supplicant ssid" "$HOME_WPA2_SSID" "$(wpa_cli -i "$CAMERA_IF" status | sed -n 's/^ssid=//p')"
expect_eq "wpa_supplicant key_mgmt" WPA2-PSK "$(wpa_cli -i "$CAMERA_IF" status | sed -n 's/^key_mgmt=//p')"

step "DHCP on $CAMERA_IF"
expect_true "$HOME_WPA2_SSID authorized $CAMERA_IF" \
  wait_for 10 ap_authorized "$HOME_WPA2_IF" "$(cat /sys/class/net/$CAMERA_IF/address)"
dhcp_lease "$CAMERA_IF" || return 1
cat "$QVM_STATE/scenario/udhcpc-$CAMERA_IF.log"
address=$(ip -4 -o addr show dev "$CAMERA_IF" | awk '{ print $4 }')
expect_match "leased address" '^192\.168\.50\.(1[0-4][0-9]|150)/24$' "$address"
expect_true "ping $HOME_WPA2_ADDRESS over the air" ping -c 1 -W 5 "$HOME_WPA2_ADDRESS"
expect_match "home DHCP server log" "DHCPACK\\($HOME_WPA2_IF\\) ${address%/*} " "$(grep DHCPACK "$QVM_HOME/dnsmasq.log")"

step "the open network is on the air"
expect_true "hostapd $HOME_OPEN_SSID enabled" hostapd_enabled "$HOME_OPEN_IF"
