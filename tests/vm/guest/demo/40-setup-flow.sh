# Demo chapter: the camera's setup flow. The camera serves its own access
# point (named after its identity record) from the stored configuration, a
# phone joins it, leases an address and finds the camera as "config.zem";
# then the camera leaves set-up and joins the home network as a station,
# from the same stored configuration. The chapters before leave wlan0 on
# HomeWPA2 through a plain wpa_supplicant: that one is stopped first. This
# one leaves wlan0 on HomeWPA2 again, through the module's wpa_supplicant and
# the host's udhcpc (no pid files: setup_flow_reset in lib.sh stops them).
phone_show() { # phone_show COMMAND...: like show, in the phone's namespace
  echo
  echo "phone# $*"
  in_phone "$@"
}

echo
echo "=== The setup flow: the camera's own access point, a phone, then the home network"
stop_pidfile "$QVM_STATE/wpa_supplicant-$CAMERA_IF.pid"
stop_named udhcpc
ip addr flush dev "$CAMERA_IF"
conf=$QVM_STATE/scenario/network.json
write_station_config "$conf"
show cat "$conf"
show qira-wifi apply "$SETUP_AP_IF" "$conf" --ap
echo "(\"command failed: No such device (-19)\" is iw's, as expected: the module first deletes any"
echo " stale $SETUP_AP_IF, and there is none yet; it then creates it)"
show qira-wifi connect "$SETUP_AP_IF" --ap
wait_for 20 setup_ap_state_is ENABLED || echo "(hostapd not ENABLED within 20 s)"
show cat /etc/hostapd.conf
show cat /etc/dnsmasq.conf
show grep config.zem /etc/hosts
show_sh "hostapd_cli -p /var/run/hostapd -i $SETUP_AP_IF status | grep -E '^(state|bssid\[0\]|ssid\[0\]|channel)='"
show ip -4 addr show dev "$SETUP_AP_IF"

echo
echo "=== A phone (its own radio $PHONE_IF, network namespace '$PHONE_NS') joins '$SETUP_AP_SSID'"
phone_join "$SETUP_AP_SSID" && echo "(associated)"
echo
echo "phone# wpa_cli -p $QVM_STATE/phone -i $PHONE_IF status | grep -E '^(bssid|ssid|wpa_state)='"
phone_cli status | grep -E '^(bssid|ssid|wpa_state)='
phone_show udhcpc -i "$PHONE_IF" -n -q -t 10 -T 1 -A 1 -s "$QVM_DIR/udhcpc.sh"
phone_show nslookup config.zem "$SETUP_AP_ADDRESS"
echo "(the REFUSED line answers nslookup's IPv6 question, which the camera's dnsmasq has no"
echo " address for, as expected; the IPv4 answer above is config.zem's)"
show grep DHCPACK /var/log/dnsmasq.log
stop_pidfile "$QVM_STATE/phone-wpa_supplicant.pid"

echo
echo "=== Set-up done: the access point goes, the camera joins $HOME_WPA2_SSID"
show qira-wifi disconnect "$SETUP_AP_IF" --ap
for name in hostapd dnsmasq udhcpc; do wait_for 10 no_process_named "$name"; done
show ls /sys/class/net
show_sh "grep -lxE 'hostapd|dnsmasq|udhcpc' /proc/[0-9]*/comm 2> /dev/null || echo '(no hostapd, dnsmasq or udhcpc running)'"
show qira-wifi apply "$CAMERA_IF" "$conf"
show cat /etc/wlan0.conf
show qira-wifi connect "$CAMERA_IF"
wait_associated "$CAMERA_IF" 60 && echo "(associated)"
leased() { ip -4 -o addr show dev "$CAMERA_IF" | grep -q ' inet '; }
wait_for 60 leased && echo "(leased by the host's udhcpc)"
show_sh "wpa_cli -i $CAMERA_IF status | grep -E '^(wpa_state|ssid|key_mgmt)='"
show ip -4 addr show dev "$CAMERA_IF"
echo
