#!/usr/bin/env bash
# The installed packages as a host project sees them. Installs the module,
# host and tools components of a built tree into separate prefixes under a
# work folder, checks what each one holds, then builds the consumer program
# twice, through pkg-config and through find_package, and runs both: each
# must load the installed module by its SONAME and call it.
#
# consumer_test.sh KEY=VALUE... [-- EMULATOR...]
#   build=DIR        the built tree to install from
#   source=DIR       the project's sources (expected file lists)
#   work=DIR         scratch folder, emptied first (inside the build tree)
#   version=X.Y.Z    the project's version; soversion=N its SONAME number
#   build_type=      CMAKE_BUILD_TYPE of the build (may be empty)
#   libdir=, includedir=, bindir=, mandir=, datadir=   the install folders, relative
#   cmake=, generator=, cxx=, cxxflags=, pkg_config=   the build's tools
#   pkg_config_libdir=   PKG_CONFIG_LIBDIR of the build (cross builds)
#   toolchain=FILE   CMAKE_TOOLCHAIN_FILE of the build (cross builds)
#   tools=ON|OFF     whether qira-wifi was built
# EMULATOR runs the target's programs (cross builds).
set -euo pipefail

declare -A arg=([build_type]="" [cxxflags]="" [pkg_config_libdir]="" [toolchain]="" [tools]=OFF)
while [ $# -gt 0 ]; do
  case "$1" in
  --)
    shift
    break
    ;;
  *=*) arg["${1%%=*}"]="${1#*=}" ;;
  *)
    echo "consumer_test.sh: bad argument: $1" >&2
    exit 2
    ;;
  esac
  shift
done
emulator=("$@")
for key in build source work version soversion libdir includedir bindir mandir datadir cmake \
  generator cxx pkg_config; do
  if [ -z "${arg[$key]:-}" ]; then
    echo "consumer_test.sh: $key= is missing" >&2
    exit 2
  fi
done

work="${arg[work]}"
libdir="${arg[libdir]}"
includedir="${arg[includedir]}"
version="${arg[version]}"
soversion="${arg[soversion]}"
source="${arg[source]}"
# Suffix of the exported targets' per-configuration file.
config_suffix=$(echo "${arg[build_type]:-noconfig}" | tr '[:upper:]' '[:lower:]')
rm -rf "$work"
mkdir -p "$work"

fail() {
  echo "consumer_test.sh: FAILED: $*" >&2
  exit 1
}

# logged LOG COMMAND...: runs COMMAND with its output in LOG, shown if it fails.
logged() {
  local log="$1"
  shift
  if ! "$@" >"$log" 2>&1; then
    cat "$log" >&2
    fail "$*"
  fi
}

# expect_files PREFIX EXPECTED_LIST_FILE: PREFIX holds exactly those files.
expect_files() {
  local actual
  actual="$work/$(basename "$1").files"
  (cd "$1" && find . \( -type f -o -type l \) | sed 's|^\./||' | LC_ALL=C sort) >"$actual"
  LC_ALL=C sort -o "$2" "$2"
  if ! diff -u "$2" "$actual"; then
    fail "$1 does not hold the expected files (- expected, + installed)"
  fi
}

# expect_link LINK TARGET: LINK is a symbolic link to TARGET.
expect_link() {
  [ -L "$1" ] || fail "$1 is not a symbolic link"
  [ "$(readlink "$1")" = "$2" ] || fail "$1 points to $(readlink "$1"), expected $2"
}

# headers DIR PREFIX: the headers under DIR, as PREFIX/<relative path>.
headers() {
  (cd "$1" && find . -name '*.h' -type f | sed "s|^\./|$2/|")
}

for component in module host; do
  logged "$work/install-$component.log" \
    "${arg[cmake]}" --install "${arg[build]}" --component "$component" --prefix "$work/$component"
done

# ---- What each component installs -------------------------------------------

