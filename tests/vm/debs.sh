# shellcheck shell=bash
# The foreign camera's user land from Debian's own packages (sourced by
# build.sh for --arch armhf). Packages are fetched with "apt-get download"
# into $CACHE/debs and unpacked once into $CACHE/unpacked/<deb name>; they
# are never installed on this machine. A program's shared libraries are the
# closure of its NEEDED entries (readelf -d), each library taken from the
# package that provides it: one of the direct dependencies of the package the
# needing file came from (Debian's packages depend directly on the package of
# every library they link), or, for this project's own programs, the armhf
# package of this machine's multiarch install that the cross build linked.
#
# Needs from the caller: DEB_ARCH (armhf), TRIPLET (arm-linux-gnueabihf),
# LIBDIR (usr/lib/$TRIPLET), CACHE, and the functions log and die.
# Answers of apt and dpkg are kept in $CACHE/memo until their lists change.

# memo_dir NAME SOURCE: a folder of remembered answers in the cache, emptied
# whenever SOURCE (apt's package lists, dpkg's database) changed after it
# was made, so that a warm build asks apt and dpkg nothing (each question
# takes seconds on a loaded machine).
memo_dir() {
  local dir=$CACHE/memo/$1
  if [ ! -f "$dir/.made" ] || [ "$2" -nt "$dir/.made" ]; then
    rm -rf "$dir"
    mkdir -p "$dir"
    touch "$dir/.made"
  fi
  echo "$dir"
}

# deb_versions NAME...: finds the versions of the packages to fetch, apt's
# candidates for the foreign architecture (or the architecture-independent
# package's), with one question to apt for all of them.
deb_versions() {
  local memo name asked=()
  memo=$(memo_dir "versions-$DEB_ARCH" /var/lib/apt/lists)
  for name in "$@"; do
    [ -f "$memo/$name" ] || asked+=("$name:$DEB_ARCH" "$name")
  done
  [ "${#asked[@]}" -gt 0 ] || return 0
  apt-cache policy "${asked[@]}" 2> /dev/null | awk -v memo="$memo" -v arch=":$DEB_ARCH" '
    /^[^ ]/ { name = $1; sub(/:$/, "", name); foreign = sub(arch "$", "", name) }
    $1 == "Candidate:" && $2 != "(none)" && (foreign || !(name in found)) { found[name] = $2 }
    END { for (name in found) print found[name] > (memo "/" name) }'
  for name in "$@"; do
    [ -f "$memo/$name" ] || : > "$memo/$name"
  done
}

# deb_version NAME: the version of package NAME to fetch (see deb_versions).
deb_version() {
  local memo version
  memo=$(memo_dir "versions-$DEB_ARCH" /var/lib/apt/lists)
  [ -f "$memo/$1" ] || deb_versions "$1"
  version=$(cat "$memo/$1")
  [ -n "$version" ] && echo "$version"
}

# deb_file NAME [VERSION]: the .deb of NAME (at VERSION, default apt's
# candidate) in the cache, downloaded first when missing. Without package
# lists (no apt-get update yet) the newest cached one is used.
deb_file() {
  local name=$1 version=${2:-} deb
  [ -n "$version" ] || version=$(deb_version "$name") || version=
  if [ -z "$version" ]; then
    deb=$(ls -t "$CACHE/debs/${name}"_*.deb 2> /dev/null | head -1)
    [ -n "$deb" ] || die "no version of $name:$DEB_ARCH known: run apt-get update"
    echo "$deb"
    return
  fi
  # apt-get download writes the epoch's colon as %3a.
  deb=$(ls "$CACHE/debs/${name}_${version//:/%3a}"_{"$DEB_ARCH",all}.deb 2> /dev/null | head -1)
  if [ -z "$deb" ]; then
    mkdir -p "$CACHE/debs"
    log "downloading $name $version ($DEB_ARCH)"
    (cd "$CACHE/debs" && { apt-get download "$name:$DEB_ARCH=$version" || apt-get download "$name=$version"; }) \
      > /dev/null 2>&1 || die "apt-get download $name:$DEB_ARCH=$version failed"
    deb=$(ls "$CACHE/debs/${name}_${version//:/%3a}"_{"$DEB_ARCH",all}.deb 2> /dev/null | head -1)
    [ -n "$deb" ] || die "apt-get download of $name $version left no .deb"
  fi
  echo "$deb"
}

