# Names from the air shown safely: a second radio (the phone's, in its own
# namespace) serves five access points whose names hold an escape sequence
# (clear screen, then a terminal-title sequence ended by BEL), a UTF-8 name,
# a quote and a backslash, 32 bytes, and bytes that are not UTF-8 with a
# right-to-left override. "qira-wifi scan" shows every name escaped as iw
# does and readable; "qira-wifi --json scan" parses with a strict JSON
# parser (qira-json-check, nlohmann-json's), and gives each name byte for
# byte as iw saw it: "ssid_hex" always, "ssid" exactly when it is UTF-8.
hostile=$QVM_STATE/scenario/hostile
hostile_conf=$hostile-hostapd.conf
hostile_pid=$QVM_STATE/hostile-hostapd.pid
hostile_channel=11
hostile_freq=2462
# BSSID, name in hexadecimal, how qira-wifi's table shows it (what a
# terminal receives), and what the name is.
hostile_aps="02:00:00:00:04:00 1b5b324a1b5d303b70776e656407 \x1b[2J\x1b]0;pwned\x07 escape-sequences
02:00:00:00:04:01 436166c3a92dc391616e64c3ba Café-Ñandú utf-8
02:00:00:00:04:02 7361792022686922205c206261636b say_\"hi\"_\x5c_back quote-and-backslash
02:00:00:00:04:03 4142434445464748494a4b4c4d4e4f505152535455565758595a303132333435 ABCDEFGHIJKLMNOPQRSTUVWXYZ012345 32-bytes
02:00:00:00:04:04 fffe2062616420e280ae20656e64 \xff\xfe_bad_\xe2\x80\xae_end not-utf-8"

# hex_of TEXT: the bytes of TEXT in lower-case hexadecimal.
hex_of() { printf '%s' "$1" | od -An -tx1 -v | tr -d ' \n'; }
# iw_hex ESCAPED: the bytes of a name as iw prints it (printable ASCII as
# itself, every other byte, the backslash and edge spaces as \xHH).
iw_hex() {
  printf '%s' "$1" | awk 'BEGIN { for (i = 32; i < 127; i++) code[sprintf("%c", i)] = i }
    { s = $0; out = ""
      while (length(s) > 0) {
        if (substr(s, 1, 2) == "\\x") { out = out tolower(substr(s, 3, 2)); s = substr(s, 5) }
        else { out = out sprintf("%02x", code[substr(s, 1, 1)]); s = substr(s, 2) }
      }
      print out }'
}
# flat_value FLAT PATH: the VALUE column of PATH in qira-json-check's output.
flat_value() { awk -F '\t' -v p="$2" '$1 == p { print $3; exit }' "$1"; }
flat_kind() { awk -F '\t' -v p="$2" '$1 == p { print $2; exit }' "$1"; }
# ap_index FLAT BSSID: the index of the access point with that BSSID.
ap_index() {
  awk -F '\t' -v b="$(hex_of "$2")" '$1 ~ /^access_points\.[0-9]+\.bssid$/ && $3 == b {
    split($1, p, "."); print p[2]; exit }' "$1"
}
hostile_enabled() {
  in_phone hostapd_cli -p "$hostile-ctrl" -i "$PHONE_IF" status 2> /dev/null | grep -qx 'state=ENABLED'
}

step "five access points with hostile names on the phone's radio, channel $hostile_channel"
{
  echo "ctrl_interface=$hostile-ctrl"
  echo "driver=nl80211"
  echo "hw_mode=g"
  echo "channel=$hostile_channel"
  n=0
  echo "$hostile_aps" | while read -r bssid hex shown what; do
    if [ "$n" -eq 0 ]; then
      echo "interface=$PHONE_IF"
    else
      echo "bss=${PHONE_IF}_$n"
    fi
    echo "bssid=$bssid"
    echo "ssid2=$hex"
    n=$((n + 1))
  done
} > "$hostile_conf"
cat "$hostile_conf"
# The spare radio's scan cache would keep these names for 30 s: the next
# camera_reset (after the pid file's hostapd is stopped) flushes it.
on_reset "ip link set $SPARE_IF up; iw dev $SPARE_IF scan trigger freq $hostile_freq flush > /dev/null 2>&1"
in_phone "$QVM_WORLD_BIN/home-hostapd" -B -t -f "$hostile-hostapd.log" -P "$hostile_pid" \
  "$hostile_conf" || {
  tail -20 "$hostile-hostapd.log"
  fail "the hostile access points' hostapd did not start"
  return 1
}
expect_true "the hostile access points are ENABLED" wait_for 20 hostile_enabled || {
  tail -20 "$hostile-hostapd.log"
  return 1
}
ip link set "$SPARE_IF" up

