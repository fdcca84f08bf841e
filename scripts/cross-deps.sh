#!/usr/bin/env bash
# Installs what cross-building the module for ARM and running its unit suite
# under qemu-user needs, on Debian 12 (amd64): the cross compiler, the
# emulator, and the target's runtime and libraries (libc, libstdc++, libnl,
# GoogleTest) from Debian's multiarch packages. Does nothing when every
# package is already installed.
#   scripts/cross-deps.sh [armhf] [arm64]     (both when none is named)
set -euo pipefail

architectures=("$@")
if [ "${#architectures[@]}" -eq 0 ]; then
  architectures=(armhf arm64)
fi

# nlohmann-json3-dev is header-only (Architecture: all): one copy serves
# every target.
packages=(qemu-user-static nlohmann-json3-dev)
for architecture in "${architectures[@]}"; do
  case "$architecture" in
    armhf) triplet=arm-linux-gnueabihf ;;
    arm64) triplet=aarch64-linux-gnu ;;
    *) echo "cross-deps: unknown architecture $architecture (armhf or arm64)" >&2; exit 2 ;;
  esac
  packages+=(
    "g++-$triplet"
    "libstdc++6:$architecture"   # the emulated programs' runtime, where their loader looks
    "libnl-3-dev:$architecture"
    "libnl-genl-3-dev:$architecture"
    "libnl-route-3-dev:$architecture"
    "libgtest-dev:$architecture"
    "libgmock-dev:$architecture"
  )
done

# shellcheck source=scripts/packages.sh
source "$(dirname "$0")/packages.sh"
mapfile -t missing < <(missing_packages "${packages[@]}")
if [ "${#missing[@]}" -eq 0 ]; then
  echo "cross-deps: all ${#packages[@]} packages present"
  exit 0
fi
for architecture in "${architectures[@]}"; do
  if ! dpkg --print-foreign-architectures | grep -qx "$architecture"; then
    echo "cross-deps: adding the $architecture architecture"
    as_root dpkg --add-architecture "$architecture"
  fi
done
install_packages cross-deps "${missing[@]}"
