# Endurance: the radio switched from station mode to the setup access point
# and back, again and again, by one long-lived host (qira-vm-host) that
# loaded the module once, as the camera's host does over its life. Each
# cycle:
#   - the setup access point: "apply ap0 --ap" and "connect ap0 --ap"; the
#     phone joins it and leases an address from the camera's dnsmasq;
#   - "disconnect ap0 --ap";
#   - station mode: "apply wlan0" (a static address) and "connect wlan0";
#     wlan0 joins HomeWPA2 and pings its access point over the air;
#   - "disconnect wlan0".
# Every cycle must succeed. After the first cycle and after the last, the
# camera's processes (by name), the host's descriptors, the socket files and
# the files in /tmp are counted: the last may hold no more than the first.
# The host's resident set is printed at cycles 1, 50 and 100 (and the last),
# with its anonymous part (heap and stacks, what a leak grows) and the
# mapped files' pages. The anonymous part must not grow by more than 256 kB
# from cycle 1 to the last, nor the whole resident set from cycle 2 to the
# last: the first flush of wlan0's addresses (cycle 1) finds none to delete,
# so cycle 2 is the first to run libnl's address deletion and to bring its
# pages in (about 310 kB of the route library on the armhf camera, which
# the host opens at its first flush; 100 kB of anonymous memory come in
# cycle 2 on either library layout).
#
# The suite runs 3 cycles; the 100-cycle measurement runs with
# "qira_endurance_cycles=100" on the kernel command line
# (QIRA_VM_APPEND="qira_endurance_cycles=100" QIRA_VM_SCENARIO_TIMEOUT=5400
# tests/vm/run.sh --timeout 5600 faults_endurance).
. "$QVM_DIR/camera_host.sh"
cycles=${qira_endurance_cycles:-3}
ap_conf=$QVM_STATE/scenario/ap.json
sta_conf=$QVM_STATE/scenario/station.json
answer=$QVM_STATE/scenario/answer
snapshots=$QVM_STATE/scenario/snapshot
write_setup_ap_config "$ap_conf"
write_station_config "$sta_conf" "$STATION_STATIC_MEMBERS"

# host_step WHAT SECONDS COMMAND...: one command of the host, which must
# succeed; its answer is kept in $answer.
host_step() {
  local what=$1 seconds=$2
  shift 2
  host_call "$seconds" "$@" > "$answer" && return 0
  fail "cycle $cycle: $what failed: $(tr '\n' ';' < "$answer")"
  return 1
}

# snapshot NAME: what the camera holds now, one file per kind. Processes by
# name, kernel threads (no program) left out; read with the shell's own
# builtins, so that the snapshot sees none of its own.
snapshot() {
  local process name
  for process in /proc/[0-9]*; do
    [ -e "$process/exe" ] || continue
    read -r name 2> /dev/null < "$process/comm" && echo "$name"
  done > "$snapshots.$1.processes.unsorted"
  sort "$snapshots.$1.processes.unsorted" > "$snapshots.$1.processes"
  ls "/proc/$HOST_PID/fd" | wc -l > "$snapshots.$1.fds"
  find / -xdev -type s 2> /dev/null | sort > "$snapshots.$1.sockets"
  find /run -type s 2> /dev/null | sort >> "$snapshots.$1.sockets"
  ls -A /tmp | sort > "$snapshots.$1.tmp"
}
# more_than KIND: the lines of the last snapshot of KIND that it holds more
# often than the first, each with the two counts.
more_than() {
  awk 'FNR == NR { first[$0]++; next } { last[$0]++ }
    END { for (line in last) if (last[line] > first[line]) print line " (" first[line] + 0 " then " last[line] ")" }' \
    "$snapshots.first.$1" "$snapshots.last.$1"
}
rss_kb() { awk '$1 == "VmRSS:" { print $2 }' "/proc/$HOST_PID/status"; }
# The anonymous part of the resident set. The rest is the pages of mapped
# files, resident once first touched (on the camera's tmpfs root they count
# as shared memory, RssShmem, rather than RssFile).
anon_kb() { awk '$1 == "RssAnon:" { print $2 }' "/proc/$HOST_PID/status"; }

