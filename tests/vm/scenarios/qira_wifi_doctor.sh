# qira-wifi doctor on the camera: every check passes on the camera as built
# (with wpa_supplicant running on wlan0); then each fault the camera can meet
# gives its exact line, and only it:
#   /tmp on a tmpfs of its own: the rename check fails (and the module's
#     station file really fails across file systems);
#   "/bin/hostapd" not executable: that check fails;
#   wpa_supplicant stopped: warnings, no failure, exit 0.
conf=$QVM_STATE/scenario/wpa.conf
out=$QVM_STATE/scenario/doctor.out
err=$QVM_STATE/scenario/doctor.err

command -v qira-wifi > /dev/null || {
  fail "qira-wifi is not in the image (built with --world-only?)"
  return 1
}

# doctor: runs "qira-wifi doctor wlan0", shows what it printed, keeps the
# exit status in $doctor_status.
doctor() {
  echo "camera# qira-wifi doctor $CAMERA_IF $*"
  qira-wifi doctor "$CAMERA_IF" "$@" > "$out" 2> "$err"
  doctor_status=$?
  cat "$out"
  sed 's/^/  stderr: /' "$err"
}

# The lines that are not "ok", in order, joined by ";".
flagged() { grep -v '^ok   ' "$out" | grep -v '^[0-9]* ok, ' | tr '\n' ';'; }

step "the camera as built, wpa_supplicant on $CAMERA_IF"
home_wpa2_conf "$conf"
start_wpa_supplicant "$CAMERA_IF" "$conf" || return 1
doctor
expect_eq "doctor exit status" 0 "$doctor_status"
expect_eq "doctor stderr" "" "$(cat "$err")"
expect_eq "checks that are not ok" "" "$(flagged)"
expect_eq "the count" "31 ok, 0 warn, 0 fail" "$(tail -1 "$out")"
expect_eq "lines" 32 "$(wc -l < "$out")"
# The library folder is the architecture's (x86_64-linux-gnu, arm-linux-gnueabihf).
expect_match "module line" \
  '^ok   module: libqira_network_utils_wireless\.so\.1 loads from (/usr)?/lib/[a-z0-9_-]+/libqira_network_utils_wireless\.so\.1$' \
  "$(sed -n 1p "$out")"
expect_eq "identity line" 'ok   identity: sysid 25248, name "Virtual Camera", hwaddr 02000000AB12' \
  "$(grep '^ok   identity: ' "$out")"
expect_eq "wireless extensions line" \
  "ok   interface $CAMERA_IF wireless extensions: the name request answers \"IEEE 802.11\"" \
  "$(grep "^ok   interface $CAMERA_IF wireless extensions: " "$out")"
expect_eq "mode line" "ok   interface $CAMERA_IF mode: managed (2)" "$(grep "^ok   interface $CAMERA_IF mode: " "$out")"
expect_match "iw's version" '^ok   /bin/iw: executable, iw version [0-9.]+$' "$(grep '^ok   /bin/iw: ' "$out")"
expect_match "hostapd's version" '^ok   /bin/hostapd: executable, hostapd v[0-9.]+$' \
  "$(grep '^ok   /bin/hostapd: ' "$out")"
expect_eq "rename line" "ok   /tmp and /etc: on one file system" "$(grep '^ok   /tmp and /etc: ' "$out")"
expect_eq "PING line" "ok   wpa_supplicant of $CAMERA_IF: answers PING" \
  "$(grep "^ok   wpa_supplicant of $CAMERA_IF: " "$out")"

step "the same as one JSON object"
qira-wifi --json doctor "$CAMERA_IF" > "$out.json"
expect_eq "doctor --json exit status" 0 "$?"
json_flatten "$out.json" > "$out.flat"
expect_eq "doctor --json parses" 0 "$?"
expect_eq "json ok" true "$(json_get "$out.flat" ok)"
expect_eq "json ifname" "$CAMERA_IF" "$(json_get "$out.flat" ifname)"
expect_eq "json counts.ok" 31 "$(json_get "$out.flat" counts.ok)"
expect_eq "json checks" 31 "$(json_count "$out.flat" checks)"
expect_eq "json checks.26.check" "/tmp and /etc" "$(json_get "$out.flat" checks.26.check)"

step "/tmp on a tmpfs of its own"
mount -t tmpfs -o mode=1777 qira-doctor-tmp /tmp || { fail "cannot mount a tmpfs on /tmp"; return 1; }
on_reset "grep -q ' /tmp tmpfs ' /proc/mounts && umount /tmp"
doctor
expect_eq "doctor exit status" 1 "$doctor_status"
expect_eq "the one failed check" \
  'fail /tmp and /etc: on different file systems; the station file cannot be renamed from /tmp into /etc/wlan0.conf ("Failed to move WLAN config": Invalid cross-device link); fix: keep /tmp on the file system of /etc;' \
  "$(flagged)"
expect_eq "the count" "30 ok, 0 warn, 1 fail" "$(tail -1 "$out")"
# What the line foretells: the module's station file fails to move.
qira-wifi write-sta "$CAMERA_IF" "$HOME_WPA2_SSID" wpa2 psk '"correct horse"' \
  > "$QVM_STATE/scenario/write-sta.out" 2>&1
expect_true "write-sta fails across file systems" grep -q 'Invalid cross-device link' \
  "$QVM_STATE/scenario/write-sta.out"
cat "$QVM_STATE/scenario/write-sta.out"
umount /tmp || fail "cannot unmount the tmpfs from /tmp"

step "/bin/hostapd not executable"
hostapd_mode=$(stat -L -c %a /bin/hostapd)
chmod 644 /bin/hostapd
on_reset "chmod $hostapd_mode /bin/hostapd"
doctor
chmod "$hostapd_mode" /bin/hostapd
expect_eq "doctor exit status" 1 "$doctor_status"
expect_eq "the one failed check" \
  'fail /bin/hostapd: present but not executable (mode 0644); the setup access point never starts ("Failed to run hostapd"); fix: chmod 755 /bin/hostapd;' \
  "$(flagged)"

step "wpa_supplicant stopped"
stop_pidfile "$QVM_STATE/wpa_supplicant-$CAMERA_IF.pid"
doctor
expect_eq "doctor exit status" 0 "$doctor_status"
# wpa_supplicant removes its control folder when it ends.
expect_eq "the warnings" \
  "warn /var/run/wpa_supplicant: absent: no wpa_supplicant has started; WpaClient::WpaSupplicantIsRunning answers false; fix: start station mode: qira-wifi connect IFNAME;warn wpa_supplicant of $CAMERA_IF: not running (no control socket); station commands fail until it runs (\"Failed to initialize control interface\"); fix: start station mode: qira-wifi connect $CAMERA_IF;" \
  "$(flagged)"
