# Station mode with static addressing from a stored configuration, then scan
# recovery: "qira-wifi apply wlan0" sets the address, route and name server
# itself (no DHCP client), "connect" joins HomeWPA2, and "recover wlan0"
# makes the real wpa_supplicant associate anew.
conf=$QVM_STATE/scenario/network.json
write_station_config "$conf" '"dhcp": {"status": 0},
 "statik": {"ip": "192.168.50.20", "netmask": "255.255.255.0"},
 "routes": {"gateway": "192.168.50.1"},
 "dns": {"ns1": {"ip": "192.168.50.1", "status": 1}}'
cat "$conf"
step "apply and connect $CAMERA_IF with a static address"
run_qira_wifi "apply" "apply $CAMERA_IF: done" apply "$CAMERA_IF" "$conf" || return 1
expect_eq "/etc/wlan0.conf" "$(station_file_text)" "$(cat /etc/wlan0.conf)"
expect_eq "$CAMERA_IF address" 192.168.50.20/24 "$(ip -4 -o addr show dev "$CAMERA_IF" | awk '{ print $4 }')"
# "linkdown" until wlan0 has joined a network.
expect_match "default route" "^default via 192\.168\.50\.1 dev $CAMERA_IF( linkdown)? *\$" "$(ip -4 route show default)"
expect_eq "/etc/resolv.conf" "nameserver 192.168.50.1" "$(cat /etc/resolv.conf)"
expect_eq "no DHCP client" "" "$(pids_named udhcpc)"
camera_mac=$(cat "/sys/class/net/$CAMERA_IF/address")
# The home access point's log outlives scenarios: count from here.
connections=$(home_connections "$camera_mac")
run_qira_wifi "connect" "connect $CAMERA_IF: done" connect "$CAMERA_IF" || return 1
wait_associated "$CAMERA_IF" 45 || return 1
expect_eq "wpa_supplicant ssid" "$HOME_WPA2_SSID" "$(wpa_cli -i "$CAMERA_IF" status | sed -n 's/^ssid=//p')"
expect_true "$HOME_WPA2_SSID authorized $CAMERA_IF" wait_for 10 ap_authorized "$HOME_WPA2_IF" "$camera_mac"
expect_true "ping $HOME_WPA2_ADDRESS over the air from 192.168.50.20" ping -c 1 -W 5 "$HOME_WPA2_ADDRESS"

step "recover $CAMERA_IF: wpa_supplicant reassociates"
connections=$((connections + 1))
handshakes_are() { [ "$(home_connections "$camera_mac")" -eq "$1" ]; }
expect_true "one handshake with $HOME_WPA2_SSID before recovery" wait_for 10 handshakes_are "$connections"
wpa_pid=$(pids_named wpa_supplicant)
run_qira_wifi "recover" "recover $CAMERA_IF: done" recover "$CAMERA_IF" || return 1
more_connections() { [ "$(home_connections "$camera_mac")" -gt "$connections" ]; }
expect_true "a new handshake with $HOME_WPA2_SSID" wait_for 30 more_connections
expect_true "wpa_supplicant COMPLETED again" wait_for 10 wpa_state_is "$CAMERA_IF" COMPLETED
expect_eq "the same wpa_supplicant" "$wpa_pid" "$(pids_named wpa_supplicant)"
expect_true "ping $HOME_WPA2_ADDRESS after recovery" ping -c 1 -W 5 "$HOME_WPA2_ADDRESS"
