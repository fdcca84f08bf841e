#!/usr/bin/env bash
# The demo: installs what is missing, builds the project and the virtual
# camera (a Debian kernel with simulated radios under qemu), boots it and
# shows the module at work on a station joined to the simulated home WPA2
# network, as a transcript.
#   scripts/demo.sh              the virtual camera (amd64)
#   scripts/demo.sh --arch armhf the same, told from a 32-bit ARM camera:
#                                Debian's armmp kernel and armhf programs
#                                under qemu-system-arm, the module
#                                cross-built (the console shows uname -m,
#                                armv7l)
#   scripts/demo.sh --host [IFNAME]
#                                `qira-wifi info` on this machine's own
#                                interface (the named one, else the first
#                                wireless interface, else wlan0)
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

if [ "${1:-}" != "--host" ]; then
  arch=amd64
  case "${1:-}" in
    --arch) arch="${2:?usage: scripts/demo.sh --arch amd64|armhf}" ;;
    --arch=*) arch="${1#*=}" ;;
  esac
  scripts/deps.sh
  tests/vm/ci.sh --arch "$arch" --packages-only
  # Builds the project (build/vm-build, build/vm-build-armhf) and the image;
  # only what changed.
  tests/vm/build.sh --arch "$arch"
  exec tests/vm/run.sh --arch "$arch" --demo
fi

ifname="${2:-}"
if [ -z "$ifname" ]; then
  for wireless in /sys/class/net/*/wireless; do
    if [ -d "$wireless" ]; then
      ifname="$(basename "$(dirname "$wireless")")"
      break
    fi
  done
fi
if [ -z "$ifname" ]; then
  ifname=wlan0
  echo "demo: no wireless interface found under /sys/class/net; trying wlan0" >&2
fi

scripts/deps.sh
scripts/build.sh gcc
echo
echo "\$ qira-wifi info $ifname"
exec build/gcc/tools/qira-wifi/qira-wifi info "$ifname"
