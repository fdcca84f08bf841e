#!/bin/bash
# Boots the virtual camera built by tests/vm/build.sh and runs scenarios in
# one boot, each with a fresh camera state. Streams the serial console with
# the elapsed time of each line, stops the VM after a time-out, prints every
# scenario's result and then the closing line "N passed, N failed", and exits
# 0 only when every requested scenario passed.
#
# Usage: tests/vm/run.sh [options] [SCENARIO...]
#   --arch A       amd64 (default, or QIRA_VM_ARCH) or armhf: the image that
#                  tests/vm/build.sh --arch A built; armhf boots under
#                  qemu-system-arm (machine virt, Cortex-A15), always by
#                  software emulation
#   SCENARIO       names of tests/vm/scenarios/<name>.sh; default: all of
#                  them, in name order
#   --demo         the demo: a transcript of the module reading the state of
#                  a station on the simulated WPA2 network (no verdict)
#   --shell        interactive shell on the console instead of scenarios
#                  (leave with "poweroff -f")
#   --accel A      kvm, tcg or auto (default auto, or QIRA_VM_ACCEL; amd64): auto
#                  makes a trial boot under KVM and uses it only when the
#                  guest reaches init within QIRA_VM_PROBE_TIMEOUT seconds
#                  (default 20); the verdict is kept in build/vm/accel.verdict
#                  until the machine reboots or the kernel or qemu changes
#   --timeout S    stop the VM after S seconds (default, or QIRA_VM_TIMEOUT:
#                  120 s for the boot and the world plus every scenario's guard;
#                  600 s for the demo, an hour for the shell)
# Environment: QIRA_VM_OUT (default build/vm, build/vm-armhf), QIRA_VM_MEMORY (512M),
#   QIRA_VM_CPUS (1), QIRA_VM_APPEND (more kernel command line, e.g. a
#   scenario's "qira_bench_scans=10"), QIRA_VM_SCENARIO_TIMEOUT (guard of one scenario in the
#   guest, default 150 s), QIRA_VM_LOG (console log file; default
#   build/vm/logs/run-<time>.log).
set -uo pipefail

VM_DIR=$(cd "$(dirname "$0")" && pwd)
SOURCE_DIR=$(cd "$VM_DIR/../.." && pwd)
ARCH=${QIRA_VM_ARCH:-amd64}
ACCEL=${QIRA_VM_ACCEL:-auto}
TIMEOUT=${QIRA_VM_TIMEOUT:-}
MEMORY=${QIRA_VM_MEMORY:-512M}
# One virtual CPU: with two, multi-threaded emulation once left the guest's
# boot spinning in a soft lockup (cryptomgr_test, 1 boot in 20), and the
# camera's work is sequential anyway (one CPU was as fast).
CPUS=${QIRA_VM_CPUS:-1}
PROBE_TIMEOUT=${QIRA_VM_PROBE_TIMEOUT:-20}
mode=run
scenarios=()

while [ $# -gt 0 ]; do
  case $1 in
    --arch) ARCH=$2; shift ;;
    --arch=*) ARCH=${1#*=} ;;
    --shell) mode=shell ;;
    --demo) mode=demo ;;
    --accel) ACCEL=$2; shift ;;
    --accel=*) ACCEL=${1#*=} ;;
    --timeout) TIMEOUT=$2; shift ;;
    --timeout=*) TIMEOUT=${1#*=} ;;
    -h | --help) sed -n '2,29p' "$0"; exit 0 ;;
    -*) echo "run.sh: unknown option $1" >&2; exit 2 ;;
    *) scenarios+=("${1%.sh}") ;;
  esac
  shift
done

say() { printf 'run.sh: %s\n' "$*" >&2; }

case $ARCH in
  amd64) OUT=${QIRA_VM_OUT:-$SOURCE_DIR/build/vm} ;;
  armhf)
    OUT=${QIRA_VM_OUT:-$SOURCE_DIR/build/vm-armhf}
    # An ARM guest on this x86 machine: KVM cannot run it.
    ACCEL=tcg ;;
  *) say "unknown architecture $ARCH (amd64 or armhf)"; exit 2 ;;
esac

