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

packages=(qemu-user-static)
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
    "libgtest-dev:$architecture"
    "libgmock-dev:$architecture"
  )
done

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done
if [ "${#missing[@]}" -eq 0 ]; then
  echo "cross-deps: all ${#packages[@]} packages present"
  exit 0
fi

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  sudo_cmd=(sudo)
fi
for architecture in "${architectures[@]}"; do
  if ! dpkg --print-foreign-architectures | grep -qx "$architecture"; then
    echo "cross-deps: adding the $architecture architecture"
    "${sudo_cmd[@]}" dpkg --add-architecture "$architecture"
  fi
done
echo "cross-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# Debian's security archive is often caught mid-sync for the ARM indexes
# ("File has unexpected size"): apt-get update then fails although every
# other index was fetched. The packages needed here come from the main
# archive, so carry on with the lists that did arrive; a second try gives a
# transient failure the chance to clear.
if ! "${sudo_cmd[@]}" apt-get update; then
  echo "cross-deps: apt-get update failed; trying once more" >&2
  "${sudo_cmd[@]}" apt-get update ||
    echo "cross-deps: apt-get update failed again; using the package lists present" >&2
fi
"${sudo_cmd[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
