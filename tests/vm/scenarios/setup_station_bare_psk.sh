# The station file carries the pre-shared key as the configuration holds it,
# without quotes. wpa_supplicant reads an unquoted psk as 64 hex digits, so
# a configuration that holds the bare passphrase gives a file the real
# wpa_supplicant refuses: "connect" fails and nothing runs.
conf=$QVM_STATE/scenario/network.json
cat > "$conf" << JSON
{"wifi": {"ssid": "$HOME_WPA2_SSID", "key": "wpa2", "wpa": {"auth": "psk", "psk": "$HOME_WPA2_PSK"}}}
JSON
cat "$conf"
run_qira_wifi "apply" "apply $CAMERA_IF: done" apply "$CAMERA_IF" "$conf" || return 1
expect_eq "station file psk line" "$(printf '\tpsk=%s' "$HOME_WPA2_PSK")" "$(grep psk= /etc/wlan0.conf)"
# "-s": wpa_supplicant reports to syslog, from its first line on.
syslog_lines=$(wc -l < /var/log/messages)
# The failure is an error: on stderr, with exit status 3, nothing on stdout.
echo "camera# qira-wifi connect $CAMERA_IF"
qira-wifi connect "$CAMERA_IF" > "$QVM_STATE/scenario/connect.out" 2> "$QVM_STATE/scenario/connect.err"
expect_eq "connect exit status" 3 "$?"
cat "$QVM_STATE/scenario/connect.err"
expect_eq "connect stderr" \
  "qira-wifi: connect $CAMERA_IF: failed (Failed to run wpa_supplicant; Failed to execute wpa_supplicant)" \
  "$(cat "$QVM_STATE/scenario/connect.err")"
expect_eq "connect stdout" "" "$(cat "$QVM_STATE/scenario/connect.out")"
new_syslog_has() { tail -n "+$((syslog_lines + 1))" /var/log/messages | grep -q "$1"; }
expect_true "wpa_supplicant's complaint in syslog" wait_for 5 new_syslog_has "Invalid PSK '$HOME_WPA2_PSK'"
tail -n "+$((syslog_lines + 1))" /var/log/messages | grep wpa_supplicant
expect_eq "no wpa_supplicant" "" "$(pids_named wpa_supplicant)"
