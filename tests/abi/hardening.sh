#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# What a library that is built for users defends itself with.
#   hardening.sh READELF NM LIBRARY
set -uo pipefail
readelf=$1 nm=$2 library=$3
status=0

complain() {
  echo "$library: $*"
  status=1
}

# Whether a line of the text $1 matches the pattern $2.
has() {
  grep -Eq -- "$2" <<<"$1"
}

segments=$("$readelf" -lW "$library") || complain "no program headers"
dynamic=$("$readelf" -dW "$library") || complain "no dynamic section"
imports=$("$nm" -D --undefined-only "$library" | awk '{ sub(/@.*/, "", $2); print $2 }') ||
  complain "no dynamic symbols"

has "$segments" '^ *GNU_RELRO ' || complain "no GNU_RELRO segment"
has "$dynamic" '\((FLAGS\).*BIND_NOW|FLAGS_1\).* NOW|BIND_NOW\))' ||
  complain "symbols are bound late, so RELRO is partial"
if has "$dynamic" '\(TEXTREL\)'; then complain "the code is writable while it is relocated"; fi

# The flags are the column ahead of the alignment, as in "RW  0x10" or "RWE 0x10".
has "$segments" '^ *GNU_STACK ' || complain "nothing is said about the stack"
if has "$segments" '^ *GNU_STACK .*E +0x[0-9a-f]+$'; then complain "the stack is executable"; fi
if has "$segments" '^ *LOAD .*WE +0x[0-9a-f]+$'; then
  complain "a segment is writable and executable"
fi

has "$imports" '^__stack_chk_fail$' || complain "no stack protector"
has "$imports" '^__[a-z]+_chk$' || complain "no function of the C library is the checked one"
exit $status
