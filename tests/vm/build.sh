#!/bin/bash
# Builds the virtual camera: a Debian kernel and an initramfs in three cpio
# segments that the runner concatenates (the kernel unpacks concatenated
# newc archives one after the other, later entries adding to earlier ones):
#
#   system.cpio   Debian userland of this machine: busybox (static) with its
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
# Usage: tests/vm/build.sh [CMAKE_BUILD_DIR]
#   CMAKE_BUILD_DIR (or QIRA_VM_BUILD_DIR): where the project is built,
#       default build/vm-build; configured and built here with
#       -DQIRA_BUILD_TESTS=OFF unless QIRA_VM_SKIP_CMAKE=1.
#   QIRA_VM_OUT    output folder (default build/vm)
#   QIRA_VM_CACHE  download cache for the kernel package (default build/vm-cache)
#   QIRA_VM_KERNEL_PACKAGE  kernel package name (default: the one that
#       linux-image-amd64 depends on, from apt-cache)
#   --world-only   leave the project's programs out (harness work only: every
#       scenario that runs qira-wifi then fails, loudly)
#
# Needs (Debian 12): qemu-system-x86 busybox-static iw wpasupplicant hostapd
# dnsmasq-base wireless-tools iproute2 wireless-regdb kmod cpio xz-utils bc,
# and cmake, ninja and a C++ compiler for the project part.
set -euo pipefail

VM_DIR=$(cd "$(dirname "$0")" && pwd)
SOURCE_DIR=$(cd "$VM_DIR/../.." && pwd)

world_only=0
build_dir=${QIRA_VM_BUILD_DIR:-}
for arg in "$@"; do
  case $arg in
    --world-only) world_only=1 ;;
    -h | --help) sed -n '2,35p' "$0"; exit 0 ;;
    *) build_dir=$arg ;;
  esac
done
build_dir=${build_dir:-$SOURCE_DIR/build/vm-build}
OUT=${QIRA_VM_OUT:-$SOURCE_DIR/build/vm}
CACHE=${QIRA_VM_CACHE:-$SOURCE_DIR/build/vm-cache}
mkdir -p "$OUT" "$CACHE"
OUT=$(cd "$OUT" && pwd)

# Bump these when the recipe of a part changes, so the cached part is redone.
readonly KERNEL_PART_RECIPE=1
readonly SYSTEM_PART_RECIPE=1

# Debian packages whose files go into system.cpio; their versions key the cache.
readonly SYSTEM_PACKAGES="busybox-static iw wpasupplicant hostapd dnsmasq-base wireless-tools
  iproute2 wireless-regdb libc6"