module_lib="libqira_network_utils_wireless.so"
host_lib="libqira_host.so"
{
  echo "$libdir/$module_lib"
  echo "$libdir/$module_lib.$soversion"
  echo "$libdir/$module_lib.$version"
  echo "$libdir/pkgconfig/qira_network_utils_wireless.pc"
  for file in config config-version targets "targets-$config_suffix"; do
    echo "$libdir/cmake/qira_network_utils_wireless/qira_network_utils_wireless-$file.cmake"
  done
  headers "$source/include/qira" "$includedir/qira"
  # The host contract: every host header except the reference host's own.
  headers "$source/host/include/qira" "$includedir/qira" | grep -v "^$includedir/qira/host/"
} >"$work/module.expected"
{
  echo "$libdir/$host_lib"
  echo "$libdir/$host_lib.$soversion"
  echo "$libdir/$host_lib.$version"
  echo "$libdir/pkgconfig/qira_host.pc"
  for file in config config-version targets "targets-$config_suffix"; do
    echo "$libdir/cmake/qira_host/qira_host-$file.cmake"
  done
  headers "$source/host/include/qira/host" "$includedir/qira/host"
} >"$work/host.expected"
expect_files "$work/module" "$work/module.expected"
expect_files "$work/host" "$work/host.expected"
expect_link "$work/module/$libdir/$module_lib" "$module_lib.$soversion"
expect_link "$work/module/$libdir/$module_lib.$soversion" "$module_lib.$version"
expect_link "$work/host/$libdir/$host_lib" "$host_lib.$soversion"
expect_link "$work/host/$libdir/$host_lib.$soversion" "$host_lib.$version"
soname=$(readelf -d "$work/module/$libdir/$module_lib.$version" |
  sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$soname" = "$module_lib.$soversion" ] || fail "module SONAME is '$soname'"

if [ "${arg[tools]}" = ON ]; then
  logged "$work/install-tools.log" \
    "${arg[cmake]}" --install "${arg[build]}" --component tools --prefix "$work/tools"
  printf '%s\n' "${arg[bindir]}/qira-wifi" "${arg[mandir]}/man1/qira-wifi.1" \
    "${arg[datadir]}/bash-completion/completions/qira-wifi" >"$work/tools.expected"
  expect_files "$work/tools" "$work/tools.expected"
  cmp -s "$source/tools/qira-wifi/qira-wifi.1" "$work/tools/${arg[mandir]}/man1/qira-wifi.1" ||
    fail "the installed manual page is not tools/qira-wifi/qira-wifi.1"
  cmp -s "$source/tools/qira-wifi/qira-wifi.bash-completion" \
    "$work/tools/${arg[datadir]}/bash-completion/completions/qira-wifi" ||
    fail "the installed completion is not tools/qira-wifi/qira-wifi.bash-completion"
  echo "consumer_test.sh: the tools component installs ${arg[bindir]}/qira-wifi, its manual" \
    "page and its bash completion"
fi
echo "consumer_test.sh: the module and host components install the expected files"

# ---- Through pkg-config ------------------------------------------------------

module_file="$work/module/$libdir/$module_lib.$version"
export PKG_CONFIG_PATH="$work/module/$libdir/pkgconfig:$work/host/$libdir/pkgconfig"
if [ -n "${arg[pkg_config_libdir]}" ]; then
  export PKG_CONFIG_LIBDIR="${arg[pkg_config_libdir]}"
fi
for package in qira_network_utils_wireless qira_host; do
  found=$("${arg[pkg_config]}" --modversion "$package") || fail "pkg-config does not find $package"
  [ "$found" = "$version" ] || fail "pkg-config: $package is version $found, expected $version"
done
read -r -a cxxflags <<<"${arg[cxxflags]}"
mkdir -p "$work/pkg-config"
# Each package alone compiles its headers. pkg-config writes a space inside a
# path (a build tree in a folder whose name holds one) as "\ ", so its flags
# are split by read without -r, which keeps such a space in its word.
for check in module_only:qira_network_utils_wireless host_only:qira_host; do
  # shellcheck disable=SC2162  # the backslashes are pkg-config's escapes
  read -a pc_flags <<<"$("${arg[pkg_config]}" --cflags "${check#*:}")"
  "${arg[cxx]}" -std=c++17 -Wall -Wextra -Werror "${cxxflags[@]}" -fsyntax-only \
    "$source/tests/packaging/consumer/${check%%:*}.cpp" "${pc_flags[@]}"
done
# shellcheck disable=SC2162  # as above
read -a pc_flags <<<"$("${arg[pkg_config]}" --cflags --libs qira_host qira_network_utils_wireless)"
"${arg[cxx]}" -std=c++17 -Wall -Wextra -Werror "${cxxflags[@]}" \
  -o "$work/pkg-config/consumer" "$source/tests/packaging/consumer/consumer.cpp" \
  "${pc_flags[@]}" -ldl
env -u QIRA_WIRELESS_MODULE LD_LIBRARY_PATH="$work/module/$libdir:$work/host/$libdir" \
  "${emulator[@]}" "$work/pkg-config/consumer" "$module_file"
unset PKG_CONFIG_PATH

# ---- Through find_package ----------------------------------------------------

cmake_options=(
  -G "${arg[generator]}"
  -DCMAKE_CXX_COMPILER="${arg[cxx]}"
  -DCMAKE_BUILD_TYPE="${arg[build_type]}"
  -DCMAKE_CXX_FLAGS="${arg[cxxflags]}"
  -DCMAKE_PREFIX_PATH="$work/module;$work/host"
  -DQIRA_EXPECTED_VERSION="$version"
  # Only the prefixes above: no user or system package registry.
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
  -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF
)
if [ -n "${arg[toolchain]}" ]; then
  cmake_options+=(-DCMAKE_TOOLCHAIN_FILE="${arg[toolchain]}")
fi
logged "$work/find-package-configure.log" \
  "${arg[cmake]}" -S "$source/tests/packaging/consumer" -B "$work/find-package" "${cmake_options[@]}"
for package in qira_network_utils_wireless qira_host; do
  dir=$(sed -n "s/^${package}_DIR:PATH=//p" "$work/find-package/CMakeCache.txt")
  prefix=$([ "$package" = qira_host ] && echo host || echo module)
  [ "$dir" = "$work/$prefix/$libdir/cmake/$package" ] || fail "find_package found $package in '$dir'"
done
logged "$work/find-package-build.log" "${arg[cmake]}" --build "$work/find-package"
# The program finds both libraries through the RUNPATH the link gave it.
env -u QIRA_WIRELESS_MODULE -u LD_LIBRARY_PATH \
  "${emulator[@]}" "$work/find-package/consumer" "$module_file"
