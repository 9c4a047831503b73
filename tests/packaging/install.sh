#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the Debian packages into a fresh Debian system, and uses them there, in a
# network of its own.
#   install.sh PACKAGES-DIR WORK-DIR
# The system is made once, in WORK-DIR; each run has a copy of it. Ends with 77 unless root
# runs it.
set -euo pipefail
packages=$(readlink -m "$1") work=$2
tests=$(dirname "$(readlink -f "$0")")
suite=bookworm mirror=http://deb.debian.org/debian

if [ "$(id -u)" != 0 ]; then
  echo 'Skipped: only root can make a Debian system and enter it'
  exit 77
fi

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

compgen -G "$packages/*.deb" >/dev/null || fail "no packages in $packages; ./dev package makes them"
mkdir -p "$work"
base=$(readlink -f "$work")/$suite
if [ ! -d "$base" ]; then
  rm -rf "$base.new"
  debootstrap --variant=minbase --include=g++,make,cmake,pkgconf,iproute2 \
    "$suite" "$base.new" "$mirror"
  mv "$base.new" "$base"
fi

root=$(mktemp -d "$base.XXXXXX")
# Nothing of this system is mounted in there outside of a namespace that ends by itself.
trap 'rm -rf --one-file-system "$root"' EXIT
cp -a --reflink=auto "$base/." "$root"
cp "$packages"/*.deb "$tests/use_installed.sh" "$root/root"
cp -r "$tests/outside" "$root/root"

# inside COMMAND: has a shell run it there, with processes and a network of its own.
inside() {
  unshare --net --mount --pid --fork --kill-child --mount-proc="$root/proc" \
    chroot "$root" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C \
    bash -euc "ip link set lo up; $1"
}

# The dependencies have to be there: no network is.
inside 'dpkg -i /root/*.deb'
inside '/root/use_installed.sh /etc/zedipc/rules g++'
inside 'dpkg-query -s zedipc-tools | grep -q "^ /etc/zedipc/rules "' ||
  fail 'the rule file is no conffile'
inside 'ldconfig -p | grep -q libzedipc.so.1' || fail 'the dynamic linker does not know the library'
inside 'dpkg --purge zedipc-tools libzedipc-dev libzedipc1'
left=$(cd "$root" && find etc usr -name '*zedipc*' | head)
[ -z "$left" ] || fail "purging the packages leaves: $left"
echo 'The packages can be installed, used and purged.'
