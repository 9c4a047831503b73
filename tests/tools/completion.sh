#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# What bash completes for the command zedipc: all commands and options, and no others.
#   completion.sh COMPLETION-FILE COMMAND
set -euo pipefail
source "$1"
command=$2

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

# completed WORD...: what is offered for the last word.
completed() {
  COMP_WORDS=(zedipc "$@")
  COMP_CWORD=$#
  _zedipc
  printf '%s\n' "${COMPREPLY[@]}"
}

expect() {
  local expected=$1
  shift
  [ "$(completed "$@" | tr '\n' ' ')" = "$expected " ] ||
    fail "for '$*': $(completed "$@" | tr '\n' ' ')"
}

for name in serve send listen observe top ping rules json; do
  completed '' | grep -x -- "$name" >/dev/null || fail "$name is not offered"
  offered=$(completed "$name" - | sort)
  known=$("$command" "$name" --help |
    sed -n 's/^  \(-[a-z],\)\{0,1\}\(--[a-z]*\).*/\2/p' | sort)
  [ "$offered" = "$known" ] || fail "$name has $known, and offered is $offered"
done
expect 'listen' li
expect 'text json raw' listen n --format ''
expect 'rate' top --sort r
expect 'in out' rules file --explain ''
expect "$1" rules "$1"
expect "$1" json "$1"
expect "$1" serve --rules "$1"
