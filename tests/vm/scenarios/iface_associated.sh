# Interface queries of an associated station: with wlan0 joined to the home
# WPA2 network by wpa_supplicant, every answer of the module (read through
# "qira-wifi --json info wlan0") agrees with what iw (nl80211) and iwconfig
# (wireless extensions) print for the same state, and with the world's own
# facts (the network's name, the access point's address and channel).
conf=$QVM_STATE/scenario/wpa.conf
home_wpa2_conf "$conf"
step "wlan0 joins $HOME_WPA2_SSID"
start_wpa_supplicant "$CAMERA_IF" "$conf" || return 1
wait_associated "$CAMERA_IF" 30 || return 1

# What the kernel tells through its other interfaces, just before and just
# after the module's queries: the rate and the signal may move in between.
read_kernel_view() { # read_kernel_view SUFFIX
  iw dev "$CAMERA_IF" link > "$QVM_STATE/scenario/link.$1"
  iw dev "$CAMERA_IF" info > "$QVM_STATE/scenario/info.$1"
  iwconfig "$CAMERA_IF" > "$QVM_STATE/scenario/iwconfig.$1" 2>&1
}
# iw_link FIELD SUFFIX: the value after "FIELD:" in "iw dev link".
iw_link() { sed -n "s/^[[:space:]]*$1: *//p" "$QVM_STATE/scenario/link.$2" | head -1; }
# iwconfig_field PATTERN SUFFIX: the first text that matches the sed pattern.
iwconfig_field() { sed -n "s|.*$1.*|\\1|p" "$QVM_STATE/scenario/iwconfig.$2" | head -1; }
# Truncated integer part of a decimal ("54.0" -> 54, "5.5" -> 5).
integer_part() { echo "${1%%.*}"; }

# The rate control and the signal average move while frames flow (the first
# seconds after joining carry IPv6 neighbour traffic), so the module's answer
# is compared with readings taken just before and just after it; the three
# are taken again until the moving values agree (at most 10 rounds).
moving_values() { # moving_values SUFFIX: the readings that may move
  echo "$(iw_link 'tx bitrate' "$1") $(iw_link signal "$1")" \
    "$(sed -n 's|.*Bit Rate[=:]\([0-9.]*\) Mb/s.*|\1|p; s|.*Link Quality=\([0-9/]*\) *Signal level=\([0-9-]*\).*|\1 \2|p' \
      "$QVM_STATE/scenario/iwconfig.$1" | tr '\n' ' ')"
}
step "the kernel's view, then the module's"
round=0
while :; do
  round=$((round + 1))
  read_kernel_view before
  qira_info "$QVM_STATE/scenario/info.flat" "$CAMERA_IF" || return 1
  read_kernel_view after
  [ "$(moving_values before)" = "$(moving_values after)" ] && break
  [ "$round" -ge 10 ] && break
  echo "round $round: readings moved ($(moving_values before) -> $(moving_values after)); again"
done
expect_eq "kernel readings steady around the module's queries" "$(moving_values before)" "$(moving_values after)"
for view in link info iwconfig; do
  echo "# $view:"
  cat "$QVM_STATE/scenario/$view.before"
done
flat=$QVM_STATE/scenario/info.flat
answer() { query_answer "$flat" "$1"; }

step "network name and access point"
ap_address=$(in_home cat "/sys/class/net/$HOME_WPA2_IF/address")
expect_eq "essid" "$HOME_WPA2_SSID" "$(answer essid)"
expect_eq "essid = iw link SSID" "$(iw_link SSID before)" "$(answer essid)"
expect_eq "essid = iwconfig ESSID" "$(iwconfig_field 'ESSID:"\([^"]*\)"' before)" "$(answer essid)"
expect_eq "bssid = the access point's address" "$ap_address" "$(answer bssid)"
expect_eq "bssid = iw link" "$(sed -n 's/^Connected to \([0-9a-f:]*\) .*/\1/p' "$QVM_STATE/scenario/link.before")" \
  "$(answer bssid)"
expect_eq "bssid = iwconfig Access Point (lower case)" \
  "$(iwconfig_field 'Access Point: \([0-9A-Fa-f:]*\)' before | tr 'A-F' 'a-f')" "$(answer bssid)"

step "frequency and channel"
expect_eq "freq" "$HOME_WPA2_FREQ" "$(answer freq)"
expect_eq "freq = iw link freq" "$(integer_part "$(iw_link freq before)")" "$(answer freq)"
expect_eq "freq = iwconfig Frequency" \
  "$(iwconfig_field 'Frequency:\([0-9.]*\) GHz' before | awk '{ printf "%.0f", $1 * 1000 }')" "$(answer freq)"
expect_eq "channel" "$HOME_WPA2_CHANNEL" "$(answer channel)"
expect_eq "channel = iw info channel" \
  "$(sed -n 's/^[[:space:]]*channel \([0-9]*\) .*/\1/p' "$QVM_STATE/scenario/info.before")" "$(answer channel)"

step "mode"
expect_eq "wireless_mode (IW_MODE_INFRA)" 2 "$(answer wireless_mode)"
expect_eq "iw info type" managed "$(sed -n 's/^[[:space:]]*type //p' "$QVM_STATE/scenario/info.before")"
expect_eq "iwconfig Mode" Managed "$(iwconfig_field 'Mode:\([A-Za-z-]*\)' before)"

step "bit rate and transmit power"
expect_eq "bitrate = iw link tx bitrate, truncated" \
  "$(integer_part "$(iw_link 'tx bitrate' before)")" "$(answer bitrate)"
expect_eq "bitrate = iwconfig Bit Rate, truncated" \
  "$(integer_part "$(iwconfig_field 'Bit Rate[=:]\([0-9.]*\) Mb/s' before)")" "$(answer bitrate)"
expect_eq "txpower = iw info txpower (dBm)" \
  "$(integer_part "$(sed -n 's/^[[:space:]]*txpower \([0-9.-]*\) dBm/\1/p' "$QVM_STATE/scenario/info.before")")" \
  "$(answer txpower)"
expect_eq "txpower = iwconfig Tx-Power" "$(iwconfig_field 'Tx-Power=\([0-9-]*\) dBm' before)" "$(answer txpower)"

step "link quality and signal"
expect_eq "quality = iwconfig Link Quality" \
  "$(iwconfig_field 'Link Quality=\([0-9]*\)/' before)" "$(answer quality)"
expect_eq "quality_max = iwconfig Link Quality maximum" \
  "$(iwconfig_field 'Link Quality=[0-9]*/\([0-9]*\)' before)" "$(answer quality_max)"
expect_eq "signal_level = iwconfig Signal level (dBm)" \
  "$(iwconfig_field 'Signal level=\([0-9-]*\) dBm' before)" "$(answer signal_level)"
# nl80211 reports the same station statistic; allow the driver's rounding.
expect_within "signal_level near iw link signal" \
  "$(iw_link signal before | sed 's/ dBm.*//; s/ .*//')" 1 "$(answer signal_level)"
expect_eq "noise_level (fixed answer)" -96 "$(answer noise_level)"

step "no query logged a failure"
expect_eq "log lines of all queries" 0 "$(grep -c '^queries\.[a-z_]*\.log\.' "$flat")"
