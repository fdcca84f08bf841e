#!/bin/bash
# The VM suite as CI runs it: installs the Debian packages the virtual camera
# is made of when one is missing (as root), builds the image (downloading the
# kernel package into build/vm-cache on a cold cache), runs every scenario in
# one boot and exits with the suite's verdict. The last line is run.sh's
# "N passed, N failed".
#
# Usage: tests/vm/ci.sh [--packages-only]   (environment as for build.sh and run.sh)
#   --packages-only: install the missing packages, then stop.
set -uo pipefail

VM_DIR=$(cd "$(dirname "$0")" && pwd)
readonly PACKAGES="qemu-system-x86 busybox-static iw wpasupplicant hostapd dnsmasq-base
  wireless-tools iproute2 wireless-regdb kmod cpio xz-utils bc"

seconds_since() {
  local d=$((${EPOCHREALTIME/./} - $1))
  printf '%d.%01d' $((d / 1000000)) $((d % 1000000 / 100000))
}

started=${EPOCHREALTIME/./}
# shellcheck source=scripts/packages.sh
source "$VM_DIR/../../scripts/packages.sh"
# shellcheck disable=SC2086
missing=$(missing_packages $PACKAGES)
if [ -n "$missing" ]; then
  # shellcheck disable=SC2086
  install_packages ci.sh $missing || exit 2
fi
echo "ci.sh: packages ready after $(seconds_since "$started") s"
if [ "${1:-}" = "--packages-only" ]; then
  exit 0
fi

build_started=${EPOCHREALTIME/./}
"$VM_DIR/build.sh" || { echo "ci.sh: build failed"; exit 2; }
echo "ci.sh: image built in $(seconds_since "$build_started") s"

run_started=${EPOCHREALTIME/./}
"$VM_DIR/run.sh"
status=$?
echo "ci.sh: suite ran in $(seconds_since "$run_started") s; total $(seconds_since "$started") s" >&2
exit $status
