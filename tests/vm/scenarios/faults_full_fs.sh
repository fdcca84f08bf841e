# A full file system: the camera's flash has no block left while the module
# writes its files. /etc and /tmp are on the root file system (tmpfs here);
# the scenario shrinks it to what it holds plus a little and fills the rest,
# then lets the module write:
#   1. the station file, with a good /etc/wlan0.conf in place: the write
#      fails with its line, /etc/wlan0.conf survives whole (the file goes
#      through /tmp and rename), and the temporary file stays behind, as
#      specified, holding what could be written;
#   2. the access point's files, none in place: the hostapd file is created
#      and its write fails: an empty /etc/hostapd.conf is left, no dnsmasq
#      file, /etc/hosts untouched;
#   3. the hostapd file in place and the new one a block longer (a hook adds
#      a long vendor_elements): the file is opened to be replaced (truncated),
#      its first block is written and the second fails: the previous file is
#      lost and a partial file is left, as the module's specified behaviour
#      (create and replace, no temporary file) makes it;
#   4. /etc/hosts filling its last block exactly and lacking the access
#      point's line: the hostapd and dnsmasq files are replaced by texts of
#      the same length (their blocks are freed and taken again), the append
#      to /etc/hosts fails, and /etc/hosts survives whole;
#   5. space again: every file is written, exactly.
# The figures: what was left, in bytes.
ap_conf=$QVM_STATE/scenario/ap.json
sta_conf=$QVM_STATE/scenario/station.json
filler=/qvm-filler
echo '{}' > "$ap_conf"
# A static address: no DHCP client runs (its syslog lines would take the
# blocks the scenario frees).
write_station_config "$sta_conf" "$STATION_STATIC_MEMBERS"

# The root file system's size option, to put back.
root_size=$(awk '$2 == "/" { n = split($4, o, ","); for (i = 1; i <= n; i++) if (o[i] ~ /^size=/) print o[i] }' /proc/mounts | tail -1)
expect_match "the root file system has a size limit (tmpfs)" '^size=[0-9]+k$' "$root_size"
on_reset "rm -f $filler; mount -o remount,$root_size /"

# busybox df does not find the root file system ("rootfs"); statfs does.
block=$(stat -f -c '%S' /)
used_kb() { stat -f -c '%b %f %S' / | awk '{ print ($1 - $2) * $3 / 1024 }'; }
free_kb() { stat -f -c '%f %S' / | awk '{ print $1 * $2 / 1024 }'; }
# fill: leaves no block free on /.
fill() {
  rm -f "$filler"
  mount -o remount,size=$(($(used_kb) + 256))k / || {
    fail "cannot shrink the root file system"
    return 1
  }
  dd if=/dev/zero of="$filler" bs="$block" 2> /dev/null
  expect_eq "free blocks on / after filling" 0 "$(free_kb)"
}
unfill() {
  rm -f "$filler"
  mount -o remount,"$root_size" /
}
# qira_json FILE ARGS...: "qira-wifi --json ARGS" into FILE and its flat form
# into FILE.flat; prints the exit status.
qira_json() {
  local file=$1
  shift
  qira-wifi --json "$@" > "$file" 2> "$file.err"
  echo "$?"
  json_flatten "$file" > "$file.flat" 2> /dev/null
}
# expect_failed_with WHAT FILE MESSAGE: the action failed, its last log line
# was MESSAGE and it was logged once. (Before it, "apply" logs that no
# wpa_supplicant answered its TERMINATE.)
expect_failed_with() {
  local messages
  messages=$(awk -F '\t' '$1 ~ /^log\.[0-9]+\.message$/ { print $3 }' "$2.flat")
  expect_eq "$1: ok" false "$(json_get "$2.flat" ok)"
  expect_eq "$1: the last log line" "$3" "$(echo "$messages" | tail -1)"
  expect_eq "$1: logged once" 1 "$(echo "$messages" | grep -cxF "$3")"
}
size_of() { wc -c < "$1" | tr -d ' '; }

command -v qira-wifi > /dev/null || {
  fail "qira-wifi is not in the image (built with --world-only?)"
  return 1
}
out=$QVM_STATE/scenario/out

step "1. the station file on a full file system"
expect_eq "apply $CAMERA_IF with space" 0 "$(qira_json "$out" apply "$CAMERA_IF" "$sta_conf")"
cp /etc/wlan0.conf "$QVM_STATE/scenario/wlan0.conf.before"
fill || return 1
expect_eq "write-sta on a full file system: exit status" 3 \
  "$(qira_json "$out" write-sta "$CAMERA_IF" "$HOME_OPEN_SSID" none)"
cat "$out"
expect_failed_with "write-sta" "$out" "Cannot generate wifi config file: failed to write"
expect_true "/etc/wlan0.conf survives whole" cmp "$QVM_STATE/scenario/wlan0.conf.before" /etc/wlan0.conf
left=$(ls /tmp/wlan0.conf.* 2> /dev/null)
expect_match "the temporary station file stays behind" '^/tmp/wlan0\.conf\.[0-9]+\.[A-Za-z0-9]{8}$' "$left"
echo "figure: station file: /etc/wlan0.conf kept whole; $left left with $(size_of "$left") bytes"
expect_eq "the temporary file holds what could be written" 0 "$(size_of "$left")"
rm -f /tmp/wlan0.conf.*

