#!/bin/bash
# Builds the virtual camera: a Debian kernel and an initramfs in three cpio
# segments that the runner concatenates (the kernel unpacks concatenated
# newc archives one after the other, later entries adding to earlier ones):
#
#   system.cpio   Debian userland of this machine (for armhf: of Debian's
#                 armhf packages, see debs.sh): busybox (static) with its
#                 applets, iw, wpa_supplicant, wpa_cli, hostapd, hostapd_cli,
#                 dnsmasq, iwconfig/iwlist, iproute2, their shared libraries
#                 and the dynamic loader, the signed regulatory database.
#   modules.cpio  the kernel's module closure for mac80211_hwsim and the
#                 WPA2 ciphers (ccm gcm ctr cmac), with modules.dep.
#   project.cpio  this project: qira-wifi, the wireless module, the reference
#                 host, the libraries they need beyond system.cpio, and the
#                 guest side of the harness (/init, the camera's files,
#                 tests/vm/guest/lib.sh and the scenarios).
#
# Each segment is rebuilt only when its inputs change: the kernel part when
# the kernel package changes, the system part when one of the Debian packages
# changes, the project part on every run (it takes about a second), so a code
# change never touches the kernel part.
#
# Usage: tests/vm/build.sh [--arch amd64|armhf] [CMAKE_BUILD_DIR]
#   --arch A       the camera's architecture (default amd64, or QIRA_VM_ARCH):
#       amd64 boots Debian's amd64 kernel with this machine's own Debian
#       programs; armhf boots Debian's armmp kernel under qemu-system-arm with
#       Debian's armhf packages, fetched with "apt-get download" and unpacked
#       into the image (never installed here), and the project cross-built
#       with cmake/toolchains/armhf.cmake.
#   CMAKE_BUILD_DIR (or QIRA_VM_BUILD_DIR): where the project is built,
#       default build/vm-build (build/vm-build-armhf); configured and built
#       here as the camera's release build (MinSizeRel with the module's size
#       flags, -DQIRA_BUILD_TESTS=OFF) unless QIRA_VM_SKIP_CMAKE=1. The image
#       carries the programs and libraries stripped.
#   QIRA_VM_OUT    output folder (default build/vm, build/vm-armhf)
#   QIRA_VM_CACHE  download cache for the packages (default build/vm-cache)
#   QIRA_VM_KERNEL_PACKAGE  kernel package name (default: the one that
#       linux-image-amd64, or linux-image-armmp:armhf, depends on)
#   --world-only   leave the project's programs out (harness work only: every
#       scenario that runs qira-wifi then fails, loudly)
#
# Needs (Debian 12): qemu-system-x86 busybox-static iw wpasupplicant hostapd
# dnsmasq-base wireless-tools iproute2 wireless-regdb kmod cpio xz-utils bc,
# and cmake, ninja and a C++ compiler for the project part; for armhf
# qemu-system-arm and scripts/cross-deps.sh armhf (the cross compiler, the
# armhf libraries it links and qemu-arm-static, which lists busybox's applets).
set -euo pipefail

VM_DIR=$(cd "$(dirname "$0")" && pwd)
SOURCE_DIR=$(cd "$VM_DIR/../.." && pwd)

world_only=0
build_dir=${QIRA_VM_BUILD_DIR:-}
ARCH=${QIRA_VM_ARCH:-amd64}
while [ $# -gt 0 ]; do
  case $1 in
    --world-only) world_only=1 ;;
    --arch) ARCH=$2; shift ;;
    --arch=*) ARCH=${1#*=} ;;
    -h | --help) sed -n '2,45p' "$0"; exit 0 ;;
    *) build_dir=$1 ;;
  esac
  shift
done
case $ARCH in
  amd64)
    TRIPLET=x86_64-linux-gnu
    KERNEL_META=linux-image-amd64
    suffix= ;;
  armhf)
    TRIPLET=arm-linux-gnueabihf
    KERNEL_META=linux-image-armmp:armhf
    suffix=-armhf ;;
  *) echo "build.sh: unknown architecture $ARCH (amd64 or armhf)" >&2; exit 2 ;;