step "qira-wifi --json scan $SPARE_IF: one answer that a strict parser takes"
qira-wifi --json --timeout 30000 scan "$SPARE_IF" > "$hostile.json" 2> "$hostile.json.err"
expect_eq "qira-wifi --json scan exit status" 0 "$?"
qira-json-check < "$hostile.json" > "$hostile.flat" 2> "$hostile.check.err"
expect_eq "qira-json-check (strict JSON, UTF-8) accepts the answer" 0 "$?"
cat "$hostile.check.err"
expect_eq "the JSON answer has no control byte but line feeds" "" \
  "$(tr -d '\n' < "$hostile.json" | od -An -tx1 -v | tr ' ' '\n' | grep -E '^(0[0-9a-f]|1[0-9a-f]|7f)$' | sort -u | tr '\n' ' ')"

step "iw's own view of the same scan (iw dev $SPARE_IF scan dump)"
iw dev "$SPARE_IF" scan dump > "$hostile.iw"
grep -E '^BSS|^[[:space:]]+SSID:' "$hostile.iw"

step "qira-wifi scan $SPARE_IF: the table a person reads"
qira-wifi --timeout 30000 scan "$SPARE_IF" > "$hostile.txt" 2> "$hostile.txt.err"
expect_eq "qira-wifi scan exit status" 0 "$?"
cat "$hostile.txt"
expect_eq "the table has no control byte but line feeds" "" \
  "$(tr -d '\n' < "$hostile.txt" | od -An -tx1 -v | tr ' ' '\n' | grep -E '^(0[0-9a-f]|1[0-9a-f]|7f)$' | sort -u | tr '\n' ' ')"
expect_eq "the table is valid UTF-8 (no raw byte of the name that is not)" "" \
  "$(od -An -tx1 -v < "$hostile.txt" | tr ' ' '\n' | grep -E '^(ff|fe|9b)$' | sort -u | tr '\n' ' ')"

step "each name, byte for byte, against iw"
echo "$hostile_aps" | while read -r bssid hex shown what; do
  shown=$(printf '%s' "$shown" | tr '_' ' ')
  # iw's escaped name of this BSS, then its bytes.
  iw_name=$(awk -v b="$bssid" '/^BSS / { on = (substr($2, 1, 17) == b) }
    on && /^[[:space:]]+SSID:/ { sub(/^[[:space:]]+SSID: /, ""); print; exit }' "$hostile.iw")
  expect_eq "$what: iw saw the name sent" "$hex" "$(iw_hex "$iw_name")"
  index=$(ap_index "$hostile.flat" "$bssid")
  expect_match "$what: in qira-wifi's answer" '^[0-9]+$' "$index"
  expect_eq "$what: ssid_hex is iw's bytes" "$(hex_of "$hex")" \
    "$(flat_value "$hostile.flat" "access_points.$index.ssid_hex")"
  if [ "$what" = not-utf-8 ]; then
    expect_eq "$what: ssid is null" null "$(flat_kind "$hostile.flat" "access_points.$index.ssid")"
  else
    expect_eq "$what: ssid is the name, byte for byte" "$hex" \
      "$(flat_value "$hostile.flat" "access_points.$index.ssid")"
  fi
  expect_eq "$what: the table shows $shown" 1 \
    "$(grep -c -F "$bssid  $shown " "$hostile.txt")"
done

step "the hostile access points go"
stop_pidfile "$hostile_pid"
