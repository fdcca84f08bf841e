# Sourced by the scripts that install Debian packages (scripts/deps.sh,
# scripts/cross-deps.sh, tests/vm/ci.sh): which packages of a list are
# missing, and their installation with apt-get, as root.

# missing_packages PACKAGE...: the packages that are not installed, one per
# line (a package of another architecture is named as "name:arch").
missing_packages() {
  local package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2> /dev/null | grep -q "install ok installed" ||
      echo "$package"
  done
}

# as_root COMMAND...: runs COMMAND as root, through sudo when not root.
as_root() {
  if [ "$(id -u)" -ne 0 ]; then
    sudo "$@"
  else
    "$@"
  fi
}

# install_packages NAME PACKAGE...: refreshes the package lists and installs
# PACKAGEs without their recommendations; NAME prefixes the messages.
# Debian's security archive is often caught mid-sync for some indexes ("File
# has unexpected size"), and then apt-get update fails although every other
# index arrived: it is tried twice, and the install then goes on with the
# lists present, since what is installed here comes from the main archive.
install_packages() {
  local name=$1
  shift
  echo "$name: installing $*"
  if ! as_root apt-get update; then
    echo "$name: apt-get update failed; trying once more" >&2
    as_root apt-get update ||
      echo "$name: apt-get update failed again; using the package lists present" >&2
  fi
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "$@"
}