esac
build_dir=${build_dir:-$SOURCE_DIR/build/vm-build$suffix}
OUT=${QIRA_VM_OUT:-$SOURCE_DIR/build/vm$suffix}
CACHE=${QIRA_VM_CACHE:-$SOURCE_DIR/build/vm-cache}
mkdir -p "$OUT" "$CACHE"
OUT=$(cd "$OUT" && pwd)
CACHE=$(cd "$CACHE" && pwd)

# Bump these when the recipe of a part changes, so the cached part is redone.
readonly KERNEL_PART_RECIPE=1
readonly SYSTEM_PART_RECIPE=1

# Debian packages whose files go into system.cpio; their versions key the cache.
readonly SYSTEM_PACKAGES="busybox-static iw wpasupplicant hostapd dnsmasq-base wireless-tools
  iproute2 wireless-regdb libc6"
# Kernel modules the camera loads; their dependencies come along.
readonly KERNEL_MODULES="mac80211_hwsim ccm gcm ctr cmac"
readonly LIBDIR=usr/lib/$TRIPLET
# The armhf user land: which program comes from which Debian package.
readonly ARMHF_PROGRAMS="iw:iw wpasupplicant:wpa_supplicant wpasupplicant:wpa_cli hostapd:hostapd
  hostapd:hostapd_cli dnsmasq-base:dnsmasq wireless-tools:iwconfig wireless-tools:iwlist
  wireless-tools:iwgetid"
DEB_ARCH=$ARCH

log() { printf 'build.sh: %s\n' "$*" >&2; }
die() { log "error: $*"; exit 1; }
now() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$(now)" 'BEGIN { printf "%.1f", b - a }'; }

# Writes the newc archive of folder $1 to file $2 (owner root, sorted names).
pack_cpio() {
  (cd "$1" && find . -mindepth 1 -printf '%P\0' | LC_ALL=C sort -z |
    cpio --null -o -H newc -R 0:0 --quiet) > "$2.tmp"
  mv "$2.tmp" "$2"
}