for part in system.cpio modules.cpio project.cpio scenarios.list; do
  [ -f "$OUT/$part" ] || { say "$OUT/$part missing: run tests/vm/build.sh --arch $ARCH first"; exit 2; }
done
KERNEL=$OUT/vmlinux # uncompressed ELF: qemu enters it through PVH, ~2.5 s faster
[ -f "$KERNEL" ] || KERNEL=$OUT/vmlinuz
if [ "${#scenarios[@]}" -eq 0 ] && [ "$mode" = run ]; then
  mapfile -t scenarios < "$OUT/scenarios.list"
fi

# One initrd file for qemu: the three newc archives one after the other.
INITRD=$OUT/initrd.cpio
if [ ! -f "$INITRD" ] || [ "$OUT/system.cpio" -nt "$INITRD" ] ||
  [ "$OUT/modules.cpio" -nt "$INITRD" ] || [ "$OUT/project.cpio" -nt "$INITRD" ]; then
  cat "$OUT/system.cpio" "$OUT/modules.cpio" "$OUT/project.cpio" > "$INITRD.tmp" &&
    mv "$INITRD.tmp" "$INITRD"
fi

# Microseconds since the epoch, from bash's clock (no process per call).
now_us() { local t=$EPOCHREALTIME; echo "${t/./}"; }
seconds_since() { # seconds_since START_US -> "12.34"
  local d=$(($(now_us) - $1))
  printf '%d.%02d' $((d / 1000000)) $((d % 1000000 / 10000))
}

qemu_command() { # qemu_command ACCEL APPEND
  local accel_options append
  if [ "$ARCH" = armhf ]; then
    # The armmp kernel on qemu's generic ARM machine: its console is the
    # PL011 serial port, its timer the CPU's generic timer, which counts
    # host time under emulation.
    append="console=ttyAMA0 panic=-1 oops=panic loglevel=4 cryptomgr.notests=1 $2"
    [ -n "${QIRA_VM_APPEND:-}" ] && append="$append $QIRA_VM_APPEND"
    QEMU=(qemu-system-arm -machine virt -accel tcg,thread=multi -cpu cortex-a15 -smp "$CPUS"
      -m "$MEMORY" -nodefaults -no-user-config -display none -monitor none -no-reboot
      -kernel "$KERNEL" -initrd "$INITRD" -append "$append")
    return
  fi
  case $1 in
    kvm) accel_options=(-accel kvm -cpu host) ;;
    tcg) accel_options=(-accel tcg,thread=multi -cpu max) ;;
    *) say "unknown accelerator $1"; exit 2 ;;
  esac
  # cryptomgr.notests: the boot-time self-tests of every crypto algorithm
  # cost emulated time and test nothing of ours.
  append="console=ttyS0,115200 panic=-1 oops=panic loglevel=4 cryptomgr.notests=1 $2"
  # Under emulation the guest's TSC is the host's, and its calibration against
  # the emulated timer goes wrong when the host is busy: guest time then ran
  # up to 7 times too fast (190 s of uptime in 30 s), which cuts every
  # deadline short. The emulated HPET counts host time.
  # no_timer_check: on a busy host the emulated timer interrupt can miss the
  # kernel's boot-time check, which then panics ("IO-APIC + timer doesn't
  # work"); seen twice in a few hundred boots while the machine was loaded.
  [ "$1" = tcg ] && append="$append ${QIRA_VM_TCG_APPEND-clocksource=hpet no_timer_check}"
  [ -n "${QIRA_VM_APPEND:-}" ] && append="$append $QIRA_VM_APPEND"
  QEMU=(qemu-system-x86_64 "${accel_options[@]}" -machine pc -smp "$CPUS" -m "$MEMORY"
    -nodefaults -no-user-config -display none -monitor none -no-reboot
    -kernel "$KERNEL" -initrd "$INITRD" -append "$append")
}

