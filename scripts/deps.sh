#!/usr/bin/env bash
# Installs what building and testing the module needs on Debian 12, with
# apt-get. Does nothing when every package is already installed.
set -euo pipefail

packages=(
  build-essential   # gcc 12, g++, make, binutils
  cmake
  ninja-build
  pkg-config
  clang             # the second compiler of the suite (clang 14)
  clang-format      # the format check
  libclang-rt-14-dev  # clang's sanitizer and libFuzzer runtimes (fuzz/)
  libnl-3-dev
  libnl-genl-3-dev
  libgtest-dev
  libgmock-dev
  googletest
  libbenchmark-dev  # bench/
  iproute2          # ip, for tests that build network namespaces
  wpasupplicant     # the real wpa_supplicant the control client is tested against
  valgrind          # scripts/valgrind.sh, memcheck of the unit suite
  git               # the format check lists the tracked files
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done
if [ "${#missing[@]}" -eq 0 ]; then
  echo "deps: all ${#packages[@]} packages present"
  exit 0
fi

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  sudo_cmd=(sudo)
fi
echo "deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# A stale or unreachable index must not stop an install that can still work
# from the lists already on the machine.
"${sudo_cmd[@]}" apt-get update || echo "deps: apt-get update failed; using the package lists present" >&2
"${sudo_cmd[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
