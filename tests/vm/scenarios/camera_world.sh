# The camera's own world, as the module will use it: its programs at their
# fixed paths, the vendor stand-ins, the users and groups of the dnsmasq
# command line, syslog, /etc/hosts and the identity record.
step "programs at the paths the module runs"
expect_match "/bin/iw" '^iw version ' "$(/bin/iw --version)"
expect_match "/bin/wpa_supplicant" '^wpa_supplicant v' "$(/bin/wpa_supplicant -v | head -1)"
expect_match "/bin/hostapd" '^hostapd v' "$(/bin/hostapd -v 2>&1 | head -1)"
expect_match "/bin/dnsmasq" '^Dnsmasq version ' "$(/bin/dnsmasq --version | head -1)"
expect_eq "/var/run is /run" /run "$(readlink -f /var/run)"

step "vendor stand-ins record their command lines"
expect_true "/bin/wl ap 0" /bin/wl ap 0
expect_true "/bin/wl disassoc" /bin/wl disassoc
expect_true "/bin/wifi_setup.sh" /bin/wifi_setup.sh
expect_eq "vendor tool log" "wl ap 0
wl disassoc
wifi_setup.sh " "$(cat /var/log/vendor-tools.log)"

step "users, groups, hosts, syslog"
expect_eq "user qira" 1000 "$(id -u qira)"
expect_eq "group admin" admin:1001 "$(awk -F: '$1 == "admin" { print $1 ":" $3 }' /etc/group)"
# dnsmasq drops to "-u qira -g admin" as the module starts it; a throw-away
# instance on the loopback shows the names resolve and the switch works.
/bin/dnsmasq --conf-file=/dev/null --port=5353 --listen-address=127.0.0.1 --bind-interfaces \
  -u qira -g admin --pid-file="$QVM_STATE/world-dnsmasq.pid"
expect_true "dnsmasq -u qira -g admin started" wait_for 10 test -s "$QVM_STATE/world-dnsmasq.pid"
pid=$(cat "$QVM_STATE/world-dnsmasq.pid")
expect_match "dnsmasq runs as qira" '^Uid:[[:space:]]+1000[[:space:]]' "$(grep '^Uid:' "/proc/$pid/status")"
expect_match "dnsmasq runs as group admin" '^Gid:[[:space:]]+1001[[:space:]]' "$(grep '^Gid:' "/proc/$pid/status")"
stop_pidfile "$QVM_STATE/world-dnsmasq.pid"
expect_match "/etc/hosts localhost" '^127\.0\.0\.1[[:space:]]+localhost$' "$(cat /etc/hosts)"
marker="camera-world-$$-$(uptime_cs)"
logger -t camera_world "$marker"
expect_true "syslogd writes /var/log/messages" wait_for 10 grep -q "camera_world: $marker" /var/log/messages

step "identity record"
json_flatten /etc/qira/identity.json > "$QVM_STATE/scenario/identity.flat"
expect_eq "sysid" 25248 "$(json_get "$QVM_STATE/scenario/identity.flat" sysid)"
expect_eq "name" "Virtual Camera" "$(json_get "$QVM_STATE/scenario/identity.flat" name)"
expect_eq "hwaddr" 02000000AB12 "$(json_get "$QVM_STATE/scenario/identity.flat" hwaddr)"
