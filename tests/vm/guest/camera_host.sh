# The fault scenarios' long-lived host (busybox sh, sourced after lib.sh).
# qira-vm-host loads the module once and takes commands on its standard
# input (a FIFO here), answering "@ID ..." lines into $HOST_OUT; see
# tests/vm/host/camera_host.cpp for its commands.

HOST_IN=$QVM_STATE/scenario/host.in
HOST_OUT=$QVM_STATE/scenario/host.out
HOST_ERR=$QVM_STATE/scenario/host.err
HOST_SEQ=$QVM_STATE/scenario/host.seq

# host_start: starts qira-vm-host (pid file $QVM_STATE/vm-host.pid; the
# FIFO's keeper in $QVM_STATE/vm-host-input.pid, so that the host never
# reads the end of its input while the scenario runs) and waits until it has
# loaded the module.
host_start() {
  command -v qira-vm-host > /dev/null || {
    fail "qira-vm-host is not in the image (built with --world-only?)"
    return 1
  }
  rm -f "$HOST_IN"
  mkfifo "$HOST_IN"
  echo 0 > "$HOST_SEQ"
  : > "$HOST_OUT"
  qira-vm-host < "$HOST_IN" > "$HOST_OUT" 2> "$HOST_ERR" &
  echo $! > "$QVM_STATE/vm-host.pid"
  sh -c 'echo $$ > "$1"; exec sleep 100000' sh "$QVM_STATE/vm-host-input.pid" > "$HOST_IN" &
  wait_for 20 grep -q '^ready ' "$HOST_OUT" || {
    fail "qira-vm-host did not load the module within 20 s: $(cat "$HOST_ERR")"
    return 1
  }
  HOST_PID=$(cat "$QVM_STATE/vm-host.pid")
}

# host_stop: ends the host's input; it closes the module and exits.
host_stop() {
  stop_pidfile "$QVM_STATE/vm-host-input.pid"
  wait_for 10 sh -c "! kill -0 $HOST_PID" || stop_pidfile "$QVM_STATE/vm-host.pid"
  rm -f "$QVM_STATE/vm-host.pid"
}

# host_send COMMAND...: sends one command; prints its id.
host_send() {
  local id
  id=$(($(cat "$HOST_SEQ") + 1))
  echo "$id" > "$HOST_SEQ"
  echo "$id $*" > "$HOST_IN"
  echo "$id"
}

# host_answer ID: the answer lines of command ID so far, without "@ID ".
host_answer() { sed -n "s/^@$1 //p" "$HOST_OUT"; }
host_ended() { grep -q "^@$1 end " "$HOST_OUT"; }

# host_wait ID SECONDS: waits for the end of command ID; prints its answer;
# true when it ended "ok".
host_wait() {
  wait_for "$2" host_ended "$1" || {
    echo "(qira-vm-host did not answer command $1 within $2 s)"
    host_answer "$1"
    return 1
  }
  host_answer "$1"
  host_ended "$1" && grep -qx "@$1 end ok" "$HOST_OUT"
}

# host_call SECONDS COMMAND...: host_send, then host_wait.
host_call() {
  local seconds=$1 id
  shift
  id=$(host_send "$@")
  host_wait "$id" "$seconds"
}

# host_resources PID: "RSS_KB FDS" of a process.
host_resources() {
  local rss
  rss=$(awk '$1 == "VmRSS:" { print $2 }' "/proc/$1/status")
  echo "$rss $(ls "/proc/$1/fd" | wc -l)"
}
