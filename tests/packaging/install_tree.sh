#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs a build below a folder of its own, and uses what is installed there.
#   install_tree.sh BUILD-DIR PREFIX LIBDIR BINDIR SYSCONFDIR COMPILER
# The three folders are below PREFIX. Ends with 77 where pkg-config is not installed.
set -euo pipefail
build=$1 prefix=$2 libdir=$3 bindir=$4 sysconfdir=$5 compiler=$6

command -v pkg-config >/dev/null || {
  echo 'pkg-config is not installed'
  exit 77
}

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
DESTDIR=$root cmake --install "$build" >/dev/null

export PATH=$root$bindir:$PATH
export LD_LIBRARY_PATH=$root$libdir
export CMAKE_PREFIX_PATH=$root$prefix
export PKG_CONFIG_PATH=$root$libdir/pkgconfig
export PKG_CONFIG_SYSROOT_DIR=$root
export PKG_CONFIG_SYSTEM_INCLUDE_PATH=none PKG_CONFIG_SYSTEM_LIBRARY_PATH=none
"$(dirname "$0")/use_installed.sh" "$root$sysconfdir/zedipc/rules" "$compiler"
