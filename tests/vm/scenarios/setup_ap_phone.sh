# The setup access point from a stored configuration: "qira-wifi apply --ap"
# writes hostapd's, dnsmasq's and the hosts file and creates the interface,
# "connect --ap" starts the real dnsmasq and hostapd; a phone (its own radio
# and wpa_supplicant in the namespace "phone") joins the network named after
# the identity record, leases an address from the camera's dnsmasq and
# resolves "config.zem" to the access point.
conf=$QVM_STATE/scenario/network.json
write_setup_ap_config "$conf"
step "apply and connect the setup access point on $SETUP_AP_IF"
setup_ap_up "$conf" || return 1

step "the files the module wrote"
expect_eq "/etc/hostapd.conf" "$SETUP_AP_HOSTAPD_CONF" "$(cat /etc/hostapd.conf)"
expect_eq "/etc/dnsmasq.conf" "$SETUP_AP_DNSMASQ_CONF" "$(cat /etc/dnsmasq.conf)"
expect_eq "/etc/hosts config.zem line" "$(printf '%s\tconfig.zem\t\tconfig' "$SETUP_AP_ADDRESS")" \
  "$(grep config.zem /etc/hosts)"

step "the access point as the kernel and hostapd see it"
iw dev "$SETUP_AP_IF" info
expect_eq "iw: $SETUP_AP_IF type" AP "$(iw dev "$SETUP_AP_IF" info | sed -n 's/^[[:space:]]*type //p')"
expect_eq "iw: $SETUP_AP_IF ssid" "$SETUP_AP_SSID" "$(iw dev "$SETUP_AP_IF" info | sed -n 's/^[[:space:]]*ssid //p')"
expect_eq "iw: $SETUP_AP_IF on phy0" 0 "$(iw dev "$SETUP_AP_IF" info | sed -n 's/^[[:space:]]*wiphy //p')"
expect_eq "hostapd ssid" "$SETUP_AP_SSID" "$(setup_ap_value 'ssid\[0\]')"
expect_eq "hostapd channel" 1 "$(setup_ap_value channel)"
expect_eq "$SETUP_AP_IF address" "$SETUP_AP_ADDRESS/24" \
  "$(ip -4 -o addr show dev "$SETUP_AP_IF" | awk '{ print $4 }')"
dnsmasq_pid=$(pids_named dnsmasq)
expect_match "one dnsmasq" '^[0-9]+$' "$dnsmasq_pid"
expect_eq "dnsmasq command line" \
  "/bin/dnsmasq --leasefile-ro -u qira -g admin --log-facility=/var/log/dnsmasq.log --dhcp-authoritative" \
  "$(tr '\0' ' ' < "/proc/$dnsmasq_pid/cmdline" | sed 's/ $//')"
expect_match "dnsmasq runs as qira" '^Uid:[[:space:]]+1000[[:space:]]' "$(grep '^Uid:' "/proc/$dnsmasq_pid/status")"
expect_match "dnsmasq runs as group admin" '^Gid:[[:space:]]+1001[[:space:]]' "$(grep '^Gid:' "/proc/$dnsmasq_pid/status")"
hostapd_pid=$(pids_named hostapd)
expect_eq "hostapd command line" "/bin/hostapd -B -d -f /var/log/hostapd.log /etc/hostapd.conf" \
  "$(tr '\0' ' ' < "/proc/$hostapd_pid/cmdline" | sed 's/ $//')"

step "the phone joins '$SETUP_AP_SSID'"
phone_join "$SETUP_AP_SSID" || return 1
expect_eq "phone: ssid" "$SETUP_AP_SSID" "$(phone_cli status | sed -n 's/^ssid=//p')"
expect_eq "phone: bssid" "$(cat "/sys/class/net/$SETUP_AP_IF/address")" "$(phone_cli status | sed -n 's/^bssid=//p')"
phone_mac=$(in_phone cat "/sys/class/net/$PHONE_IF/address")
expect_true "hostapd lists the phone" wait_for 10 sh -c \
  "hostapd_cli -p /var/run/hostapd -i $SETUP_AP_IF all_sta | grep -qx $phone_mac"

step "the phone's DHCP lease from the camera's dnsmasq"
expect_phone_served

step "the phone resolves config.zem"
answer=$(in_phone nslookup config.zem "$SETUP_AP_ADDRESS" 2>&1)
echo "$answer"
expect_eq "config.zem" "$SETUP_AP_ADDRESS" \
  "$(echo "$answer" | awk '/^Name:/ { named = 1; next } named && /^Address/ { sub(/^Address( 1)?:[[:space:]]*/, ""); print; exit }')"