# deb_tree NAME [VERSION]: the unpacked tree of the package.
deb_tree() {
  local deb tree
  deb=$(deb_file "$@") || exit 1
  tree=$CACHE/unpacked/$(basename "$deb" .deb)
  if [ ! -f "$tree.done" ]; then
    rm -rf "$tree"
    mkdir -p "$tree"
    dpkg-deb -x "$deb" "$tree" || die "cannot unpack $deb"
    dpkg-deb -f "$deb" Package Depends Pre-Depends > "$tree.control"
    touch "$tree.done"
  fi
  echo "$tree"
}

# deb_depends TREE: the packages its package depends on directly (the first
# of each set of alternatives), one per line.
deb_depends() {
  sed -n 's/^\(Pre-\)\{0,1\}Depends: //p' "$1.control" | tr ',' '\n' |
    sed 's/|.*//; s/(.*)//; s/:any//; s/[[:space:]]//g' | grep -v '^$'
}

# deb_is_library NAME: the package is "Multi-Arch: same", as every package
# of shared libraries is (the others, such as adduser or debconf, are never
# fetched). The answer is kept in the cache.
deb_is_library() {
  local marker=$CACHE/multiarch/$1
  if [ ! -f "$marker" ]; then
    mkdir -p "$CACHE/multiarch"
    apt-cache show --no-all-versions "$1:$DEB_ARCH" 2> /dev/null |
      sed -n 's/^Multi-Arch: //p' | head -1 > "$marker.tmp"
    mv "$marker.tmp" "$marker"
  fi
  [ "$(cat "$marker")" = same ]
}