step "2. the access point's files on a full file system, none in place"
cp /etc/hosts "$QVM_STATE/scenario/hosts.before"
expect_eq "apply --ap: exit status" 3 "$(qira_json "$out" apply "$SETUP_AP_IF" "$ap_conf" --ap)"
cat "$out"
expect_failed_with "apply --ap" "$out" 'Failed to write to file "/etc/hostapd.conf"'
expect_eq "/etc/hostapd.conf is left empty" 0 "$(size_of /etc/hostapd.conf)"
expect_true "no /etc/dnsmasq.conf" test ! -e /etc/dnsmasq.conf
expect_true "/etc/hosts untouched" cmp "$QVM_STATE/scenario/hosts.before" /etc/hosts
echo "figure: access point files, none before: an empty /etc/hostapd.conf left, no dnsmasq file"

step "3. the hostapd file replaced by a longer one on a full file system"
unfill
expect_eq "apply --ap with space" 0 "$(qira_json "$out" apply "$SETUP_AP_IF" "$ap_conf" --ap)"
cp /etc/hostapd.conf "$QVM_STATE/scenario/hostapd.conf.before"
fill || return 1
# One and a half blocks of hexadecimal digits: the file then needs two.
long=$(awk -v n="$((block * 3 / 4))" 'BEGIN { for (i = 0; i < n; i++) printf "dd"; }')
expect_eq "hook vendor_elements: exit status" 3 \
  "$(qira_json "$out" hook "$SETUP_AP_IF" "vendor_elements=$long" --address "$SETUP_AP_ADDRESS")"
expect_failed_with "hook" "$out" 'Failed to write to file "/etc/hostapd.conf"'
left_size=$(size_of /etc/hostapd.conf)
echo "figure: hostapd file replaced on a full file system: $(size_of "$QVM_STATE/scenario/hostapd.conf.before") bytes before, $left_size bytes left"
expect_eq "the partial hostapd file: its first block" "$block" "$left_size"
expect_eq "the partial file begins with the new text" "channel=1" "$(head -1 /etc/hostapd.conf)"

step "4. /etc/hosts filling its last block, the access point's line to append"
unfill
expect_eq "apply --ap with space" 0 "$(qira_json "$out" apply "$SETUP_AP_IF" "$ap_conf" --ap)"
cp "$QVM_STATE/hosts.world" /etc/hosts
pad=$((block - $(size_of /etc/hosts) - 2))
{ printf '#'; awk -v n="$pad" 'BEGIN { for (i = 0; i < n; i++) printf "-" }'; echo; } >> /etc/hosts
expect_eq "/etc/hosts fills one block" "$block" "$(size_of /etc/hosts)"
cp /etc/hosts "$QVM_STATE/scenario/hosts.before"
cp /etc/hostapd.conf "$QVM_STATE/scenario/hostapd.conf.before"
cp /etc/dnsmasq.conf "$QVM_STATE/scenario/dnsmasq.conf.before"
fill || return 1
expect_eq "apply --ap: exit status" 3 "$(qira_json "$out" apply "$SETUP_AP_IF" "$ap_conf" --ap)"
expect_failed_with "apply --ap" "$out" 'Failed to write to file "/etc/hosts"'
expect_true "/etc/hosts survives whole" cmp "$QVM_STATE/scenario/hosts.before" /etc/hosts
expect_true "/etc/hostapd.conf written again" cmp "$QVM_STATE/scenario/hostapd.conf.before" /etc/hostapd.conf
expect_true "/etc/dnsmasq.conf written again" cmp "$QVM_STATE/scenario/dnsmasq.conf.before" /etc/dnsmasq.conf

step "5. space again: every file is written"
unfill
cp "$QVM_STATE/hosts.world" /etc/hosts
expect_eq "apply --ap" 0 "$(qira_json "$out" apply "$SETUP_AP_IF" "$ap_conf" --ap)"
expect_eq "/etc/hostapd.conf" "$SETUP_AP_HOSTAPD_CONF" "$(cat /etc/hostapd.conf)"
expect_eq "/etc/dnsmasq.conf" "$SETUP_AP_DNSMASQ_CONF" "$(cat /etc/dnsmasq.conf)"
expect_eq "/etc/hosts config.zem line" "$(printf '%s\tconfig.zem\t\tconfig' "$SETUP_AP_ADDRESS")" \
  "$(grep config.zem /etc/hosts)"
expect_eq "apply $CAMERA_IF" 0 "$(qira_json "$out" apply "$CAMERA_IF" "$sta_conf")"
expect_eq "/etc/wlan0.conf" "$(station_file_text)" "$(cat /etc/wlan0.conf)"
expect_eq "no temporary station file left" "" "$(ls /tmp/wlan0.conf.* 2> /dev/null)"
