# Shared helpers of the virtual camera's scenarios (busybox sh). Sourced by
# /init and by every scenario; a scenario is a short script that drives the
# camera and records checks with the expect_* helpers, and the scenario
# passes when it recorded at least one check and none failed.
#
# The camera's world:
#   wlan0  the camera's station radio (root network namespace)
#   wlan1  a second station radio, never associated by the world
#   wlan2  home access point "HomeOpen", open, channel 1 (2412 MHz)
#   wlan3  home access point "HomeWPA2", WPA2-PSK "correct horse", channel 6
#          (2437 MHz), with a DHCP server (192.168.50.1, leases .100-.150)
#   wlan4  the phone of the setup flow, in the network namespace "phone"
# wlan2 and wlan3 live in the network namespace "home": with both ends of a
# link in one namespace the kernel would route the camera's traffic locally
# instead of over the simulated air. Both channels are 2.4 GHz ones that
# mac80211_hwsim's default (world) regulatory domain allows an AP to use; its
# 5 GHz channels are no-initiate-radiation there.

QVM_DIR=/usr/share/qira-vm
QVM_STATE=/run/qvm
QVM_FAILURES=$QVM_STATE/failures
QVM_CHECKS=$QVM_STATE/checks
QVM_HOME=$QVM_STATE/home
# The world's own daemons run under names of their own (links to the real
# programs): the module's host stops "hostapd", "dnsmasq", "udhcpc" and
# "wpa_supplicant" by name, in every namespace, and must not take the home
# networks or the phone down with the camera's daemons.
QVM_WORLD_BIN=$QVM_STATE/bin

CAMERA_IF=wlan0
SPARE_IF=wlan1
HOME_NS=home
HOME_OPEN_IF=wlan2 HOME_OPEN_SSID=HomeOpen HOME_OPEN_CHANNEL=1 HOME_OPEN_FREQ=2412
HOME_WPA2_IF=wlan3 HOME_WPA2_SSID=HomeWPA2 HOME_WPA2_CHANNEL=6 HOME_WPA2_FREQ=2437
HOME_WPA2_PSK="correct horse"
HOME_WPA2_ADDRESS=192.168.50.1
# The simulated phone of the setup flow: its own radio in its own namespace,
# so that its traffic to the camera's access point crosses the air.
PHONE_NS=phone
PHONE_IF=wlan4
# What the module and the identity record make of the setup access point:
# the interface the scenarios name, the address "apply --ap" gives it when
# the configuration has no fallback address, and the SSID built from the
# identity's name and hardware address.
SETUP_AP_IF=ap0
SETUP_AP_ADDRESS=192.168.1.20
SETUP_AP_SSID="Setup Virtual Camera (AB12)"
# The dnsmasq file the module writes for the setup access point.
SETUP_AP_DNSMASQ_CONF="domain-needed
bogus-priv
address=/#/$SETUP_AP_ADDRESS
interface=$SETUP_AP_IF
dhcp-range=192.168.1.50,192.168.1.150,12h"
# The hostapd file the module writes for the setup access point (no hook).
SETUP_AP_HOSTAPD_CONF="channel=1
ctrl_interface=/var/run/hostapd
driver=nl80211
hw_mode=g
interface=$SETUP_AP_IF
ssid=$SETUP_AP_SSID"
RADIO_COUNT=5

# busybox's shell runs its own "ip" applet for a bare "ip"; it knows no netns.
ip() { /usr/sbin/ip "$@"; }
in_home() { /usr/sbin/ip netns exec "$HOME_NS" "$@"; }
in_phone() { /usr/sbin/ip netns exec "$PHONE_NS" "$@"; }

