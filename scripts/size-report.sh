#!/usr/bin/env bash
# Size report of the module as it ships: built with the size release flags
# (-Os, one section per function and datum, --gc-sections, hidden
# visibility) for x86-64, armhf and arm64, stripped, and described: its
# stripped size, the libraries it needs, the symbol versions it requires of
# libstdc++ and libc, and where its bytes come from (by subsystem and source
# file, from the linker map; the largest symbols, from the unstripped file).
#   scripts/size-report.sh [x86-64] [armhf] [arm64]    (all three when none is named)
# Builds into build/size-<architecture>; scripts/cross-deps.sh installs the
# cross compilers.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
architectures=("$@")
if [ "${#architectures[@]}" -eq 0 ]; then
  architectures=(x86-64 armhf arm64)
fi

module=libqira_network_utils_wireless.so
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

# tool_prefix ARCHITECTURE: the binutils prefix of its toolchain.
tool_prefix() {
  case "$1" in
    x86-64) echo "" ;;
    armhf) echo "arm-linux-gnueabihf-" ;;
    arm64) echo "aarch64-linux-gnu-" ;;
  esac
}

# build ARCHITECTURE: configures and builds only the module; prints its build folder.
build() {
  local architecture="$1" build_dir="$root/build/size-$1"
  local toolchain=()
  if [ "$architecture" != x86-64 ]; then
    toolchain=(-DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/$architecture.cmake")
  fi
  cmake -S "$root" -B "$build_dir" -G Ninja "${toolchain[@]}" "${launcher[@]}" \
    -DCMAKE_BUILD_TYPE=MinSizeRel -DQIRA_SIZE_RELEASE=ON \
    -DQIRA_BUILD_TESTS=OFF -DQIRA_BUILD_TOOLS=OFF -DCMAKE_COMPILE_WARNING_AS_ERROR=ON >&2
  cmake --build "$build_dir" -j2 --target qira_network_utils_wireless >&2
  echo "$build_dir"
}

# versions_needed FILE: "library: version version..." for every library
# whose symbol versions FILE requires (readelf reads every architecture).
versions_needed() {
  readelf -V "$1" | awk '
    /^Version needs section/ { in_needs = 1; next }
    /^Version (symbols|definition) section/ { in_needs = 0 }
    in_needs && /File:/ { for (i = 1; i <= NF; i++) if ($i == "File:") library = $(i + 1) }
    in_needs && /Name:/ { for (i = 1; i <= NF; i++) if ($i == "Name:") print library, $(i + 1) }' |
    sort -k1,1 -k2,2V |
    awk '$1 != library { if (line != "") print line; library = $1; line = "  " $1 ":" }
      { line = line " " $2 }
      END { if (line != "") print line }'
}

# map_contributors MAP: bytes of the kept, allocated input sections per
# source file, from a GNU ld map: "bytes subsystem/file" lines. The tables
# the linker makes for dynamic linking (symbols and their names, PLT, GOT,
# relocations) count as "dynamic-linking/<section>", whatever object ld
# files them under; the toolchain's own objects (crt files, libgcc) as
# "runtime/<object>".
map_contributors() {
  awk '
    function hex(text,    value, digit, i) {
      value = 0
      text = tolower(substr(text, 3))
      for (i = 1; i <= length(text); i++) {
        digit = index("0123456789abcdef", substr(text, i, 1)) - 1
        value = value * 16 + digit
      }
      return value
    }
    function add(section, size, file,    name) {
      if (section ~ /^\.(comment|note|debug|ARM\.attributes|gnu\.attributes)/) return
      if (section ~ /^\.(dynsym|dynstr|dynamic|hash|gnu\.hash|gnu\.version|rel|plt|got)/) {
        name = "dynamic-linking/" section
      } else if (file ~ /qira_network_utils_wireless\.dir\//) {
        name = file
        sub(/.*qira_network_utils_wireless\.dir\//, "", name)
        sub(/\.o$/, "", name)
      } else {
        name = file
        sub(/.*\//, "", name)
        name = "runtime/" name
      }
      bytes[name] += hex(size)
    }
    /^Linker script and memory map/ { in_map = 1; next }
    !in_map { next }
    # A long input section name stands alone; its address, size and file follow.
    /^ \.[^ ]+$/ { pending = $1; next }
    pending != "" && /^ +0x[0-9a-f]+ +0x[0-9a-f]+ [^ ]/ { add(pending, $2, $3); pending = ""; next }
    /^ \.[^ ]+ +0x[0-9a-f]+ +0x[0-9a-f]+ [^ ]/ { add($1, $3, $4); pending = ""; next }
    { pending = "" }
    END { for (name in bytes) if (bytes[name] > 0) print bytes[name], name }' "$1"
}

# report ARCHITECTURE BUILD_DIR: the report of one architecture; also
# appends its row to the summary.
summary=()
report() {
  local architecture="$1" build_dir="$2"
  local prefix
  prefix="$(tool_prefix "$architecture")"
  local unstripped="$build_dir/src/$module"
  local stripped="$build_dir/$module.stripped"
  "${prefix}strip" --strip-all -o "$stripped" "$unstripped"
  local bytes needed
  bytes=$(stat -c %s "$stripped")
  needed=$(readelf -d "$stripped" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | paste -sd ' ' -)
  read -r text data bss < <("${prefix}size" "$stripped" | awk 'NR == 2 { print $1, $2, $3 }')
  summary+=("$(printf '%-7s %9s %9s %7s %6s  %s' "$architecture" "$bytes" "$text" "$data" "$bss" "$needed")")

  echo
  echo "==== $architecture: $module, stripped"
  echo "size: $bytes bytes (text $text, data $data, bss $bss)"
  echo "needed: $needed"
  echo "symbol versions required:"
  versions_needed "$stripped"
  local contributors
  contributors=$(map_contributors "$build_dir/qira_network_utils_wireless.map")
  echo "bytes by subsystem (kept allocated sections, linker map):"
  echo "$contributors" | awk '{ name = $2; sub(/\/.*/, "", name); total[name] += $1 }
    END { for (name in total) printf "  %8d  %s\n", total[name], name }' | sort -rn
  echo "largest source files:"
  echo "$contributors" | sort -rn | head -12 | awk '{ printf "  %8d  %s\n", $1, $2 }'
  echo "largest symbols (unstripped module):"
  # For a shared object nm --size-sort prints size, type and name.
  "${prefix}nm" --size-sort --radix=d -C "$unstripped" | tail -10 |
    awk '{ size = $1 + 0; $1 = $2 = ""; sub(/^ +/, ""); printf "  %8d  %s\n", size, $0 }' |
    sort -rn
}

for architecture in "${architectures[@]}"; do
  case "$architecture" in
    x86-64 | armhf | arm64) ;;
    *) echo "size-report: unknown architecture $architecture (x86-64, armhf or arm64)" >&2; exit 2 ;;
  esac
  report "$architecture" "$(build "$architecture")"
done

echo
echo "==== summary (bytes; stripped module)"
printf '%-7s %9s %9s %7s %6s  %s\n' arch file text data bss needed
printf '%s\n' "${summary[@]}"
