#!/usr/bin/env bash
# Checks the OpenWrt package definition without an OpenWrt tree. make parses
# the package Makefile against stand-ins of rules.mk, package.mk and
# cmake.mk (check/), which define what OpenWrt's do and record every
# BuildPackage; the script then checks the package variables, that every
# package defined is built, each package's fields and dependencies (OpenWrt's
# package names), and that the version is the project's. Given a built tree,
# it also runs the package's install steps on what `cmake --install` puts
# under /usr, as OpenWrt's build would, and checks the files of each package.
#
#   packaging/openwrt/check.sh WORK_DIR [BUILD_DIR]
# WORK_DIR is emptied first; nothing outside it is written.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "$here/../.." && pwd)"
work="${1:?usage: check.sh WORK_DIR [BUILD_DIR]}"
build="${2:-}"
package_dir="$here/qira-network-utils-wireless"
makefile="$package_dir/Makefile"

rm -rf "$work"
mkdir -p "$work"

fail() {
  echo "check.sh: FAILED: $*" >&2
  exit 1
}

# make splits paths on spaces (OpenWrt's own tree cannot hold one either), so
# it gets every path relative to the package folder, where it runs: a
# checkout in a folder whose name holds a space leaves them without one.
relative() {
  local path
  path=$(realpath -m --relative-to="$package_dir" "$1")
  case $path in
    *[[:space:]]*) fail "make cannot take a path with a space: $path" ;;
  esac
  printf '%s\n' "$path"
}
topdir=$(relative "$here/check")
check_work=$(relative "$work")
source_dir=$(relative "$root")

# stub_make ARGS...: make in the package folder with the stand-in OpenWrt.
stub_make() {
  make --no-print-directory -C "$package_dir" TOPDIR="$topdir" QIRA_CHECK_WORK="$check_work" \
    QIRA_SOURCE_DIR="$source_dir" "$@"
}

# expect_same WHAT EXPECTED_FILE ACTUAL_FILE
expect_same() {
  if ! diff -u "$2" "$3"; then
    fail "$1 differs (- expected, + actual)"
  fi
}

# list_files DIR: the files and links under DIR, relative, sorted.
list_files() {
  (cd "$1" && find . \( -type f -o -type l \) | sed 's|^\./||' | LC_ALL=C sort)
}

version=$(sed -n 's/^project(qira_network_utils_wireless VERSION \([0-9.]*\).*/\1/p' \
  "$root/CMakeLists.txt")
[ -n "$version" ] || fail "no project version in $root/CMakeLists.txt"

# ---- The Makefile's layout -----------------------------------------------------

# The includes OpenWrt's package Makefiles make, in their order.
grep '^include ' "$makefile" >"$work/includes"
cat >"$work/includes.expected" <<'INCLUDES'
include $(TOPDIR)/rules.mk
include $(INCLUDE_DIR)/package.mk
include $(INCLUDE_DIR)/cmake.mk
INCLUDES
expect_same "includes" "$work/includes.expected" "$work/includes"

# Every package defined is built, and every package built is defined.
sed -n 's|^define Package/\([^/ ]*\)$|\1|p' "$makefile" | LC_ALL=C sort >"$work/defined"
# shellcheck disable=SC2016  # make's $(...), not the shell's
sed -n 's|^\$(eval \$(call BuildPackage,\([^)]*\)))$|\1|p' "$makefile" |
  LC_ALL=C sort >"$work/built"
[ -s "$work/defined" ] || fail "no define Package/... in $makefile"
expect_same "packages defined against BuildPackage calls" "$work/defined" "$work/built"

# ---- make's database -----------------------------------------------------------

stub_make -n -p >"$work/database" 2>"$work/database.err" ||
  fail "make cannot parse $makefile: $(cat "$work/database.err")"
[ ! -s "$work/database.err" ] || fail "make warns: $(cat "$work/database.err")"
# variable NAME: its definition in make's database ("NAME := value").
variable() {
  sed -n "s/^$1 :\{0,1\}= //p" "$work/database" | head -n 1
}
[ "$(variable PKG_NAME)" = qira-network-utils-wireless ] || fail "PKG_NAME is '$(variable PKG_NAME)'"
[ "$(variable PKG_VERSION)" = "$version" ] ||
  fail "PKG_VERSION is '$(variable PKG_VERSION)', the project's version is $version"
