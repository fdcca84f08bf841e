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
  libnl-route-3-dev   # the reference host's address removal (libnl's route library)
  nlohmann-json3-dev  # the reference host's JSON reader (header-only)
  libgtest-dev
  libgmock-dev
  googletest
  libbenchmark-dev  # bench/
  nlohmann-json3-dev  # the strict JSON parser of the tests (tests/support/strict_json.cpp)
  iproute2          # ip, for tests that build network namespaces
  wpasupplicant     # the real wpa_supplicant the control client is tested against
  valgrind          # scripts/valgrind.sh, memcheck of the unit suite
  git               # the format check lists the tracked files
  groff-base        # tests/packaging/manual_test.sh reads qira-wifi's manual page
)

# shellcheck source=scripts/packages.sh
source "$(dirname "$0")/packages.sh"
mapfile -t missing < <(missing_packages "${packages[@]}")
if [ "${#missing[@]}" -eq 0 ]; then
  echo "deps: all ${#packages[@]} packages present"
  exit 0
fi
install_packages deps "${missing[@]}"
