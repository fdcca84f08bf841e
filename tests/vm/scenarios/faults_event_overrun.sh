# Event overrun: a burst of nl80211 notifications larger than the module's
# event socket's buffer (8 KB asked for) arrives while the host does not
# service the module, as on a busy network while the camera's host is busy
# elsewhere. The burst is 80 interface creations and deletions on the spare
# radio, 160 "config" notifications (as "iw event" shows them: "qvmburst0
# (phy #1): new interface ...", "... del interface ..."), of which the
# socket holds a few dozen. One long-lived host (qira-vm-host) holds the
# module:
#   - the kernel drops what does not fit (the socket's drop count in
#     /proc/net/netlink grows) and the next service reports it once, as the
#     module reports a failed read: "netlib: nl_recvmsg() failed: -5" (libnl's
#     NLE_NOMEM for ENOBUFS) and "netlib: Failed to receive an event";
#   - the module keeps serving: the next services succeed and events flow;
#   - the next scan's results are complete: the same BSSes as
#     "iw dev wlan1 scan dump" (see below for the dump's own report);
#   - the host's descriptors are as before.
. "$QVM_DIR/camera_host.sh"
phy=$(cat "/sys/class/net/$SPARE_IF/phy80211/name")
burst_if=qvmburst0
burst=${qira_overrun_cycles:-80}
answer=$QVM_STATE/scenario/answer
on_reset "[ -e /sys/class/net/$burst_if ] && iw dev $burst_if del"

# The drop count of the host's netlink socket whose inode is $1.
socket_drops() { netlink_memberships "$HOST_PID" | awk -v inode="$1" '$1 == inode { print $3 }'; }
failure_lines() { grep -c '^event-failure ' "$HOST_OUT"; }
events_named() { grep -c "^event [0-9]* [a-z_]* {.*\"eventName\":\"$1\"" "$HOST_OUT"; }
has_events_named() { [ "$(events_named "$1")" -ge "$2" ]; }

ip link set "$SPARE_IF" up
host_start || return 1
host_call 10 events on > "$answer"
expect_eq "events on" ok "$(sed -n 's/^end //p' "$answer")"
# The module's event socket: the host's one socket that joined groups.
inode=$(netlink_memberships "$HOST_PID" | cut -d' ' -f1)
expect_match "the module's event socket" '^[0-9]+$' "$inode"
resources_before=$(host_resources "$HOST_PID")
drops_before=$(socket_drops "$inode")
echo "the module's socket: inode $inode, drops $drops_before"

step "the host stops servicing; $burst interface creations and deletions on $phy"
host_call 10 pause > /dev/null
burst_started=$(uptime_cs)
i=0
while [ "$i" -lt "$burst" ]; do
  i=$((i + 1))
  iw phy "$phy" interface add "$burst_if" type managed && iw dev "$burst_if" del || {
    fail "burst cycle $i failed"
    break
  }
done
echo "figure: $burst creations and deletions in $((($(uptime_cs) - burst_started) * 10)) ms"
drops=$(socket_drops "$inode")
echo "figure: the module's socket dropped $((drops - drops_before)) notifications of $((2 * burst))"
expect_true "the kernel dropped notifications on the module's socket" [ "$drops" -gt "$drops_before" ]

step "the overrun is reported once; the module keeps serving"
failures_before=$(failure_lines)
host_call 10 service > "$answer"
cat "$answer"
expect_eq "the first service after the burst" "service failed" "$(grep '^service ' "$answer")"
grep '^event-failure ' "$HOST_OUT"
expect_eq "the module's report of the overrun" \
  "event-failure 3 0 receive_event: netlib: nl_recvmsg() failed: -5;event-failure 3 0 netlib_libevents_wireless_service: netlib: Failed to receive an event;" \
  "$(grep '^event-failure ' "$HOST_OUT" | sed -n "$((failures_before + 1)),\$p" | tr '\n' ';')"
host_call 10 service > "$answer"
expect_eq "the next service" "service ok" "$(grep '^service ' "$answer")"
host_call 10 resume > /dev/null
recovered=$(uptime_cs)
creations=$(events_named new_interface)
iw phy "$phy" interface add "$burst_if" type managed
iw dev "$burst_if" del
expect_true "a new notification reaches the host" wait_for 10 has_events_named new_interface $((creations + 1))
echo "figure: events flowed again $((($(uptime_cs) - recovered) * 10)) ms after servicing resumed"

step "the next scan's results are complete"
host_call 40 scan "$SPARE_IF" 30000 > "$answer"
cat "$answer"
expect_match "the scan ended, not aborted" '^scan ended finished=1 aborted=0 ' "$(grep '^scan ended' "$answer")"
# The kernel may flag the results dump interrupted (the BSS table changed
# while it was dumped; libnl then answers -NLE_DUMP_INTR), which the module
# reports as specified, with both lines of a failed retrieval, keeping the
# entries it read. Any other failure line is a finding.
failure_lines=$(grep '^log 3 ' "$answer" | tr '\n' ';')
case $failure_lines in
  "") ;;
  "log 3 0 receive_results: Failed to retrieve scan results;log 3 0 event_handler: Failed to retrieve scan results;")
    echo "figure: the results dump was reported failed (interrupted by the kernel); its entries were kept" ;;
esac
expect_match "the scan's failure lines: none, or those of an interrupted dump" \
  '^(|log 3 0 receive_results: Failed to retrieve scan results;log 3 0 event_handler: Failed to retrieve scan results;)$' \
  "$failure_lines"
expect_eq "the same BSSes as iw dev $SPARE_IF scan dump" \
  "$(iw dev "$SPARE_IF" scan dump | sed -n 's/^BSS \([0-9a-f:]*\).*/\1/p' | sort | tr '\n' ' ')" \
  "$(sed -n 's/^bss \([^ ]*\) .*/\1/p' "$answer" | sort | tr '\n' ' ')"
expect_eq "the overrun reported once in all" $((failures_before + 2)) "$(failure_lines)"

step "nothing leaked"
resources_after=$(host_resources "$HOST_PID")
echo "figure: qira-vm-host RSS kB and descriptors: before $resources_before, after $resources_after"
expect_eq "the host's descriptors" "${resources_before#* }" "${resources_after#* }"
host_stop
