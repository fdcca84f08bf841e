# Station mode from a stored configuration: "qira-wifi apply wlan0" writes
# /etc/wlan0.conf and starts the host's DHCP client, "connect" starts the
# real wpa_supplicant on that file; wlan0 joins HomeWPA2 and leases an
# address from the home network's dnsmasq.
conf=$QVM_STATE/scenario/network.json
write_station_config "$conf"
cat "$conf"
step "apply and connect $CAMERA_IF"
run_qira_wifi "apply" "apply $CAMERA_IF: done" apply "$CAMERA_IF" "$conf" || return 1
expect_eq "/etc/wlan0.conf" "$(station_file_text)" "$(cat /etc/wlan0.conf)"
udhcpc_pid=$(pids_named udhcpc)
expect_eq "the host's udhcpc" "/sbin/udhcpc -f -S -R -i $CAMERA_IF -s /etc/udhcpc/default.script" \
  "$(tr '\0' ' ' < "/proc/$udhcpc_pid/cmdline" | sed 's/ $//')"
run_qira_wifi "connect" "connect $CAMERA_IF: done" connect "$CAMERA_IF" || return 1
wpa_pid=$(pids_named wpa_supplicant)
expect_eq "wpa_supplicant command line" "/bin/wpa_supplicant -B -Dnl80211 -s -i $CAMERA_IF -c/etc/wlan0.conf" \
  "$(tr '\0' ' ' < "/proc/$wpa_pid/cmdline" | sed 's/ $//')"
# The station file names no frequencies: wpa_supplicant scans every channel
# of the radio (about 10 s under emulation).
wait_associated "$CAMERA_IF" 45 || {
  grep wpa_supplicant /var/log/messages | tail -20
  return 1
}
expect_eq "wpa_supplicant ssid" "$HOME_WPA2_SSID" "$(wpa_cli -i "$CAMERA_IF" status | sed -n 's/^ssid=//p')"
expect_eq "wpa_supplicant key_mgmt" WPA2-PSK "$(wpa_cli -i "$CAMERA_IF" status | sed -n 's/^key_mgmt=//p')"

step "the host's udhcpc leases an address from $HOME_WPA2_SSID"
# The host's udhcpc started at "apply", before the association: its first
# three DISCOVERs go nowhere and it backs off 20 s before the next round.
leased() { ip -4 -o addr show dev "$CAMERA_IF" | grep -q ' inet '; }
wait_for 45 leased || grep udhcpc /var/log/messages | tail -10
expect_true "an address on $CAMERA_IF within 45 s" leased
address=$(ip -4 -o addr show dev "$CAMERA_IF" | awk '{ print $4 }')
echo "$CAMERA_IF: $address"
expect_match "leased address" '^192\.168\.50\.(1[0-4][0-9]|150)/24$' "$address"
camera_mac=$(cat "/sys/class/net/$CAMERA_IF/address")
expect_true "home dnsmasq log: DHCPACK for the camera" \
  grep -q "DHCPACK($HOME_WPA2_IF) ${address%/*} $camera_mac" "$QVM_HOME/dnsmasq.log"
expect_true "ping $HOME_WPA2_ADDRESS over the air" ping -c 1 -W 5 "$HOME_WPA2_ADDRESS"
