#!/bin/bash
# The VM suite as CI runs it: installs the Debian packages the virtual camera
# is made of when one is missing (as root), builds the image of each
# architecture asked for (downloading the kernel and, for armhf, the user
# land's packages into build/vm-cache on a cold cache), runs every scenario
# in one boot per architecture and exits with the suites' verdict. The last
# line is "N passed, N failed", counting every architecture's scenarios.
#
# Usage: tests/vm/ci.sh [--arch amd64|armhf]... [--packages-only]
#   (environment as for build.sh and run.sh)
#   --arch: a camera's architecture (default amd64, or QIRA_VM_ARCH); may be
#       given twice. The armhf camera's Debian programs are downloaded by
#       build.sh, so here it needs only qemu-system-arm and the armhf cross
#       build's packages (scripts/cross-deps.sh armhf).
#       With two architectures the images are built one after the other
#       (each build uses both CPUs), then both suites boot at once: each
#       emulated camera keeps one host CPU busy. Their output goes to
#       build/logs/vm-<arch>.log and is printed when both have finished.
#   --packages-only: install the missing packages, then stop.
set -uo pipefail

VM_DIR=$(cd "$(dirname "$0")" && pwd)
SOURCE_DIR=$(cd "$VM_DIR/../.." && pwd)
arches=()
packages_only=0
while [ $# -gt 0 ]; do
  case $1 in
    --arch) arches+=("${2:-}"); shift ;;
    --arch=*) arches+=("${1#*=}") ;;
    --packages-only) packages_only=1 ;;
    *) echo "ci.sh: unknown argument $1" >&2; exit 2 ;;
  esac
  shift
done
[ "${#arches[@]}" -gt 0 ] || arches=("${QIRA_VM_ARCH:-amd64}")

seconds_since() {
  local d=$((${EPOCHREALTIME/./} - $1))
  printf '%d.%01d' $((d / 1000000)) $((d % 1000000 / 100000))
}

started=${EPOCHREALTIME/./}
# shellcheck source=scripts/packages.sh
source "$VM_DIR/../../scripts/packages.sh"
for arch in "${arches[@]}"; do
  case $arch in
    amd64) packages="qemu-system-x86 busybox-static iw wpasupplicant hostapd dnsmasq-base
      wireless-tools iproute2 wireless-regdb kmod cpio xz-utils bc" ;;
    armhf) packages="qemu-system-arm kmod cpio xz-utils binutils" ;;
    *) echo "ci.sh: unknown architecture $arch (amd64 or armhf)" >&2; exit 2 ;;
  esac
  # shellcheck disable=SC2086
  missing=$(missing_packages $packages)
  if [ -n "$missing" ]; then
    # shellcheck disable=SC2086
    install_packages ci.sh $missing || exit 2
  fi
  if [ "$arch" = armhf ]; then
    "$SOURCE_DIR/scripts/cross-deps.sh" armhf || exit 2
  fi
done
echo "ci.sh: packages ready after $(seconds_since "$started") s"
if [ "$packages_only" = 1 ]; then
  exit 0
fi

for arch in "${arches[@]}"; do
  build_started=${EPOCHREALTIME/./}
  "$VM_DIR/build.sh" --arch "$arch" || { echo "ci.sh: $arch build failed"; exit 2; }
  echo "ci.sh: $arch image built in $(seconds_since "$build_started") s"
done

if [ "${#arches[@]}" -eq 1 ]; then
  run_started=${EPOCHREALTIME/./}
  "$VM_DIR/run.sh" --arch "${arches[0]}"
  status=$?
  echo "ci.sh: ${arches[0]} suite ran in $(seconds_since "$run_started") s; total $(seconds_since "$started") s" >&2
  exit $status
fi

# Both suites at once, each into its own log.
log_dir=$SOURCE_DIR/build/logs
mkdir -p "$log_dir"
run_started=${EPOCHREALTIME/./}
pids=()
for arch in "${arches[@]}"; do
  (
    "$VM_DIR/run.sh" --arch "$arch" > "$log_dir/vm-$arch.log" 2>&1
    status=$?
    echo "ci.sh: $arch suite ran in $(seconds_since "$run_started") s" >> "$log_dir/vm-$arch.log"
    exit $status
  ) &
  pids+=($!)
done
status=0
for pid in "${pids[@]}"; do
  wait "$pid" || status=1
done
passed=0
failed=0
for arch in "${arches[@]}"; do
  echo "==== ci.sh: the $arch camera"
  cat "$log_dir/vm-$arch.log"
  arch_passed=
  arch_failed=
  read -r arch_passed arch_failed < <(sed -n 's/^\([0-9]*\) passed, \([0-9]*\) failed$/\1 \2/p' \
    "$log_dir/vm-$arch.log" | tail -1)
  # A suite that ended without its closing line counts as one failure.
  [ -n "${arch_passed:-}" ] || { arch_passed=0; arch_failed=1; }
  passed=$((passed + arch_passed))
  failed=$((failed + arch_failed))
done
for arch in "${arches[@]}"; do
  grep -a "^ci.sh: $arch suite ran in" "$log_dir/vm-$arch.log"
done
echo "ci.sh: total $(seconds_since "$started") s" >&2
echo "$passed passed, $failed failed"
exit $status
