# Wall time of the command-line program against the system's own tools on
# the same radios, side by side in one boot: "qira-wifi scan wlan1" against
# iw's scan of wlan1, taking turns (each triggers a scan, waits for the
# kernel's end of scan and reads the results); and "qira-wifi info wlan0"
# (load the module, every wireless-extension query) against
# "iwconfig wlan0", with wlan0 associated to HomeWPA2, beside two floors
# (qira-start-floor, a C++ program that does nothing; qira-info-floor, the
# reference host loading the module and making info's queries) and
# "qira-wifi --help", the program's start alone (its libraries, the module
# among them, loaded; nothing initialised).
#
# The figures are printed, never judged: what is checked is that every run
# succeeded and saw what the world holds. Times come from /proc/uptime
# (centiseconds), so the queries are timed over a loop of many runs.
# The suite's run is a smoke run (1 scan round, 20 runs of each start-up
# command): the figures come from a run with more,
# QIRA_VM_APPEND="qira_bench_scans=3 qira_bench_queries=100" tests/vm/run.sh bench_air
# ("qira_bench_scans=N qira_bench_queries=N" on the kernel command line).
scans=${qira_bench_scans:-1}
queries=${qira_bench_queries:-20}
out=$QVM_STATE/scenario/bench
conf=$QVM_STATE/scenario/wpa.conf

# timed_ms COMMAND...: runs COMMAND with its output in $out.stdout and
# $out.stderr; prints the wall milliseconds, answers its exit status.
timed_ms() {
  local started status
  started=$(uptime_cs)
  "$@" > "$out.stdout" 2> "$out.stderr"
  status=$?
  echo $((($(uptime_cs) - started) * 10))
  return "$status"
}
# iw_scan: iw's scan of the spare radio. The combined "iw dev wlan1 scan"
# can livelock on this kernel, so it is iw's three steps: "scan trigger",
# the end that "iw event" reports, "scan dump" (the wait polls every 0.1 s,
# which iw's figure includes).
iw_scan() {
  local ended
  ended=$(spare_event_count 'scan finished')
  iw dev "$SPARE_IF" scan trigger || return 1
  wait_for 30 spare_event_count_above 'scan finished' "$ended" || return 1
  iw dev "$SPARE_IF" scan dump
}
# summary NAME MS...: "NAME: min A avg B max C ms over N runs".
summary() {
  local name=$1
  shift
  echo "$*" | tr ' ' '\n' | awk -v name="$name" '
    NR == 1 || $1 < min { min = $1 } $1 > max { max = $1 } { sum += $1; n++ }
    END { printf "%s: min %d avg %d max %d ms over %d runs\n", name, min, sum / n, max, n }'
}

step "wlan0 joins $HOME_WPA2_SSID; $SPARE_IF is up"
home_wpa2_conf "$conf"
start_wpa_supplicant "$CAMERA_IF" "$conf" || return 1
wait_associated "$CAMERA_IF" 30 || return 1
ip link set "$SPARE_IF" up
listen_spare_events || return 1

step "$scans rounds: qira-wifi scan $SPARE_IF, then iw's scan of $SPARE_IF"
qira_times='' iw_times='' qira_ok=0 iw_ok=0 round=0
while [ "$round" -lt "$scans" ]; do
  round=$((round + 1))
  ms=$(timed_ms qira-wifi --json --timeout 30000 scan "$SPARE_IF")
  status=$?
  found=$(grep -cE "\"ssid\": \"($HOME_OPEN_SSID|$HOME_WPA2_SSID)\"" "$out.stdout")
  [ "$status" -eq 0 ] && [ "$found" -eq 2 ] && qira_ok=$((qira_ok + 1))
  qira_times="$qira_times $ms"
  echo "round $round: qira-wifi scan $ms ms (exit $status, $found of 2 home networks)"
  ms=$(timed_ms iw_scan)
  status=$?
  found=$(grep -cE "^	SSID: ($HOME_OPEN_SSID|$HOME_WPA2_SSID)\$" "$out.stdout")
  [ "$status" -eq 0 ] && [ "$found" -eq 2 ] && iw_ok=$((iw_ok + 1))
  iw_times="$iw_times $ms"
  echo "round $round: iw scan $ms ms (exit $status, $found of 2 home networks)"