# KVM on some machines is a paravirtual variant on which a stock kernel hangs
# or stops with an emulation failure although qemu starts: only a trial boot
# tells. The verdict holds for this machine boot, kernel and qemu.
choose_accel() {
  local key verdict started output
  if [ "$ACCEL" != auto ]; then
    echo "$ACCEL"
    return
  fi
  key="$(cat /proc/sys/kernel/random/boot_id) $(cat "$OUT/kernel.stamp") $(qemu-system-x86_64 --version | head -1)"
  if [ -f "$OUT/accel.verdict" ] && [ "$(sed -n 1p "$OUT/accel.verdict")" = "$key" ]; then
    verdict=$(sed -n 2p "$OUT/accel.verdict")
    say "accelerator: $verdict (kept verdict of an earlier trial boot)"
    echo "$verdict"
    return
  fi
  verdict=tcg
  if [ -r /dev/kvm ] && [ -w /dev/kvm ]; then
    started=$(now_us)
    qemu_command kvm "qira_mode=probe"
    output=$(timeout -k 2 "$PROBE_TIMEOUT" "${QEMU[@]}" -serial stdio < /dev/null 2>&1)
    if grep -q '@@@ PROBE OK' <<< "$output"; then
      verdict=kvm
      say "accelerator: KVM works (trial boot reached init in $(seconds_since "$started") s)"
    else
      say "accelerator: KVM trial boot failed after $(seconds_since "$started") s" \
        "($(grep -m1 -iE 'error|fail' <<< "$output" || echo 'no init within the time-out')); using TCG"
    fi
  else
    say "accelerator: no usable /dev/kvm; using TCG"
  fi
  printf '%s\n%s\n' "$key" "$verdict" > "$OUT/accel.verdict"
  echo "$verdict"
}

accel=$(choose_accel)
joined=$(IFS=,; echo "${scenarios[*]:-}")
# The guest's own guard ends a scenario that hangs; the VM's time-out only
# has to catch a guest that stops answering altogether.
scenario_guard=${QIRA_VM_SCENARIO_TIMEOUT:-150}
if [ -z "$TIMEOUT" ]; then
  case $mode in
    run) TIMEOUT=$((120 + ${#scenarios[@]} * scenario_guard)) ;;
    demo) TIMEOUT=600 ;;
    shell) TIMEOUT=3600 ;;
  esac
fi
qemu_command "$accel" "qira_mode=$mode qira_scenarios=$joined qira_scenario_timeout=$scenario_guard"

if [ "$mode" = shell ]; then
  exec "${QEMU[@]}" -serial mon:stdio
fi

mkdir -p "$OUT/logs"
LOG=${QIRA_VM_LOG:-$OUT/logs/run-$(date +%Y%m%d-%H%M%S)-$$.log}
say "accel=$accel timeout=${TIMEOUT}s scenarios: ${scenarios[*]}"
say "console log: $LOG"
echo "# ${QEMU[*]}" > "$LOG"
started=$(now_us)
timeout --foreground -k 5 "$TIMEOUT" "${QEMU[@]}" -serial stdio < /dev/null 2>&1 |
  while IFS= read -r line; do
    t=$EPOCHREALTIME
    d=$((${t/./} - started))
    printf '[%4d.%02d] %s\n' $((d / 1000000)) $((d % 1000000 / 10000)) "${line%$'\r'}"
  done | tee -a "$LOG"
qemu_status=${PIPESTATUS[0]}
wall=$(seconds_since "$started")

if [ "$mode" = demo ]; then
  echo "# accel=$accel wall=${wall}s qemu status=$qemu_status" | tee -a "$LOG"
  grep -aq '@@@ DONE' "$LOG"
  exit
fi

echo
passed=0
failed=0
for name in "${scenarios[@]}"; do
  result=$(grep -a -m1 "@@@ RESULT $name " "$LOG" | sed 's/^\[[ 0-9.]*\] //; s/\r$//')
  if [ -z "$result" ]; then
    result="@@@ RESULT $name FAIL no result (VM stopped: qemu status $qemu_status)"
  fi
  echo "$result"
  case $result in
    "@@@ RESULT $name PASS"*) passed=$((passed + 1)) ;;
    *) failed=$((failed + 1)) ;;
  esac
done
[ "$qemu_status" -eq 124 ] && echo "run.sh: the VM did not finish within ${TIMEOUT} s"
echo "# accel=$accel wall=${wall}s qemu status=$qemu_status" | tee -a "$LOG"
echo "$passed passed, $failed failed" | tee -a "$LOG"
[ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