uptime_s() { cut -d' ' -f1 /proc/uptime; }
# Hundredths of a second since boot, as an integer.
uptime_cs() {
  local up
  read -r up _ < /proc/uptime
  up=${up%.*}${up#*.}
  while [ "${#up}" -gt 1 ] && [ "${up#0}" != "$up" ]; do up=${up#0}; done
  echo "$up"
}

step() { echo "--- [$(uptime_s)] $*"; }

# ------------------------------------------------------------------ checks
fail() {
  echo "!!! FAIL: $*"
  echo "$*" >> "$QVM_FAILURES"
}
note_check() { echo "$1" >> "$QVM_CHECKS"; }

# expect_eq WHAT EXPECTED ACTUAL
expect_eq() {
  note_check "$1"
  if [ "$2" = "$3" ]; then
    echo "ok: $1 = '$3'"
  else
    fail "$1: expected '$2', got '$3'"
  fi
}

# expect_match WHAT EXTENDED-REGEX ACTUAL
expect_match() {
  note_check "$1"
  if printf '%s\n' "$3" | grep -Eq -- "$2"; then
    echo "ok: $1 matches /$2/"
  else
    fail "$1: '$(printf '%s' "$3" | head -c 200)' does not match /$2/"
  fi
}

# expect_within WHAT EXPECTED TOLERANCE ACTUAL (integers)
expect_within() {
  note_check "$1"
  case $2$4 in *[!0-9-]* | "")
    fail "$1: expected a number near '$2', got '$4'"
    return
    ;;
  esac
  local difference=$(($4 - $2))
  [ "$difference" -lt 0 ] && difference=$((-difference))
  if [ "$difference" -le "$3" ]; then
    echo "ok: $1 = $4 (expected $2 +-$3)"
  else
    fail "$1: expected $2 +-$3, got '$4'"
  fi
}

# expect_true WHAT COMMAND...: the command succeeds.
expect_true() {
  local what=$1
  shift
  note_check "$what"
  if "$@"; then echo "ok: $what"; else fail "$what"; fi
}

# wait_for SECONDS COMMAND...: polls COMMAND every 0.1 s until it succeeds
# (true) or SECONDS have passed (false). The only way the harness waits.
wait_for() {
  local deadline=$(($(uptime_cs) + $1 * 100))
  shift
  while :; do
    "$@" > /dev/null 2>&1 && return 0
    [ "$(uptime_cs)" -ge "$deadline" ] && return 1
    sleep 0.1
  done
}

# ------------------------------------------------------------------ JSON
# json_flatten FILE: "PATH<TAB>KIND<TAB>VALUE" lines (see json_flat.awk).
json_flatten() { awk -f "$QVM_DIR/json_flat.awk" "$1"; }
# json_get FLAT PATH / json_kind FLAT PATH: a value, or its kind, from the
# flattened file; empty when the path is absent.
json_get() { awk -F '\t' -v p="$2" '$1 == p { print $3; exit }' "$1"; }
json_kind() { awk -F '\t' -v p="$2" '$1 == p { print $2; exit }' "$1"; }
# json_count FLAT PREFIX: how many array elements PREFIX.N.* exist.
json_count() {
  awk -F '\t' -v p="$2." 'index($1, p) == 1 { n = substr($1, length(p) + 1); sub(/\..*/, "", n); seen[n] = 1 }
    END { c = 0; for (k in seen) c++; print c }' "$1"
}

# ------------------------------------------------------------------ processes
# stop_pidfile FILE: ends the process a pid file names and waits until it is gone.
stop_pidfile() {
  local pid
  [ -f "$1" ] || return 0
  pid=$(cat "$1")
  rm -f "$1"
  [ -n "$pid" ] || return 0
  kill "$pid" 2> /dev/null || return 0
  wait_for 10 sh -c "! kill -0 $pid" || {
    kill -9 "$pid" 2> /dev/null
    wait_for 5 sh -c "! kill -0 $pid"
  }
}

# pids_named NAME: the processes whose command name (/proc/PID/comm) is NAME,
# in every namespace: the way the module's host finds what it stops.
pids_named() {
  local comm pid name state key value
  for comm in /proc/[0-9]*/comm; do
    read -r name 2> /dev/null < "$comm" || continue
    [ "$name" = "$1" ] || continue
    pid=${comm#/proc/}
    pid=${pid%/comm}
    state=
    while read -r key value _; do
      [ "$key" = State: ] && { state=$value; break; }
    done 2> /dev/null < "/proc/$pid/status"
    [ "$state" = Z ] || echo "$pid"
  done
  return 0
}

no_process_named() { [ -z "$(pids_named "$1")" ]; }

# stop_named NAME...: ends the processes the module starts without pid files
# (hostapd, dnsmasq, udhcpc, wpa_supplicant) and waits until they are gone.
stop_named() {
  local name pids
  for name in "$@"; do
    pids=$(pids_named "$name")
    [ -n "$pids" ] || continue
    kill $pids 2> /dev/null
    wait_for 10 no_process_named "$name" || {
      kill -9 $(pids_named "$name") 2> /dev/null
      wait_for 5 no_process_named "$name"
    }
  done
}

# ------------------------------------------------------------------ the world
hostapd_enabled() { # hostapd_enabled IFNAME
  in_home hostapd_cli -p "$QVM_HOME/hostapd" -i "$1" status 2> /dev/null | grep -qx 'state=ENABLED'
}

start_home_ap() { # start_home_ap IFNAME CONFIG-TEXT
  printf '%s\n' "$2" > "$QVM_HOME/hostapd-$1.conf"
  in_home "$QVM_WORLD_BIN/home-hostapd" -B -t -f "$QVM_HOME/hostapd-$1.log" -P "$QVM_HOME/hostapd-$1.pid" \
    "$QVM_HOME/hostapd-$1.conf" || {
    fail "hostapd on $1 did not start"
    return 1
  }
  wait_for 20 hostapd_enabled "$1" || {
    fail "hostapd on $1 not ENABLED within 20 s"
    return 1
  }
}

# Loads the radios, moves the access points' radios into "home" and starts the
# two home networks. Once per boot, from /init.
world_up() {
  local ifname phy
  mkdir -p "$QVM_HOME/hostapd" "$QVM_WORLD_BIN"
  ln -sf /usr/bin/hostapd "$QVM_WORLD_BIN/home-hostapd"
  ln -sf /usr/bin/dnsmasq "$QVM_WORLD_BIN/home-dnsmasq"
  ln -sf /usr/bin/wpa_supplicant "$QVM_WORLD_BIN/phone-wpa_supplicant"
  # The module appends its access point's name to /etc/hosts: camera_reset
  # puts this copy back.
  cp /etc/hosts "$QVM_STATE/hosts.world"
  : > /var/log/vendor-tools.log
  modprobe mac80211_hwsim radios=$RADIO_COUNT || {
    fail "modprobe mac80211_hwsim failed"
    return 1
  }
  for module in ccm gcm ctr cmac; do
    modprobe "$module" || {
      fail "modprobe $module failed"
      return 1
    }
  done
  wait_for 10 test -e /sys/class/net/wlan$((RADIO_COUNT - 1)) || {
    fail "the $RADIO_COUNT simulated radios did not appear"
    return 1
  }
  ip netns add "$HOME_NS"
  in_home ip link set lo up
  ip netns add "$PHONE_NS"
  in_phone ip link set lo up
  phy=$(cat "/sys/class/net/$PHONE_IF/phy80211/name")
  iw phy "$phy" set netns name "$PHONE_NS" || {
    fail "cannot move $phy ($PHONE_IF) into netns $PHONE_NS"
    return 1
  }
  for ifname in $HOME_OPEN_IF $HOME_WPA2_IF; do
    phy=$(cat "/sys/class/net/$ifname/phy80211/name")
    iw phy "$phy" set netns name "$HOME_NS" || {
      fail "cannot move $phy ($ifname) into netns $HOME_NS"
      return 1
    }
  done
  start_home_ap "$HOME_OPEN_IF" "interface=$HOME_OPEN_IF
driver=nl80211
ctrl_interface=$QVM_HOME/hostapd
ssid=$HOME_OPEN_SSID
hw_mode=g
channel=$HOME_OPEN_CHANNEL" || return 1
  start_home_ap "$HOME_WPA2_IF" "interface=$HOME_WPA2_IF
driver=nl80211
ctrl_interface=$QVM_HOME/hostapd
ssid=$HOME_WPA2_SSID
hw_mode=g
channel=$HOME_WPA2_CHANNEL
wpa=2
wpa_key_mgmt=WPA-PSK
rsn_pairwise=CCMP
wpa_passphrase=$HOME_WPA2_PSK" || return 1
  in_home ip addr add "$HOME_WPA2_ADDRESS/24" dev "$HOME_WPA2_IF"
  # --conf-file=/dev/null: /etc/dnsmasq.conf belongs to the camera's own
  # setup access point, not to the home network.
  in_home "$QVM_WORLD_BIN/home-dnsmasq" --conf-file=/dev/null --port=0 --interface="$HOME_WPA2_IF" \
    --bind-interfaces --dhcp-authoritative \
    --dhcp-range=192.168.50.100,192.168.50.150,255.255.255.0,1h \
    --dhcp-leasefile="$QVM_HOME/dnsmasq.leases" --pid-file="$QVM_HOME/dnsmasq.pid" \
    --user=root --group=root --log-facility="$QVM_HOME/dnsmasq.log" --log-dhcp || {
    fail "home dnsmasq did not start"
    return 1
  }
  wait_for 10 test -s "$QVM_HOME/dnsmasq.pid" || {
    fail "home dnsmasq wrote no pid file"
    return 1
  }
}

# setup_flow_reset: undoes what the module's setup flow leaves behind: its
# daemons (started without pid files), the access point's interface, the
# files it writes, /etc/hosts as the world had it, the phone's radio.
setup_flow_reset() {
  stop_named hostapd dnsmasq udhcpc wpa_supplicant
  [ -e "/sys/class/net/$SETUP_AP_IF" ] && iw dev "$SETUP_AP_IF" del
  rm -rf /etc/wlan0.conf /tmp/wlan0.conf.* /etc/hostapd.conf /etc/dnsmasq.conf /etc/resolv.conf \
    /var/log/hostapd.log /var/log/dnsmasq.log /var/run/hostapd /var/run/dnsmasq.pid
  cp "$QVM_STATE/hosts.world" /etc/hosts
  in_phone ip addr flush dev "$PHONE_IF"
  in_phone ip link set "$PHONE_IF" down
}

# on_reset COMMAND-LINE: a scenario that changes the world itself (deletes a
# radio's interface, fills a file system) registers how to undo it; the next
# camera_reset runs it, also after the scenario failed half-way or was
# killed by its guard.
QVM_UNDO=$QVM_STATE/undo.sh
on_reset() { echo "$*" >> "$QVM_UNDO"; }

# Gives the next scenario a fresh camera: no station daemons, station radios
# down without addresses, an empty vendor-tool log; checks that the home
# networks still run.
camera_reset() {
  local file ifname
  for file in "$QVM_STATE"/*.pid; do
    [ -e "$file" ] && stop_pidfile "$file"
  done
  if [ -f "$QVM_UNDO" ]; then
    sh "$QVM_UNDO"
    rm -f "$QVM_UNDO"
  fi
  setup_flow_reset
  rm -rf /var/run/wpa_supplicant "$QVM_STATE"/scenario
  mkdir -p "$QVM_STATE/scenario"
  for ifname in $CAMERA_IF $SPARE_IF; do
    ip addr flush dev "$ifname"
    ip link set "$ifname" down
  done
  : > /var/log/vendor-tools.log
  hostapd_enabled "$HOME_OPEN_IF" || { fail "home AP $HOME_OPEN_SSID is down"; return 1; }
  hostapd_enabled "$HOME_WPA2_IF" || { fail "home AP $HOME_WPA2_SSID is down"; return 1; }
}

# ------------------------------------------------------------------ the station
wpa_state_is() { # wpa_state_is IFNAME STATE
  wpa_cli -i "$1" status 2> /dev/null | grep -qx "wpa_state=$2"
}

# home_wpa2_conf FILE [LINE...]: a wpa_supplicant configuration that joins
# HomeWPA2 (control interface under /var/run/wpa_supplicant, scanning only
# its channel), with each LINE added to its network block.
home_wpa2_conf() {
  local file=$1 line
  shift
  {
    echo "ctrl_interface=/var/run/wpa_supplicant"
    echo "network={"
    echo "    ssid=\"$HOME_WPA2_SSID\""
    echo "    key_mgmt=WPA-PSK"
    echo "    psk=\"$HOME_WPA2_PSK\""
    echo "    scan_freq=$HOME_WPA2_FREQ"
    for line in "$@"; do echo "    $line"; done
    echo "}"
  } > "$file"
}

# start_wpa_supplicant IFNAME CONFIG [OPTION...]: runs /bin/wpa_supplicant on
# the camera's radio (with the extra options, e.g. -d) and waits for its
# control socket.
start_wpa_supplicant() {
  local ifname=$1 conf=$2
  shift 2
  /bin/wpa_supplicant -B -t -i "$ifname" -D nl80211 -c "$conf" "$@" \
    -P "$QVM_STATE/wpa_supplicant-$ifname.pid" -f "$QVM_STATE/scenario/wpa_supplicant-$ifname.log" || {
    fail "wpa_supplicant on $ifname did not start"
    return 1
  }
  wait_for 10 test -S "/var/run/wpa_supplicant/$ifname" || {
    fail "no wpa_supplicant control socket for $ifname within 10 s"
    return 1
  }
}

# wait_associated IFNAME SECONDS
wait_associated() {
  wait_for "$2" wpa_state_is "$1" COMPLETED || {
    fail "$1 not associated within $2 s (wpa_state: $(wpa_cli -i "$1" status 2> /dev/null | sed -n 's/^wpa_state=//p'))"
    return 1
  }
}

# ap_authorized AP-IFNAME STATION-ADDRESS: the home access point has
# completed the station's key handshake (its port passes data).
ap_authorized() {
  in_home hostapd_cli -p "$QVM_HOME/hostapd" -i "$1" sta "$2" 2> /dev/null | grep -q '^flags=.*\[AUTHORIZED\]'
}

# dhcp_lease IFNAME: one DHCP exchange with busybox udhcpc; the address is
# set by udhcpc.sh. Retries are counted, not timed by sleeps.
dhcp_lease() {
  udhcpc -i "$1" -n -q -t 10 -T 1 -A 1 -s "$QVM_DIR/udhcpc.sh" > "$QVM_STATE/scenario/udhcpc-$1.log" 2>&1 || {
    fail "no DHCP lease on $1"
    return 1
  }
}

# ------------------------------------------------------------------ wpa-events
# The wpa_supplicant clients' socket files.
wpacl_files() { ls /tmp/wpacl-* 2> /dev/null; }
# monitors_attached COUNT: wpa_supplicant (run with -d) has logged at least
# COUNT monitor attachments.
monitors_attached() {
  [ "$(grep -c 'CTRL_IFACE monitor attached' "$QVM_STATE/scenario/wpa_supplicant-$CAMERA_IF.log")" -ge "$1" ]
}
# start_wpa_events: "qira-wifi wpa-events $CAMERA_IF" in the background, its
# events in $QVM_STATE/scenario/wpa-events.out, its stderr in .err beside
# it and, once it has ended, its exit status in .status; its pid file is
# $QVM_STATE/wpa-events.pid.
start_wpa_events() {
  (
    qira-wifi wpa-events "$CAMERA_IF" > "$QVM_STATE/scenario/wpa-events.out" \
      2> "$QVM_STATE/scenario/wpa-events.err" &
    echo $! > "$QVM_STATE/wpa-events.pid"
    wait $!
    echo $? > "$QVM_STATE/scenario/wpa-events.status"
  ) &
}

# ------------------------------------------------------------------ qira-wifi
# qira_info FLAT-FILE IFNAME: runs "qira-wifi --json info IFNAME", keeps the
# JSON beside FLAT-FILE and writes its flattened form into FLAT-FILE.
qira_info() {
  local flat=$1 ifname=$2 status
  command -v qira-wifi > /dev/null || {
    fail "qira-wifi is not in the image (built with --world-only?)"
    return 1
  }
  qira-wifi --json info "$ifname" > "$flat.json" 2> "$flat.stderr"
  status=$?
  echo "qira-wifi --json info $ifname: exit $status"
  cat "$flat.json"
  [ "$status" -eq 0 ] || {
    fail "qira-wifi --json info $ifname exited with $status: $(cat "$flat.stderr")"
    return 1
  }
  json_flatten "$flat.json" > "$flat" || {
    fail "qira-wifi printed JSON that does not parse"
    return 1
  }
}

# The answer of one query: its value, "null" for a success without an
# answer, or "failed" when the query returned false.
query_answer() { # query_answer FLAT NAME
  case $(json_kind "$1" "queries.$2.ok") in
    true) json_get "$1" "queries.$2.value" ;;
    false) echo failed ;;
    *) echo "absent" ;;
  esac
}

# expect_query_fails FLAT NAME MESSAGE ERRNO: the query failed and logged
# exactly one line, MESSAGE with errno ERRNO, at level 3 from the module.
expect_query_fails() {
  expect_eq "$2 result" failed "$(query_answer "$1" "$2")"
  expect_eq "$2 log lines" 1 "$(json_count "$1" "queries.$2.log")"
  expect_eq "$2 log message" "$3" "$(json_get "$1" "queries.$2.log.0.message")"
  expect_eq "$2 log errno" "$4" "$(json_get "$1" "queries.$2.log.0.errno")"
  expect_eq "$2 log level" 3 "$(json_get "$1" "queries.$2.log.0.level")"
  expect_eq "$2 log module" qira_network_utils_wireless "$(json_get "$1" "queries.$2.log.0.module")"
}

# ------------------------------------------------------------------ nl80211 listeners
# netlink_memberships PID: "INODE MASK DROPS" for each generic netlink socket
# of process PID that has joined multicast groups: its inode, the mask of
# the first 32 groups (in hex, as /proc/net/netlink prints it) and how many
# datagrams the kernel dropped on it for want of room. nl80211's groups are
# among them: its family is registered early, when the module loads.
netlink_memberships() {
  local fd socket
  for fd in /proc/"$1"/fd/*; do
    socket=$(readlink "$fd" 2> /dev/null) || continue
    case $socket in socket:\[*\]) ;; *) continue ;; esac
    socket=${socket#socket:\[}
    socket=${socket%\]}
    awk -v inode="$socket" '$2 == 16 && $10 == inode && $4 != "00000000" { print $10, $4, $9 }' /proc/net/netlink
  done
}
# netlink_groups PID: the masks of netlink_memberships.
netlink_groups() { netlink_memberships "$1" | cut -d' ' -f2; }

# has_joined PID MASK: one socket of process PID has joined every group of
# the hex MASK.
has_joined() {
  local mask
  for mask in $(netlink_groups "$1"); do
    [ $((0x$mask & 0x$2)) -eq $((0x$2)) ] && return 0
  done
  return 1
}

# start_event_listeners DIR: "qira-wifi --json events" (stdout to
# DIR/events.out, stderr to DIR/events.err; TEXT as a second argument
# prints text lines instead) and "iw event -t" (DIR/iw-event.txt) in the
# background, pid files in $QVM_STATE. Returns once both have joined the
# groups the module joins: qira-wifi says it listens once its module has
# joined them, and iw's socket must hold the same memberships.
start_event_listeners() {
  local dir=$1 format=${2:-} mask
  iw event -t > "$dir/iw-event.txt" 2>&1 &
  echo $! > "$QVM_STATE/iw-event.pid"
  if [ "$format" = TEXT ]; then
    qira-wifi events > "$dir/events.out" 2> "$dir/events.err" &
  else
    qira-wifi --json events > "$dir/events.out" 2> "$dir/events.err" &
  fi
  echo $! > "$QVM_STATE/qira-events.pid"
  wait_for 10 grep -qx "qira-wifi: listening for nl80211 events" "$dir/events.err" || {
    fail "qira-wifi events did not listen within 10 s: $(cat "$dir/events.err")"
    return 1
  }
  mask=$(netlink_groups "$(cat "$QVM_STATE/qira-events.pid")" | head -1)
  [ -n "$mask" ] || {
    fail "qira-wifi events has joined no netlink group"
    return 1
  }
  wait_for 10 has_joined "$(cat "$QVM_STATE/iw-event.pid")" "$mask" || {
    fail "iw event did not join the groups $mask within 10 s"
    return 1
  }
  EVENT_GROUPS=$mask
}

# ------------------------------------------------------------------ iw event
# The spare radio's scans, as "iw event" reports them into $SPARE_EVENTS.
SPARE_EVENTS=$QVM_STATE/scenario/iw-events
# spare_event_count EXTENDED-REGEX: how many of the spare radio's event lines match.
spare_event_count() { grep -cE "^$SPARE_IF \(phy #[0-9]+\): $1" "$SPARE_EVENTS"; }
spare_event_count_above() { [ "$(spare_event_count "$1")" -gt "$2" ]; }
# Every scan that started has been reported ended.
spare_scans_settled() {
  [ "$(spare_event_count 'scan (finished|aborted)')" -ge "$(spare_event_count 'scan started')" ]
}
# A one-channel scan of the spare radio, until iw event has reported one
# start: it tells that the listener has joined nl80211's groups.
spare_probe_heard() {
  iw dev "$SPARE_IF" scan trigger freq "$HOME_OPEN_FREQ" > /dev/null 2>&1
  spare_event_count_above 'scan started' 0
}
# listen_spare_events: starts "iw event" into $SPARE_EVENTS (pid file
# $QVM_STATE/scan-iw-event.pid) and returns once it listens and no scan of
# the spare radio runs.
listen_spare_events() {
  : > "$SPARE_EVENTS"
  iw event > "$SPARE_EVENTS" 2>&1 &
  echo $! > "$QVM_STATE/scan-iw-event.pid"
  wait_for 20 spare_probe_heard || {
    fail "iw event reported no scan of $SPARE_IF within 20 s"
    return 1
  }
  wait_for 20 spare_scans_settled || {
    fail "the probing scan of $SPARE_IF did not end within 20 s"
    return 1
  }
}

# ------------------------------------------------------------------ the setup flow
# The camera's setup access point as "qira-wifi apply/connect --ap" makes it,
# and the simulated phone that joins it from the network namespace "phone".
setup_ap_state_is() { # setup_ap_state_is STATE
  hostapd_cli -p /var/run/hostapd -i "$SETUP_AP_IF" status 2> /dev/null | grep -qx "state=$1"
}

# setup_ap_value KEY: one line of the setup access point's hostapd status.
setup_ap_value() {
  hostapd_cli -p /var/run/hostapd -i "$SETUP_AP_IF" status 2> /dev/null | sed -n "s/^$1=//p"
}

# run_qira_wifi WHAT EXPECTED-LINE ARGS...: runs qira-wifi (its module log on
# stderr), shows what it printed and checks its one output line.
run_qira_wifi() {
  local what=$1 expected=$2 output
  shift 2
  echo "camera# qira-wifi $*"
  output=$(qira-wifi --verbose "$@" 2> "$QVM_STATE/scenario/qira-wifi.stderr")
  sed 's/^/  log: /' "$QVM_STATE/scenario/qira-wifi.stderr"
  echo "$output"
  expect_eq "$what" "$expected" "$output"
  [ "$expected" = "$output" ]
}

# setup_ap_up CONFIG: "apply --ap" and "connect --ap" on the setup access
# point's interface; waits until its hostapd is ENABLED.
setup_ap_up() {
  run_qira_wifi "apply --ap" "apply $SETUP_AP_IF: done" apply "$SETUP_AP_IF" "$1" --ap || return 1
  run_qira_wifi "connect --ap" "connect $SETUP_AP_IF: done" connect "$SETUP_AP_IF" --ap || return 1
  expect_true "setup access point hostapd ENABLED" wait_for 20 setup_ap_state_is ENABLED
}

# phone_cli ARGS...: wpa_cli on the phone's wpa_supplicant.
phone_cli() { in_phone wpa_cli -p "$QVM_STATE/phone" -i "$PHONE_IF" "$@"; }
phone_state_is() { phone_cli status 2> /dev/null | grep -qx "wpa_state=$1"; }

# phone_start SSID [LINE...]: starts the phone's own wpa_supplicant (log in
# $QVM_STATE/scenario/phone-wpa_supplicant.log) for the network SSID on the
# setup access point's channel; the LINEs describe its security (default:
# "key_mgmt=NONE", an open network).
phone_start() {
  local ssid=$1 line
  shift
  [ "$#" -gt 0 ] || set -- key_mgmt=NONE
  {
    echo "ctrl_interface=$QVM_STATE/phone"
    echo "network={"
    echo "    ssid=\"$ssid\""
    for line in "$@"; do echo "    $line"; done
    echo "    scan_freq=$HOME_OPEN_FREQ"
    echo "}"
  } > "$QVM_STATE/scenario/phone-wpa.conf"
  in_phone "$QVM_WORLD_BIN/phone-wpa_supplicant" -B -t -i "$PHONE_IF" -D nl80211 \
    -c "$QVM_STATE/scenario/phone-wpa.conf" -P "$QVM_STATE/phone-wpa_supplicant.pid" \
    -f "$QVM_STATE/scenario/phone-wpa_supplicant.log" || {
    fail "the phone's wpa_supplicant did not start"
    return 1
  }
}

# phone_join SSID [LINE...]: phone_start, then waits until the phone has
# joined.
phone_join() {
  phone_start "$@" || return 1
  wait_for 30 phone_state_is COMPLETED || {
    fail "the phone did not join '$1' within 30 s (wpa_state: $(phone_cli status 2> /dev/null | sed -n 's/^wpa_state=//p'))"
    return 1
  }
}

# phone_lease: one DHCP exchange of the phone (busybox udhcpc in its
# namespace); prints the leased address with its prefix length.
phone_lease() {
  in_phone udhcpc -i "$PHONE_IF" -n -q -t 10 -T 1 -A 1 -s "$QVM_DIR/udhcpc.sh" \
    > "$QVM_STATE/scenario/udhcpc-phone.log" 2>&1 || {
    fail "no DHCP lease for the phone: $(tail -3 "$QVM_STATE/scenario/udhcpc-phone.log")"
    return 1
  }
  in_phone ip -4 -o addr show dev "$PHONE_IF" | awk '{ print $4 }'
}

# expect_phone_served: the phone leases an address in the setup range from
# the camera's dnsmasq (which logs the DHCPACK) and pings the access point
# over the air.
expect_phone_served() {
  local lease mac
  lease=$(phone_lease) || return 1
  echo "phone: $lease"
  expect_match "phone address in 192.168.1.50-150" '^192\.168\.1\.([5-9][0-9]|1[0-4][0-9]|150)/24$' "$lease"
  mac=$(in_phone cat "/sys/class/net/$PHONE_IF/address")
  expect_true "dnsmasq log: DHCPACK for the phone" wait_for 5 grep -q \
    "DHCPACK($SETUP_AP_IF) ${lease%/*} $mac" /var/log/dnsmasq.log
  expect_true "phone pings the access point over the air" in_phone ping -c 1 -W 5 "$SETUP_AP_ADDRESS"
}

# write_station_config FILE [MEMBERS]: the stored configuration of the
# camera's station for HomeWPA2, as "qira-wifi apply" takes it; MEMBERS are
# the JSON members after "wifi" (default: DHCP, with the fallback address of
# the setup access point). The station file keeps the pre-shared key
# unquoted, so the configuration holds the passphrase in double quotes (a
# bare passphrase would be read as 64 hex digits).
write_station_config() {
  local members=${2:-}
  [ -n "$members" ] ||
    members="\"dhcp\": {\"status\": 1, \"fallbackIP\": \"$SETUP_AP_ADDRESS\", \"fallbackNetmask\": \"255.255.255.0\"}"
  cat > "$1" << JSON
{"wifi": {"ssid": "$HOME_WPA2_SSID", "key": "wpa2",
          "wpa": {"auth": "psk", "psk": "\"$HOME_WPA2_PSK\""}},
 $members}
JSON
}

# The members after "wifi" of a station configuration with a static address
# on HomeWPA2's network: no DHCP client runs.
STATION_STATIC_MEMBERS='"dhcp": {"status": 0},
 "statik": {"ip": "192.168.50.20", "netmask": "255.255.255.0"}'

# write_setup_ap_config FILE: the stored configuration "apply --ap" takes for
# the setup access point: its address as the DHCP fallback address.
write_setup_ap_config() {
  cat > "$1" << JSON
{"dhcp": {"fallbackIP": "$SETUP_AP_ADDRESS", "fallbackNetmask": "255.255.255.0"}}
JSON
}

# The station file "apply" writes for that configuration.
station_file_text() {
  printf 'ctrl_interface=/var/run/wpa_supplicant\nupdate_config=1\nwowlan_triggers=any\nnetwork={\n'
  printf '\tssid="%s"\n\tscan_ssid=1\n\tproto=WPA RSN\n\tkey_mgmt=WPA-PSK\n\tpsk="%s"\n' \
    "$HOME_WPA2_SSID" "$HOME_WPA2_PSK"
  printf '\tpairwise=CCMP TKIP\n\tgroup=CCMP TKIP\n\tauth_alg=OPEN\n}\n'
}

# home_connections STATION-ADDRESS: how many times the station completed
# its key handshake with HomeWPA2, by the home access point's log.
home_connections() {
  grep -c "AP-STA-CONNECTED $1" "$QVM_HOME/hostapd-$HOME_WPA2_IF.log"
}
