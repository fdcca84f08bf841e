# Interface queries where there is nothing to report: wlan1, a station radio
# that is up but has joined no network, and "nosuch0", a name no interface
# has. Each query answers exactly what the real kernel lets it answer, and
# each failure is the one log line "netlib: ioctl(<request>) failed" with the
# kernel's errno.
#
# What cfg80211's wireless-extension handlers give for a station without a
# link (kernel 6.1): the ESSID is empty and the access point address is all
# zeros (both succeed); frequency has no channel to report (EINVAL); bit rate
# and statistics have no station to ask (EOPNOTSUPP); range, transmit power
# and mode still answer. For a name without an interface every request ends
# in ENODEV before reaching a driver.
readonly EINVAL=22 ENODEV=19 EOPNOTSUPP=95

step "wlan1 up, not associated"
ip link set "$SPARE_IF" up
wait_for 10 sh -c "/usr/sbin/ip link show $SPARE_IF | grep -q '<.*UP.*>'" || fail "$SPARE_IF did not come up"
expect_eq "iw link of $SPARE_IF" "Not connected." "$(iw dev "$SPARE_IF" link)"
iwconfig "$SPARE_IF"
iw dev "$SPARE_IF" info

flat=$QVM_STATE/scenario/spare.flat
qira_info "$flat" "$SPARE_IF" || return 1
expect_eq "essid (empty)" "" "$(query_answer "$flat" essid)"
expect_eq "essid value is a string" string "$(json_kind "$flat" queries.essid.value)"
expect_eq "bssid (no access point)" 00:00:00:00:00:00 "$(query_answer "$flat" bssid)"
expect_query_fails "$flat" freq "netlib: ioctl(8B05) failed" "$EINVAL"
expect_query_fails "$flat" channel "netlib: ioctl(8B05) failed" "$EINVAL"
expect_query_fails "$flat" bitrate "netlib: ioctl(8B21) failed" "$EOPNOTSUPP"
expect_eq "txpower = iw info txpower" \
  "$(iw dev "$SPARE_IF" info | sed -n 's/^[[:space:]]*txpower \([0-9-]*\)\..* dBm/\1/p')" \
  "$(query_answer "$flat" txpower)"
expect_query_fails "$flat" quality "netlib: ioctl(8B0F) failed" "$EOPNOTSUPP"
expect_eq "quality_max (range record)" 70 "$(query_answer "$flat" quality_max)"
expect_query_fails "$flat" signal_level "netlib: ioctl(8B0F) failed" "$EOPNOTSUPP"
expect_eq "noise_level (fixed answer)" -96 "$(query_answer "$flat" noise_level)"
expect_eq "wireless_mode (IW_MODE_INFRA)" 2 "$(query_answer "$flat" wireless_mode)"

step "nosuch0: no such interface"
expect_true "nosuch0 does not exist" sh -c '! test -e /sys/class/net/nosuch0'
flat=$QVM_STATE/scenario/nosuch.flat
qira_info "$flat" nosuch0 || return 1
expect_query_fails "$flat" essid "netlib: ioctl(8B1B) failed" "$ENODEV"
expect_query_fails "$flat" bssid "netlib: ioctl(8B15) failed" "$ENODEV"
expect_query_fails "$flat" freq "netlib: ioctl(8B05) failed" "$ENODEV"
expect_query_fails "$flat" channel "netlib: ioctl(8B05) failed" "$ENODEV"
expect_query_fails "$flat" bitrate "netlib: ioctl(8B21) failed" "$ENODEV"
expect_query_fails "$flat" txpower "netlib: ioctl(8B27) failed" "$ENODEV"
expect_query_fails "$flat" quality "netlib: ioctl(8B0F) failed" "$ENODEV"
expect_query_fails "$flat" quality_max "netlib: ioctl(8B0B) failed" "$ENODEV"
expect_query_fails "$flat" signal_level "netlib: ioctl(8B0F) failed" "$ENODEV"
expect_eq "noise_level (fixed answer, no request)" -96 "$(query_answer "$flat" noise_level)"
expect_query_fails "$flat" wireless_mode "netlib: ioctl(8B07) failed" "$ENODEV"