# Copies the shared libraries that binary $1 needs (ldd closure) and the
# dynamic loader into root $2, skipping names listed in file $3 (may be empty).
copy_libraries() {
  local binary=$1 root=$2 skip=${3:-/dev/null} lib name
  # The path after "=> " up to its " (address)", whole: a build tree's may hold a space.
  ldd "$binary" | sed -n -e 's|^.* => \(/.*\) (0x[0-9a-f]*)$|\1|p' -e 's|^[[:space:]]*\(/lib64/ld-linux[^ ]*\) .*|\1|p' |
    while read -r lib; do
      name=$(basename "$lib")
      # Already there (a SONAME link of the project's own libraries): keep it.
      if [ -e "$root/$LIBDIR/$name" ] || [ -e "$root/usr/lib64/$name" ]; then
        continue
      elif [[ $lib == /lib64/* ]]; then
        grep -qxF "usr/lib64/$name" "$skip" || install -D -m 755 "$(readlink -f "$lib")" "$root/usr/lib64/$name"
      else
        grep -qxF "$LIBDIR/$name" "$skip" || install -D -m 644 "$(readlink -f "$lib")" "$root/$LIBDIR/$name"
      fi
    done
}

# ---------------------------------------------------------------- kernel part
# The amd64 kernel as an uncompressed ELF beside the bzImage.
extract_vmlinux() {
  local offset
  # qemu starts an uncompressed ELF vmlinux through its PVH entry note: no
  # firmware, no real-mode set-up and no in-guest xz decompression, about
  # 2.5 s less per boot under software emulation. The bzImage carries the
  # kernel as an xz stream followed by padding, so xz exits non-zero after
  # writing the whole kernel; the PVH note check below is what decides.
  offset=$(LC_ALL=C grep -obUaP '\xfd7zXZ\x00' "$OUT/vmlinuz" | head -1 | cut -d: -f1)
  tail -c +$((offset + 1)) "$OUT/vmlinuz" | xz -dcq > "$OUT/vmlinux.tmp" 2>/dev/null || true
  if readelf -n "$OUT/vmlinux.tmp" 2>/dev/null | grep -q 'Xen.*0x00000012'; then
    mv "$OUT/vmlinux.tmp" "$OUT/vmlinux"
  else
    log "warning: no PVH entry in the extracted vmlinux; the runner will boot vmlinuz"
    rm -f "$OUT/vmlinux.tmp" "$OUT/vmlinux"
  fi
}

kernel_part() {
  local started package deb stamp tree version flavour
  started=$(now)
  flavour=${KERNEL_META#linux-image-}
  flavour=${flavour%:*}
  package=${QIRA_VM_KERNEL_PACKAGE:-}
  if [ -z "$package" ]; then
    package=$(apt-cache depends "$KERNEL_META" 2>/dev/null |
      awk '/Depends: linux-image-[0-9]/ { print $2; exit }')
  fi
  package=${package%:*}
  if [ -z "$package" ]; then
    # No package lists (apt-get update not run): use what the cache holds.
    deb=$(ls -t "$CACHE"/linux-image-*-"${flavour}_"*"_$ARCH.deb" 2>/dev/null | head -1 || true)
    [ -n "$deb" ] || die "cannot name the kernel package: run apt-get update"
    package=$(basename "$deb" | cut -d_ -f1)
  fi
  deb=$(ls -t "$CACHE/${package}"_*"_$ARCH.deb" 2>/dev/null | head -1 || true)
  if [ -z "$deb" ]; then
    log "downloading $package ($ARCH) into $CACHE"
    (cd "$CACHE" && apt-get download "$package:$ARCH") >&2 || die "apt-get download $package:$ARCH failed"
    deb=$(ls -t "$CACHE/${package}"_*"_$ARCH.deb" | head -1)
  fi
  stamp="recipe=$KERNEL_PART_RECIPE deb=$(basename "$deb")"
  if [ -f "$OUT/kernel.stamp" ] && [ "$(cat "$OUT/kernel.stamp")" = "$stamp" ] &&
    [ -f "$OUT/vmlinuz" ] && [ -f "$OUT/modules.cpio" ]; then
    log "kernel part up to date ($(basename "$deb"))"
    return
  fi
  log "kernel part: extracting $(basename "$deb")"
  tree=$OUT/work/kernel
  rm -rf "$tree" "$OUT/kernel.stamp"
  mkdir -p "$tree"
  dpkg-deb -x "$deb" "$tree/pkg"
  version=$(ls "$tree/pkg/lib/modules" | head -1)
  cp "$tree/pkg/boot/vmlinuz-$version" "$OUT/vmlinuz"
  # qemu-system-arm boots the armmp zImage as it is (it decompresses itself).
  if [ "$ARCH" = amd64 ]; then
    extract_vmlinux
  fi

  depmod -b "$tree/pkg" "$version"
  mkdir -p "$tree/root"
  local module file relative
  # The whole path after "insmod ": the tree's may hold a space.
  for module in $KERNEL_MODULES; do
    modprobe -d "$tree/pkg" -S "$version" --show-depends "$module"
  done | sed -n 's/^insmod \(.*\.ko[^ ]*\).*$/\1/p' | sort -u | while read -r file; do
    relative=${file#"$tree/pkg/"}
    install -D -m 644 "$file" "$tree/root/usr/$relative"
  done
  for file in modules.order modules.builtin modules.builtin.modinfo; do
    cp "$tree/pkg/lib/modules/$version/$file" "$tree/root/usr/lib/modules/$version/"
  done
  depmod -b "$tree/root/usr" "$version"
  pack_cpio "$tree/root" "$OUT/modules.cpio"
  echo "$version" > "$OUT/kernel.version"
  rm -rf "$tree"
  echo "$stamp" > "$OUT/kernel.stamp"
  log "kernel part ($version) built in $(elapsed "$started") s"
}

# ---------------------------------------------------------------- system part
tool_path() { # the real file of a program of this machine
  local path
  path=$(PATH=/usr/sbin:/usr/bin:/sbin:/bin command -v "$1") || die "$1 missing: apt-get install its package"
  readlink -f "$path"
}

# system_root ROOT: the skeleton of the image's root. Merged /usr, as on the
# camera's Debian-style image: "/bin/iw" and the other programs the module
# names resolve through the /bin link.
system_root() {
  local root=$1
  mkdir -p "$root"/{usr/bin,usr/sbin,$LIBDIR,usr/lib64,usr/lib/firmware,usr/lib/modules}
  mkdir -p "$root"/{dev,proc,sys,run,tmp,root,etc,var/log,var/lib/misc,home}
  ln -s usr/bin "$root/bin"
  ln -s usr/sbin "$root/sbin"
  ln -s usr/lib "$root/lib"
  ln -s usr/lib64 "$root/lib64"
  ln -s ../run "$root/var/run"
  chmod 1777 "$root/tmp"
}

# busybox_applets ROOT [EMULATOR]: a link to busybox for each of its applets
# that ROOT/usr/bin lacks, and /sbin/modprobe (the kernel's request_module()
# runs it).
busybox_applets() {
  local root=$1 applet
  shift
  for applet in $("$@" "$root/usr/bin/busybox" --list); do
    [ -e "$root/usr/bin/$applet" ] || ln -s busybox "$root/usr/bin/$applet"
  done
  ln -sf ../bin/busybox "$root/usr/sbin/modprobe"
}

# system_done ROOT STAMP: packs the system part and records what it holds.
system_done() {
  (cd "$1" && find . -mindepth 1 \( -type f -o -type l \) -printf '%P\n' | LC_ALL=C sort) > "$OUT/system.list"
  pack_cpio "$1" "$OUT/system.cpio"
  rm -rf "$1"
  echo "$2" > "$OUT/system.stamp"
}

system_up_to_date() { # system_up_to_date STAMP
  [ -f "$OUT/system.stamp" ] && [ "$(cat "$OUT/system.stamp")" = "$1" ] &&
    [ -f "$OUT/system.cpio" ] && [ -f "$OUT/system.list" ]
}

system_part() {
  local started stamp root tool
  started=$(now)
  stamp="recipe=$SYSTEM_PART_RECIPE $(dpkg-query -W $SYSTEM_PACKAGES 2>/dev/null | tr '\t\n' '= ')"
  for tool in busybox iw wpa_supplicant; do tool_path "$tool" > /dev/null; done
  if system_up_to_date "$stamp"; then
    log "system part up to date"
    return
  fi
  root=$OUT/work/system
  rm -rf "$root" "$OUT/system.stamp"
  system_root "$root"
  install -m 755 "$(tool_path busybox)" "$root/usr/bin/busybox"
  busybox_applets "$root"

  # Daemons and tools in /usr/bin, where the module looks for them ("/bin/...").
  for tool in iw wpa_supplicant wpa_cli hostapd hostapd_cli dnsmasq iwconfig iwlist iwgetid; do
    rm -f "$root/usr/bin/$tool"
    install -m 755 "$(tool_path "$tool")" "$root/usr/bin/$tool"
    copy_libraries "$(tool_path "$tool")" "$root"
  done
  # iproute2 as /usr/sbin/ip, the busybox ip applet stays /usr/bin/ip: busybox's
  # shell runs its own applet for a bare "ip", which knows no "netns", so the
  # harness names /usr/sbin/ip explicitly.
  install -m 755 "$(tool_path ip)" "$root/usr/sbin/ip"
  copy_libraries "$(tool_path ip)" "$root"

  # cfg80211 loads the signed regulatory database from the firmware folder.
  cp -L /lib/firmware/regulatory.db /lib/firmware/regulatory.db.p7s "$root/usr/lib/firmware/"
  system_done "$root" "$stamp"
  log "system part built in $(elapsed "$started") s"
}

# package_program TREE NAME: the file of program NAME in an unpacked package
# (its links followed inside the package: iproute2's /sbin/ip is an absolute
# link to /bin/ip).
package_program() {
  local dir
  for dir in usr/sbin usr/bin sbin bin; do
    tree_file "$1" "$dir/$2" && return
  done
  die "no program $2 in $(basename "$1")"
}

# The same system part from Debian's armhf packages (debs.sh), at the
# versions apt offers for armhf: the same as the amd64 image's whenever the
# two architectures' package lists agree (build.sh says so when they do not).
system_part_foreign() {
  local started stamp root package entry tree program amd64_version
  started=$(now)
  stamp="recipe=$SYSTEM_PART_RECIPE arch=$ARCH"
  # shellcheck disable=SC2086
  deb_versions $SYSTEM_PACKAGES
  for package in $SYSTEM_PACKAGES; do
    stamp="$stamp $package=$(deb_version "$package")"
  done
  if system_up_to_date "$stamp"; then
    log "system part up to date"
    return
  fi
  for package in $SYSTEM_PACKAGES; do
    amd64_version=$(dpkg-query -W -f='${Version}' "$package:amd64" 2> /dev/null || true)
    [ -z "$amd64_version" ] || [ "$amd64_version" = "$(deb_version "$package")" ] ||
      log "note: $package is $(deb_version "$package") for $ARCH, $amd64_version for the amd64 image"
  done
  # shellcheck disable=SC2086
  deb_prefetch $SYSTEM_PACKAGES
  root=$OUT/work/system
  rm -rf "$root" "$OUT/system.stamp"
  system_root "$root"
  tree=$(deb_tree busybox-static)
  install -m 755 "$(package_program "$tree" busybox)" "$root/usr/bin/busybox"
  command -v qemu-arm-static > /dev/null || die "qemu-arm-static missing: run scripts/cross-deps.sh armhf"
  busybox_applets "$root" qemu-arm-static

  for entry in $ARMHF_PROGRAMS iproute2:ip; do
    package=${entry%%:*}
    tree=$(deb_tree "$package")
    program=$(package_program "$tree" "${entry#*:}")
    if [ "$package" = iproute2 ]; then
      install -m 755 "$program" "$root/usr/sbin/ip" # see system_part
    else
      rm -f "$root/usr/bin/${entry#*:}"
      install -m 755 "$program" "$root/usr/bin/${entry#*:}"
    fi
    copy_needed "$program" "$root" "$tree"
  done
  # The package holds Debian's and upstream's signed database; Debian's is
  # the alternative it selects on installation, as on the amd64 image.
  tree=$(deb_tree wireless-regdb)
  cp "$tree/lib/firmware/regulatory.db-debian" "$root/usr/lib/firmware/regulatory.db"
  cp "$tree/lib/firmware/regulatory.db.p7s-debian" "$root/usr/lib/firmware/regulatory.db.p7s"
  system_done "$root" "$stamp"
  log "system part ($ARCH) built in $(elapsed "$started") s"
}

# ---------------------------------------------------------------- project part
# The scenarios' own programs, built with the project (see project_programs).
SCENARIO_PROGRAMS=(qira-vm-host scan-dump-probe qira-json-check qira-start-floor qira-info-floor)

# project_programs ROOT: the camera's release build of qira-wifi, the module
# and the reference host (with their SONAME links; the host loads the module
# by SONAME from the system library folder), stripped, and the libraries they
# need beyond the system part.
project_programs() {
  local root=$1 stage=$OUT/work/stage library program built strip_tool toolchain=()
  [ "$ARCH" = amd64 ] || toolchain=(-DCMAKE_TOOLCHAIN_FILE="$SOURCE_DIR/cmake/toolchains/$ARCH.cmake")
  if [ "${QIRA_VM_SKIP_CMAKE:-0}" != 1 ]; then
    log "building the project ($ARCH, MinSizeRel) in $build_dir"
    # The camera's build: -Os with the module's size flags (sections,
    # --gc-sections), as scripts/size-report.sh measures it.
    cmake -S "$SOURCE_DIR" -B "$build_dir" -G Ninja "${toolchain[@]}" -DCMAKE_BUILD_TYPE=MinSizeRel \
      -DQIRA_SIZE_RELEASE=ON -DQIRA_BUILD_TESTS=OFF -DCMAKE_INSTALL_LIBDIR=lib > /dev/null
    ninja -C "$build_dir" >&2
  fi
  rm -rf "$stage"
  cmake --install "$build_dir" --prefix "$stage" --strip > /dev/null ||
    die "cannot install the project from $build_dir"
  [ -x "$stage/bin/qira-wifi" ] || die "no qira-wifi program in $build_dir (is tools/qira-wifi built?)"
  install -m 755 "$stage/bin/qira-wifi" "$root/usr/bin/qira-wifi"
  # The programs of the scenarios, built with the tools but never installed,
  # stripped here with the build's own strip: the fault scenarios'
  # long-lived host (tests/vm/host), the results-dump probe of
  # scan_dump_sequence and bench_air's floors (tests/vm/probes), and the
  # strict JSON parser (tests/vm/json_check).
  strip_tool=$(sed -n 's/^CMAKE_STRIP:FILEPATH=//p' "$build_dir/CMakeCache.txt")
  for program in "${SCENARIO_PROGRAMS[@]}"; do
    built=$(find "$build_dir" -name "$program" -type f -perm -u+x 2>/dev/null | head -1)
    [ -n "$built" ] || die "no $program program in $build_dir"
    install -m 755 "$built" "$root/usr/bin/$program"
    "${strip_tool:-strip}" "$root/usr/bin/$program"
  done
  # The host opens libnl's route library at run time (apply's flush of an
  # interface's addresses) rather than naming it: wpa_supplicant's
  # libraries bring it into the system part.
  grep -q '/libnl-route-3\.so\.200$' "$OUT/system.list" ||
    die "the system part lacks libnl-route-3.so.200, which the host opens"
  for library in libqira_network_utils_wireless.so libqira_host.so; do
    cp -P "$stage"/lib*/"$library".* "$root/$LIBDIR/" 2> /dev/null || die "$library not installed from $build_dir"
  done
  if [ "$ARCH" = amd64 ]; then
    for program in qira-wifi "${SCENARIO_PROGRAMS[@]}"; do
      copy_libraries "$root/usr/bin/$program" "$root" "$OUT/system.list"
    done
    copy_libraries "$(ls "$root/$LIBDIR"/libqira_network_utils_wireless.so.*.* | head -1)" "$root" "$OUT/system.list"
  else
    for program in qira-wifi "${SCENARIO_PROGRAMS[@]}"; do
      copy_needed "$root/usr/bin/$program" "$root" build "$OUT/system.list"
    done
    for library in "$root/$LIBDIR"/libqira_*.so.*.*; do
      copy_needed "$library" "$root" build "$OUT/system.list"
    done
  fi
  rm -rf "$stage"
}

project_part() {
  local started root
  started=$(now)
  root=$OUT/work/project
  rm -rf "$root"
  mkdir -p "$root/usr/bin" "$root/$LIBDIR" "$root/usr/share/qira-vm/scenarios"

  if [ "$world_only" = 0 ]; then
    project_programs "$root"
  fi

  # The harness and the camera's files (users, hosts, identity, vendor
  # stand-ins). Only real paths under usr/ and etc/: an archive entry named
  # "bin" would replace system.cpio's link by a folder.
  install -m 755 "$VM_DIR/guest/init" "$root/init"
  cp -R "$VM_DIR/guest/rootfs/." "$root/"
  install -m 644 "$VM_DIR/guest/lib.sh" "$VM_DIR/guest/camera_host.sh" "$VM_DIR/guest/json_flat.awk" \
    "$VM_DIR/guest/demo.sh" "$root/usr/share/qira-vm/"
  install -m 755 "$VM_DIR/guest/udhcpc.sh" "$root/usr/share/qira-vm/udhcpc.sh"
  mkdir -p "$root/usr/share/qira-vm/demo"
  if ls "$VM_DIR"/guest/demo/*.sh > /dev/null 2>&1; then
    install -m 644 "$VM_DIR"/guest/demo/*.sh "$root/usr/share/qira-vm/demo/"
  fi
  install -m 644 "$VM_DIR"/scenarios/*.sh "$root/usr/share/qira-vm/scenarios/"
  (cd "$VM_DIR/scenarios" && ls -- *.sh | sed 's/\.sh$//') > "$OUT/scenarios.list"
  pack_cpio "$root" "$OUT/project.cpio"
  rm -rf "$root"
  log "project part built in $(elapsed "$started") s"
}

total_started=$(now)
kernel_part
if [ "$ARCH" = amd64 ]; then
  system_part
else
  # shellcheck source=tests/vm/debs.sh
  source "$VM_DIR/debs.sh"
  system_part_foreign
fi
project_part
rm -rf "$OUT/work"
log "done in $(elapsed "$total_started") s: $(du -ch "$OUT"/{system,modules,project}.cpio | tail -1 | cut -f1) of cpio in $OUT"