# tree_file TREE PATH: the real file that PATH names inside TREE, following
# its links (relative or absolute) inside the tree.
tree_file() {
  local tree=$1 path=$2 target hops=0
  while [ -L "$tree/$path" ] && [ "$hops" -lt 10 ]; do
    target=$(readlink "$tree/$path")
    case $target in
      /*) path=${target#/} ;;
      *) path=$(dirname "$path")/$target ;;
    esac
    hops=$((hops + 1))
  done
  [ -f "$tree/$path" ] && echo "$tree/$path"
}

# tree_library TREE SONAME: the file of library SONAME in the package tree.
tree_library() {
  tree_file "$1" "lib/$TRIPLET/$2" || tree_file "$1" "usr/lib/$TRIPLET/$2" || tree_file "$1" "lib/$2"
}

# build_machine_package SONAME: "NAME VERSION" of the armhf package of this
# machine's multiarch install that holds SONAME, which the cross build
# linked and its unit suite ran with.
build_machine_package() {
  local memo dir owner
  memo=$(memo_dir "owners-$DEB_ARCH" /var/lib/dpkg/status)
  if [ ! -f "$memo/$1" ]; then
    for dir in /usr/lib/$TRIPLET /lib/$TRIPLET; do
      [ -e "$dir/$1" ] || continue
      owner=$(dpkg -S "$dir/$1" 2> /dev/null | head -1 | cut -d: -f1)
      [ -n "$owner" ] || continue
      echo "$owner $(dpkg-query -W -f='${Version}' "$owner:$DEB_ARCH")" > "$memo/$1"
      break
    done
  fi
  [ -s "$memo/$1" ] && cat "$memo/$1"
}

# library_provider SONAME OWNER-TREE: "TREE FILE" of the package that
# provides SONAME for a file of the package unpacked at OWNER-TREE: the
# package itself or one of its direct dependencies. OWNER-TREE "build" names
# this project's cross build (build_machine_package).
library_provider() {
  local soname=$1 owner=$2 tree file dependency package
  if [ "$owner" = build ]; then
    package=$(build_machine_package "$soname") || return 1
    tree=$(deb_tree "${package% *}" "${package#* }") || return 1
    file=$(tree_library "$tree" "$soname") && echo "$tree $file"
    return
  fi
  file=$(tree_library "$owner" "$soname") && { echo "$owner $file"; return; }
  for dependency in $(deb_depends "$owner"); do
    deb_is_library "$dependency" || continue
    tree=$(deb_tree "$dependency") || return 1
    file=$(tree_library "$tree" "$soname") && { echo "$tree $file"; return; }
  done
  return 1
}

# elf_needed FILE: its NEEDED sonames, one per line.
elf_needed() { readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]$/\1/p'; }
# elf_interpreter FILE: its program interpreter (the dynamic loader), if any.
elf_interpreter() { readelf -l "$1" | sed -n 's/.*Requesting program interpreter: \(.*\)\]$/\1/p'; }

# copy_needed FILE ROOT OWNER-TREE [SKIP-LIST]: copies into ROOT/$LIBDIR the
# closure of the libraries FILE needs that ROOT (or the file list
# SKIP-LIST, paths relative to the image's root) does not hold yet, and
# links its dynamic loader where its program interpreter says.
copy_needed() {
  local file=$1 root=$2 owner=$3 skip=${4:-/dev/null} soname found interpreter
  for soname in $(elf_needed "$file"); do
    [ -e "$root/$LIBDIR/$soname" ] && continue
    grep -qxF "$LIBDIR/$soname" "$skip" && continue
    found=$(library_provider "$soname" "$owner") ||
      die "no package provides $soname for $(basename "$file") ($(basename "$owner"))"
    # The package's own mode: the loader is executable, the libraries not.
    install -D -m "$(stat -c %a "${found#* }")" "${found#* }" "$root/$LIBDIR/$soname"
    copy_needed "$root/$LIBDIR/$soname" "$root" "${found%% *}" "$skip"
  done
  interpreter=$(elf_interpreter "$file")
  if [ -n "$interpreter" ] && [ ! -e "$root$interpreter" ] && ! grep -qxF "usr${interpreter#/usr}" "$skip"; then
    # /lib is a link to usr/lib in the image: the loader goes under usr/.
    [ -e "$root/$LIBDIR/$(basename "$interpreter")" ] ||
      die "$(basename "$file") asks for $interpreter, which no needed library provides"
    mkdir -p "$root/usr$(dirname "${interpreter#/usr}")"
    ln -sf "/$LIBDIR/$(basename "$interpreter")" "$root/usr${interpreter#/usr}"
  fi
}

# deb_prefetch NAME...: downloads, with one apt-get call, the packages that
# the NEEDED closure of the programs of packages NAME can reach: NAME and,
# level by level, the "Multi-Arch: same" packages they depend on (asked of
# apt once per level). Only an accelerator for a cold cache (one download
# call instead of one per library, minutes on a loaded machine): the closure
# itself still decides what goes into the image, and fetches what this
# missed.
deb_prefetch() {
  local memo frontier=("$@") wanted=() seen=" $* " roots=" $* " name multiarch dependency
  local next specs=() deb version
  memo=$CACHE/multiarch
  mkdir -p "$memo"
  while [ "${#frontier[@]}" -gt 0 ]; do
    next=()
    # One line per package: "NAME MULTI-ARCH DEPENDENCY...".
    while read -r name multiarch dependencies; do
      echo "$multiarch" > "$memo/$name"
      case $roots in *" $name "*) ;; *) [ "$multiarch" = same ] || continue ;; esac
      wanted+=("$name")
      for dependency in $dependencies; do
        case $seen in *" $dependency "*) continue ;; esac
        seen="$seen$dependency "
        next+=("$dependency")
      done
    done < <(apt-cache show --no-all-versions "${frontier[@]/%/:$DEB_ARCH}" 2> /dev/null | awk '
      /^Package: / { package = $2 }
      /^Multi-Arch: / { multiarch = $2 }
      /^(Pre-)?Depends: / { sub(/^[^:]*: /, ""); depends = depends "," $0 }
      /^$/ && package != "" {
        line = package " " (multiarch == "" ? "no" : multiarch)
        n = split(depends, list, ",")
        for (i = 1; i <= n; i++) { d = list[i]; sub(/\|.*/, "", d); sub(/\(.*/, "", d); sub(/:any/, "", d)
          gsub(/[ \t]/, "", d); if (d != "") line = line " " d }
        print line; package = ""; multiarch = ""; depends = "" }')
    frontier=("${next[@]}")
  done
  deb_versions "$@" "${wanted[@]}"
  for name in "$@" "${wanted[@]}"; do
    version=$(deb_version "$name") || continue
    deb=$(ls "$CACHE/debs/${name}_${version//:/%3a}"_{"$DEB_ARCH",all}.deb 2> /dev/null | head -1 || true)
    [ -z "$deb" ] || continue
    # A package apt does not know for armhf is architecture-independent.
    if [ -s "$memo/$name" ]; then
      specs+=("$name:$DEB_ARCH=$version")
    else
      specs+=("$name=$version")
    fi
  done
  [ "${#specs[@]}" -gt 0 ] || return 0
  log "downloading ${#specs[@]} packages ($DEB_ARCH) at once"
  mkdir -p "$CACHE/debs"
  (cd "$CACHE/debs" && apt-get download "${specs[@]}") > /dev/null 2>&1 ||
    log "note: the joint download failed; the packages come one by one"
}
