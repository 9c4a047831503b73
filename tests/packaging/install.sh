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
source "$tests/debian_system.sh"

need_root
compgen -G "$packages/*.deb" >/dev/null || fail "no packages in $packages; ./dev package makes them"
make_debian "$work" g++ make cmake pkgconf iproute2
cp "$packages"/*.deb "$tests/use_installed.sh" "$root/root"
cp -r "$tests/outside" "$root/root"

# The dependencies have to be there: no network is.
inside own 'dpkg -i /root/*.deb'
inside own '/root/use_installed.sh /etc/zedipc/rules g++'
inside own 'dpkg-query -s zedipc-tools | grep -q "^ /etc/zedipc/rules "' ||
  fail 'the rule file is no conffile'
inside own 'ldconfig -p | grep -q libzedipc.so.1' ||
  fail 'the dynamic linker does not know the library'
inside own 'dpkg --purge zedipc-tools libzedipc-dev libzedipc1'
left=$(cd "$root" && find etc usr -name '*zedipc*' | head)
[ -z "$left" ] || fail "purging the packages leaves: $left"
echo 'The packages can be installed, used and purged.'