done
expect_eq "qira-wifi scans that listed both home networks" "$scans" "$qira_ok"
expect_eq "iw scans that listed both home networks" "$scans" "$iw_ok"
stop_pidfile "$QVM_STATE/scan-iw-event.pid"

# The start-up commands, each run $queries times in blocks of 10 that take
# turns, so that a change of the machine's load falls on all of them alike:
# iwconfig (a C program: libiw, libm, libc), qira-start-floor (a C++
# program that does nothing: what libstdc++ alone costs), qira-info-floor
# (the reference host loading the module and making info's queries, with
# nothing of qira-wifi's own), qira-wifi info and qira-wifi --help.
starters="iwconfig start_floor info_floor info help"
run_starter() { # run_starter NAME
  case $1 in
    iwconfig) iwconfig "$CAMERA_IF" ;;
    start_floor) qira-start-floor ;;
    info_floor) qira-info-floor "$CAMERA_IF" ;;
    info) qira-wifi info "$CAMERA_IF" ;;
    help) qira-wifi --help ;;
  esac
}
step "$queries runs each, in blocks of 10 taking turns: $starters"
expect_match "qira-wifi info names the network" "^essid: *\"?$HOME_WPA2_SSID\"?\$" \
  "$(qira-wifi info "$CAMERA_IF" 2>&1 | grep '^essid:')"
expect_match "iwconfig names the network" "ESSID:\"$HOME_WPA2_SSID\"" "$(iwconfig "$CAMERA_IF" 2>&1)"
expect_eq "qira-info-floor names the network" "$HOME_WPA2_SSID" "$(qira-info-floor "$CAMERA_IF" 2>&1)"
blocks=$(((queries + 9) / 10))
failed_starters=''
for name in $starters; do eval "cs_$name=0"; done
block=0
while [ "$block" -lt "$blocks" ]; do
  block=$((block + 1))
  for name in $starters; do
    started=$(uptime_cs)
    i=0
    while [ "$i" -lt 10 ]; do
      run_starter "$name" > /dev/null 2>&1 || failed_starters="$failed_starters $name"
      i=$((i + 1))
    done
    eval "cs_$name=\$((cs_$name + $(uptime_cs) - started))"
  done
done
expect_eq "every start-up run succeeded" "" "$failed_starters"
runs=$((blocks * 10))
# us_per_run NAME: the wall microseconds per run of that command.
us_per_run() { eval "echo \$((cs_$1 * 10000 / runs))"; }

step "figures (wall time in this guest; $(cat /sys/devices/system/clocksource/clocksource0/current_clocksource) clock)"
summary "bench: qira-wifi scan $SPARE_IF" $qira_times
summary "bench: iw scan trigger+dump $SPARE_IF" $iw_times
echo "bench: qira-wifi info $CAMERA_IF: $(us_per_run info) us per run over $runs runs"
echo "bench: iwconfig $CAMERA_IF: $(us_per_run iwconfig) us per run over $runs runs"
echo "bench: qira-wifi --help: $(us_per_run help) us per run over $runs runs"
echo "bench: qira-start-floor: $(us_per_run start_floor) us per run over $runs runs"
echo "bench: qira-info-floor $CAMERA_IF: $(us_per_run info_floor) us per run over $runs runs"
# The ratios within this boot: qira-wifi against the system tool on the same
# radio (the scans took turns), total against total; and the floors.
echo "$qira_times" "$iw_times" | awk -v n="$scans" '{
  for (i = 1; i <= n; i++) { qira += $i; iw += $(n + i) }
  printf "bench: ratio qira-wifi scan / iw scan: %.2f\n", iw ? qira / iw : 0 }'
ratio() { # ratio LABEL NAME NAME
  echo "$(us_per_run "$2") $(us_per_run "$3")" |
    awk -v label="$1" '{ printf "bench: ratio %s: %.2f\n", label, $2 ? $1 / $2 : 0 }'
}
ratio "qira-wifi info / iwconfig" info iwconfig
ratio "qira-info-floor / iwconfig" info_floor iwconfig
ratio "qira-start-floor / iwconfig" start_floor iwconfig
ratio "qira-wifi info / qira-info-floor" info info_floor
