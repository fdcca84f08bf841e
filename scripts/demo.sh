#!/usr/bin/env bash
# Installs what is needed, builds everything and runs `qira-wifi info` on a
# wireless interface: the one named, else the first the kernel lists under
# /sys/class/net/*/wireless, else wlan0.
#   scripts/demo.sh [IFNAME]
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

ifname="${1:-}"
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
