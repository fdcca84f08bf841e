# The daemons the module starts hold none of the host's descriptors. The
# shell that runs qira-wifi holds a file and both ends of a named pipe
# without close-on-exec, as a camera's host holds what it inherited or what
# a library opened: qira-wifi (the host process) has them open, and a
# process the shell starts itself keeps them. Then udhcpc and wpa_supplicant
# (station mode: "apply", "connect") and dnsmasq and hostapd (the setup
# access point: "apply --ap", "connect --ap"), all started through the
# module and the reference host, must hold none of them: /proc/PID/fd of
# each is listed and compared, and the daemons the host starts itself have
# /dev/null as standard input, output and error.
held_file=$QVM_STATE/scenario/held-file
held_fifo=$QVM_STATE/scenario/held-fifo
: > "$held_file"
mkfifo "$held_fifo"
exec 7> "$held_file"
exec 8<> "$held_fifo"
held_targets="$(readlink "/proc/$$/fd/7") $(readlink "/proc/$$/fd/8")"
echo "held by the shell: 7 -> $(readlink "/proc/$$/fd/7"), 8 -> $(readlink "/proc/$$/fd/8")"

# descriptors PID: "N -> TARGET" per descriptor of PID.
descriptors() {
  local fd
  for fd in /proc/"$1"/fd/*; do
    [ -e "$fd" ] || [ -L "$fd" ] || continue
    echo "${fd##*/} -> $(readlink "$fd")"
  done
}
# held_by PID: the descriptors of PID that point at what the shell holds.
held_by() {
  local line target
  descriptors "$1" | while read -r line; do
    target=${line#* -> }
    for held in $held_targets; do
      [ "$target" = "$held" ] && echo "$line"
    done
  done
}
# expect_clean NAME [DEVNULL]: the one process called NAME holds nothing of
# the shell's; with DEVNULL its standard descriptors are /dev/null.
expect_clean() {
  local pid
  pid=$(pids_named "$1")
  expect_match "one $1" '^[0-9]+$' "$pid" || return 1
  echo "$1 ($pid):"
  descriptors "$pid" | sed 's/^/  /'
  expect_eq "$1 holds none of the host's descriptors" "" "$(held_by "$pid" | tr '\n' ' ')"
  if [ -n "${2:-}" ]; then
    expect_eq "$1 standard descriptors" "/dev/null /dev/null /dev/null" \
      "$(readlink "/proc/$pid/fd/0") $(readlink "/proc/$pid/fd/1") $(readlink "/proc/$pid/fd/2")"
  fi
}

step "what a process started by the shell itself holds: the check sees inheritance"
sleep 60 &
control=$!
descriptors "$control" | sed 's/^/  /'
expect_eq "a child of the shell keeps both" "7 -> $(readlink "/proc/$$/fd/7") 8 -> $(readlink "/proc/$$/fd/8")" \
  "$(held_by "$control" | sort | tr '\n' ' ' | sed 's/ $//')"
kill "$control"
qira-wifi events > /dev/null 2> "$QVM_STATE/scenario/events.err" &
listener=$!
expect_true "qira-wifi events listens" wait_for 10 grep -q "listening" "$QVM_STATE/scenario/events.err"
expect_eq "qira-wifi (the host process) has them open" "2" "$(held_by "$listener" | wc -l | tr -d ' ')"
kill "$listener"

step "station mode: udhcpc (runDaemon) and wpa_supplicant -B (sysExecSimple)"
conf=$QVM_STATE/scenario/network.json
write_station_config "$conf"
run_qira_wifi "apply" "apply $CAMERA_IF: done" apply "$CAMERA_IF" "$conf" || return 1
run_qira_wifi "connect" "connect $CAMERA_IF: done" connect "$CAMERA_IF" || return 1
expect_clean udhcpc devnull
expect_clean wpa_supplicant devnull

step "the setup access point: dnsmasq and hostapd (runDaemon)"
cat > "$conf" << JSON
{"dhcp": {"fallbackIP": "$SETUP_AP_ADDRESS", "fallbackNetmask": "255.255.255.0"}}
JSON
setup_ap_up "$conf" || return 1
expect_clean dnsmasq devnull
expect_clean hostapd devnull
exec 7>&- 8<&-