[[ "$(variable PKG_RELEASE)" =~ ^[1-9][0-9]*$ ]] || fail "PKG_RELEASE is '$(variable PKG_RELEASE)'"
[ -n "$(variable PKG_LICENSE)" ] || fail "PKG_LICENSE is empty"
[ "$(variable PKG_INSTALL)" = 1 ] || fail "PKG_INSTALL is '$(variable PKG_INSTALL)'"
read -r -a cmake_options <<<"$(variable CMAKE_OPTIONS)"
for option in -DQIRA_BUILD_TESTS=OFF -DQIRA_BUILD_TOOLS=ON -DCMAKE_INSTALL_LIBDIR=lib; do
  printf '%s\n' "${cmake_options[@]}" | grep -qxF -- "$option" ||
    fail "CMAKE_OPTIONS lacks $option: ${cmake_options[*]}"
done

# ---- Each package's fields -----------------------------------------------------

stub_make -s qira-check-info >"$work/info"
cat >"$work/info.expected" <<INFO
Package: qira-network-utils-wireless
Version: $version-$(variable PKG_RELEASE)
License: $(variable PKG_LICENSE)
Section: libs
Category: Libraries
Title: Wireless module of the camera host's network library
Depends: +libnl-core +libnl-genl +libstdcpp
Package: qira-host
Version: $version-$(variable PKG_RELEASE)
License: $(variable PKG_LICENSE)
Section: libs
Category: Libraries
Title: Reference host of the wireless module
Depends: +qira-network-utils-wireless +libnl-core +libnl-genl +libnl-route +libstdcpp
Package: qira-wifi
Version: $version-$(variable PKG_RELEASE)
License: $(variable PKG_LICENSE)
Section: net
Category: Network
Title: Command-line host of the wireless module
Depends: +qira-host +qira-network-utils-wireless +libstdcpp
INFO
expect_same "package fields" "$work/info.expected" "$work/info"
echo "check.sh: $makefile parses; packages $(tr '\n' ' ' <"$work/defined")at $version"

[ -n "$build" ] || exit 0

# ---- The install steps on a built tree -----------------------------------------

libdir=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:PATH=//p' "$build/CMakeCache.txt")
[ "$libdir" = lib ] ||
  fail "$build installs libraries into '$libdir'; the package builds with CMAKE_INSTALL_LIBDIR=lib"
build_dir="$work/build_dir/qira-network-utils-wireless-$version"
DESTDIR="$build_dir/ipkg-install" cmake --install "$build" --prefix /usr >"$work/install.log"
stub_make -s qira-check-prepare >"$work/prepare.log"
if [ ! -f "$build_dir/CMakeLists.txt" ] || [ ! -d "$build_dir/src" ]; then
  fail "Build/Prepare does not copy the sources into $build_dir"
fi
stub_make -s qira-check-install >"$work/package-install.log"

module_lib=libqira_network_utils_wireless.so
host_lib=libqira_host.so
major="${version%%.*}"
printf '%s\n' "usr/lib/$module_lib.$major" "usr/lib/$module_lib.$version" \
  >"$work/qira-network-utils-wireless.expected"
printf '%s\n' "usr/lib/$host_lib.$major" "usr/lib/$host_lib.$version" >"$work/qira-host.expected"
printf '%s\n' usr/bin/qira-wifi usr/share/bash-completion/completions/qira-wifi \
  usr/share/man/man1/qira-wifi.1 >"$work/qira-wifi.expected"
while read -r package; do
  list_files "$work/root/$package" >"$work/$package.files"
  expect_same "files of $package" "$work/$package.expected" "$work/$package.files"
done <"$work/defined"
[ -L "$work/root/qira-network-utils-wireless/usr/lib/$module_lib.$major" ] ||
  fail "$module_lib.$major is not a symbolic link in the package"
{
  (cd "$root/include" && find . -name '*.h' | sed 's|^\./|usr/include/|')
  (cd "$root/host/include" && find . -name '*.h' | sed 's|^\./|usr/include/|')
  for lib in "$module_lib" "$host_lib"; do
    printf '%s\n' "usr/lib/$lib" "usr/lib/$lib.$major" "usr/lib/$lib.$version"
  done
  for name in qira_network_utils_wireless qira_host; do
    echo "usr/lib/pkgconfig/$name.pc"
    build_type=$(sed -n 's/^CMAKE_BUILD_TYPE:STRING=//p' "$build/CMakeCache.txt")
    config_suffix=$(echo "${build_type:-noconfig}" | tr '[:upper:]' '[:lower:]')
    for file in config config-version targets "targets-$config_suffix"; do
      echo "usr/lib/cmake/$name/$name-$file.cmake"
    done
  done
} | LC_ALL=C sort >"$work/staging.expected"
list_files "$work/staging_dir" >"$work/staging.files"
expect_same "development files" "$work/staging.expected" "$work/staging.files"
echo "check.sh: each package's install step installs its files from a /usr install of $build"
