# The virtual camera's demo (run.sh --demo): a transcript a person can
# follow, of the module reading the state of a station that has joined the
# simulated home WPA2 network. Sourced by /init after lib.sh and camera_reset.
show() { # show COMMAND...: prints the command line, then runs it
  echo
  echo "camera# $*"
  "$@"
}
show_sh() { # show_sh "COMMAND | FILTER": like show, for a shell line
  echo
  echo "camera# $1"
  sh -c "$1"
}

echo
echo "=== The virtual camera: $(uname -r), simulated radios from mac80211_hwsim"
show uname -m
show iw dev
echo
echo "=== The home networks (radios in network namespace '$HOME_NS'):"
echo "    $HOME_OPEN_SSID (open, channel $HOME_OPEN_CHANNEL) and $HOME_WPA2_SSID (WPA2-PSK, channel $HOME_WPA2_CHANNEL, DHCP)"
conf=$QVM_STATE/scenario/wpa.conf
home_wpa2_conf "$conf"
echo
echo "=== wlan0 joins $HOME_WPA2_SSID with wpa_supplicant"
show /bin/wpa_supplicant -B -i "$CAMERA_IF" -D nl80211 -c "$conf" -P "$QVM_STATE/wpa_supplicant-$CAMERA_IF.pid"
wait_associated "$CAMERA_IF" 30 && echo "(associated)"
show udhcpc -i "$CAMERA_IF" -n -q -t 10 -T 1 -A 1 -s "$QVM_DIR/udhcpc.sh"
echo
echo "=== What the kernel says (nl80211 and wireless extensions)"
show iw dev "$CAMERA_IF" link
show iwconfig "$CAMERA_IF"
echo
echo "=== What the module answers, loaded by the reference host"
show qira-wifi info "$CAMERA_IF"
echo
echo "=== And for a radio that has joined nothing, and a name that does not exist"
ip link set "$SPARE_IF" up
show qira-wifi info "$SPARE_IF"
show qira-wifi info nosuch0
echo "(these failures are the kernel's answers, as expected: wlan1 has no link, so no frequency,"
echo " rate or statistics; nosuch0 does not exist)"
echo

# The later chapters (events, scanning, the setup flow), in name order; each
# starts from the state the one before left.
for chapter in "$QVM_DIR"/demo/*.sh; do
  [ -f "$chapter" ] && . "$chapter"
done
