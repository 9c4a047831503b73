#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installed files name the folder that they are installed below, also if the build was
# configured for another one.
#   prefix.sh BUILD-DIR LIBDIR BINDIR SYSCONFDIR
# The three folders are relative to any prefix.
set -euo pipefail
build=$1 libdir=$2 bindir=$3 sysconfdir=$4

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

has_line() { grep -qxF -- "$1" "$2" || fail "no line '$1' in $2: $(cat "$2")"; }

has_run_path() { readelf -d "$1" | grep -E 'R(UN)?PATH'; }

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

elsewhere=$scratch/elsewhere
cmake --install "$build" --prefix "$elsewhere" >/dev/null
has_line "prefix=$elsewhere" "$elsewhere/$libdir/pkgconfig/zedipc.pc"
has_line "ExecStart=$elsewhere/$bindir/zedipc serve --rules $elsewhere/$sysconfdir/zedipc/rules" \
  "$elsewhere/lib/systemd/system/zedipc.service"
[ -e "$elsewhere/$sysconfdir/zedipc/rules" ] || fail 'there is no rule file'
env -u LD_LIBRARY_PATH "$elsewhere/$bindir/zedipc" --version >/dev/null ||
  fail 'the command does not find its library'
moved=$scratch/moved
mv "$elsewhere" "$moved"
env -u LD_LIBRARY_PATH "$moved/$bindir/zedipc" --version >/dev/null ||
  fail 'the command does not find its library after a move'

# What is installed below /usr has its settings in /etc, and the linker knows its libraries.
DESTDIR=$scratch/image cmake --install "$build" --prefix /usr >/dev/null
image=$scratch/image/usr
has_line 'prefix=/usr' "$image/$libdir/pkgconfig/zedipc.pc"
has_line "ExecStart=/usr/$bindir/zedipc serve --rules /etc/zedipc/rules" \
  "$image/lib/systemd/system/zedipc.service"
[ -e "$scratch/image/etc/zedipc/rules" ] || fail 'there is no rule file below /etc'
if has_run_path "$image/$bindir/zedipc"; then fail 'the command in /usr has a run path'; fi