# Kernel modules the camera loads; their dependencies come along.
readonly KERNEL_MODULES="mac80211_hwsim ccm gcm ctr cmac"
readonly LIBDIR=usr/lib/x86_64-linux-gnu

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
  ldd "$binary" | awk '/=> \// { print $3 } $1 ~ /^\/lib64\/ld-linux/ { print $1 }' |
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
kernel_part() {
  local started package deb stamp tree version offset
  started=$(now)
  package=${QIRA_VM_KERNEL_PACKAGE:-}
  if [ -z "$package" ]; then
    package=$(apt-cache depends linux-image-amd64 2>/dev/null |
      awk '/Depends: linux-image-[0-9]/ { print $2; exit }')
  fi
  if [ -z "$package" ]; then
    # No package lists (apt-get update not run): use what the cache holds.
    deb=$(ls -t "$CACHE"/linux-image-*-amd64_*.deb 2>/dev/null | head -1 || true)
    [ -n "$deb" ] || die "cannot name the kernel package: run apt-get update"
    package=$(basename "$deb" | cut -d_ -f1)
  fi
  deb=$(ls -t "$CACHE/${package}"_*.deb 2>/dev/null | head -1 || true)
  if [ -z "$deb" ]; then
    log "downloading $package into $CACHE"
    (cd "$CACHE" && apt-get download "$package") >&2 || die "apt-get download $package failed"
    deb=$(ls -t "$CACHE/${package}"_*.deb | head -1)
  fi
  stamp="recipe=$KERNEL_PART_RECIPE deb=$(basename "$deb")"
  if [ -f "$OUT/kernel.stamp" ] && [ "$(cat "$OUT/kernel.stamp")" = "$stamp" ] &&
    [ -f "$OUT/vmlinux" ] && [ -f "$OUT/modules.cpio" ]; then
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

  depmod -b "$tree/pkg" "$version"
  mkdir -p "$tree/root"
  local module file relative
  for module in $KERNEL_MODULES; do
    modprobe -d "$tree/pkg" -S "$version" --show-depends "$module"
  done | awk '$1 == "insmod" { print $2 }' | sort -u | while read -r file; do
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

system_part() {
  local started stamp root tool applet
  started=$(now)
  stamp="recipe=$SYSTEM_PART_RECIPE $(dpkg-query -W $SYSTEM_PACKAGES 2>/dev/null | tr '\t\n' '= ')"
  for tool in busybox iw wpa_supplicant; do tool_path "$tool" > /dev/null; done
  if [ -f "$OUT/system.stamp" ] && [ "$(cat "$OUT/system.stamp")" = "$stamp" ] &&
    [ -f "$OUT/system.cpio" ] && [ -f "$OUT/system.list" ]; then
    log "system part up to date"
    return
  fi
  root=$OUT/work/system
  rm -rf "$root" "$OUT/system.stamp"
  # Merged /usr, as on the camera's Debian-style image: "/bin/iw" and the
  # other programs the module names resolve through the /bin link.
  mkdir -p "$root"/{usr/bin,usr/sbin,$LIBDIR,usr/lib64,usr/lib/firmware,usr/lib/modules}
  mkdir -p "$root"/{dev,proc,sys,run,tmp,root,etc,var/log,var/lib/misc,home}
  ln -s usr/bin "$root/bin"
  ln -s usr/sbin "$root/sbin"
  ln -s usr/lib "$root/lib"
  ln -s usr/lib64 "$root/lib64"
  ln -s ../run "$root/var/run"
  chmod 1777 "$root/tmp"

  install -m 755 "$(tool_path busybox)" "$root/usr/bin/busybox"
  for applet in $("$root/usr/bin/busybox" --list); do
    [ -e "$root/usr/bin/$applet" ] || ln -s busybox "$root/usr/bin/$applet"
  done
  # The kernel's request_module() runs /sbin/modprobe.
  ln -sf ../bin/busybox "$root/usr/sbin/modprobe"

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

  (cd "$root" && find . -mindepth 1 \( -type f -o -type l \) -printf '%P\n' | LC_ALL=C sort) > "$OUT/system.list"
  pack_cpio "$root" "$OUT/system.cpio"
  rm -rf "$root"
  echo "$stamp" > "$OUT/system.stamp"
  log "system part built in $(elapsed "$started") s"
}

# ---------------------------------------------------------------- project part
project_part() {
  local started root program host_program library
  started=$(now)
  root=$OUT/work/project
  rm -rf "$root"
  mkdir -p "$root/usr/bin" "$root/$LIBDIR" "$root/usr/share/qira-vm/scenarios"

  if [ "$world_only" = 0 ]; then
    if [ "${QIRA_VM_SKIP_CMAKE:-0}" != 1 ]; then
      log "building the project in $build_dir"
      cmake -S "$SOURCE_DIR" -B "$build_dir" -G Ninja -DQIRA_BUILD_TESTS=OFF > /dev/null
      ninja -C "$build_dir" >&2
    fi
    program=$(find "$build_dir" -name qira-wifi -type f -perm -u+x 2>/dev/null | head -1)
    [ -n "$program" ] || die "no qira-wifi program in $build_dir (is tools/qira-wifi built?)"
    install -m 755 "$program" "$root/usr/bin/qira-wifi"
    # The fault scenarios' long-lived host (tests/vm/host).
    host_program=$(find "$build_dir" -name qira-vm-host -type f -perm -u+x 2>/dev/null | head -1)
    [ -n "$host_program" ] || die "no qira-vm-host program in $build_dir"
    install -m 755 "$host_program" "$root/usr/bin/qira-vm-host"
    # The module and the reference host with their SONAME links; the host
    # loads the module by SONAME from the system library folder.
    for library in libqira_network_utils_wireless.so libqira_host.so; do
      find "$build_dir" -name "$library*" \( -type f -o -type l \) -exec cp -P {} "$root/$LIBDIR/" \;
      ls "$root/$LIBDIR/$library".* > /dev/null 2>&1 || die "$library not found in $build_dir"
    done
    copy_libraries "$program" "$root" "$OUT/system.list"
    copy_libraries "$(ls "$root/$LIBDIR"/libqira_network_utils_wireless.so.*.* | head -1)" "$root" "$OUT/system.list"
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
system_part
project_part
rm -rf "$OUT/work"
log "done in $(elapsed "$total_started") s: $(du -ch "$OUT"/{system,modules,project}.cpio | tail -1 | cut -f1) of cpio in $OUT"