# phase NAME: closes the running phase of the cycle and records its time
# in $phases ("NAME MS, ...").
phase() {
  local now
  now=$(uptime_cs)
  phases="$phases$1 $(((now - phase_started) * 10)), "
  phase_started=$now
}

# One cycle; false after its first failed step.
cycle_once() {
  phases=
  phase_started=$(uptime_cs)
  host_step "apply --ap" 60 apply "$SETUP_AP_IF" "$ap_conf" ap || return 1
  host_step "connect --ap" 30 connect "$SETUP_AP_IF" ap || return 1
  wait_for 30 setup_ap_state_is ENABLED || {
    fail "cycle $cycle: the setup access point's hostapd not ENABLED within 30 s"
    return 1
  }
  phase "access point up"
  stop_pidfile "$QVM_STATE/phone-wpa_supplicant.pid"
  in_phone ip addr flush dev "$PHONE_IF"
  phone_join "$SETUP_AP_SSID" || return 1
  phase "phone joined"
  phone_lease > "$answer" || return 1
  phase "phone leased"
  host_step "disconnect --ap" 30 disconnect "$SETUP_AP_IF" ap || return 1
  host_step "apply $CAMERA_IF" 60 apply "$CAMERA_IF" "$sta_conf" || return 1
  host_step "connect $CAMERA_IF" 30 connect "$CAMERA_IF" || return 1
  phase "station started"
  # The station file names no frequencies: wpa_supplicant scans every channel.
  wait_associated "$CAMERA_IF" 60 || return 1
  phase "station joined"
  ping -c 1 -W 5 "$HOME_WPA2_ADDRESS" > /dev/null || {
    fail "cycle $cycle: no answer from $HOME_WPA2_ADDRESS over the air"
    return 1
  }
  host_step "disconnect $CAMERA_IF" 30 disconnect "$CAMERA_IF" || return 1
  phase "station pinged and left"
}

host_start || return 1
step "$cycles cycles: setup access point with the phone, then station on $HOME_WPA2_SSID"
passed=0
total_cs=0
cycle=0
report=
while [ "$cycle" -lt "$cycles" ]; do
  cycle=$((cycle + 1))
  started=$(uptime_cs)
  cycle_once || break
  took=$(($(uptime_cs) - started))
  total_cs=$((total_cs + took))
  passed=$((passed + 1))
  rss=$(rss_kb)
  fds=$(ls "/proc/$HOST_PID/fd" | wc -l)
  anon=$(anon_kb)
  echo "cycle $cycle: ok in $((took * 10)) ms (${phases%, }); host RSS $rss kB (anonymous $anon kB), $fds descriptors"
  [ "$cycle" -eq 1 ] && snapshot first && first_anon=$anon && second_rss=$rss
  [ "$cycle" -eq 2 ] && second_rss=$rss
  case $cycle in 1 | 50 | 100 | "$cycles") report="$report cycle $cycle: $rss kB (anonymous $anon kB), $fds descriptors;" ;; esac
done
expect_eq "cycles that succeeded" "$cycles" "$passed"
[ "$passed" -gt 0 ] || return 1
snapshot last
echo "figure: $passed cycles, $((total_cs * 10 / passed)) ms per cycle on average"
echo "figure: host resident set and descriptors:${report%;}"
expect_eq "processes beyond those after cycle 1" "" "$(more_than processes | tr '\n' ' ')"
expect_eq "host descriptors after the last cycle" "$(cat "$snapshots.first.fds")" "$(cat "$snapshots.last.fds")"
expect_eq "socket files beyond those after cycle 1" "" "$(more_than sockets | tr '\n' ' ')"
expect_eq "/tmp files beyond those after cycle 1" "" "$(more_than tmp | tr '\n' ' ')"
growth=$(($(anon_kb) - first_anon))
echo "figure: host anonymous memory grew by $growth kB from cycle 1 to cycle $passed"
expect_true "host anonymous memory flat (grew $growth kB from cycle 1, at most 256)" \
  [ "$growth" -le 256 ]
growth=$(($(rss_kb) - second_rss))
echo "figure: host RSS grew by $growth kB from cycle $((passed < 2 ? passed : 2)) to cycle $passed"
expect_true "host RSS flat (grew $growth kB from cycle 2, at most 256)" [ "$growth" -le 256 ]
host_stop
