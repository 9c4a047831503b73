#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The manual page of the command zedipc has the options that its help has, and no others.
#   manual.sh PAGE COMMAND
set -euo pipefail
page=$1 command=$2

# section HEADING: the options that begin a line there.
section() {
  awk -v heading="$1" '/^#/ { shown = $0 == heading } shown && /^\*-/' "$page" | grep -o -e '--[a-z]*'
}

for name in serve send listen observe top ping rules json; do
  written=$(
    section "## $name" || true
    [ "$name" != listen ] || section '## observe'
    section '# OPTIONS'
  )
  case $name in
    serve | rules | json) written=$(grep -vx -e --server <<<"$written") ;;
  esac
  known=$("$command" "$name" --help |
    sed -n 's/^  \(-[a-z],\)\{0,1\}\(--[a-z]*\).*/\2/p' | sort)
  written=$(sort <<<"$written")
  [ "$written" = "$known" ] || {
    printf 'FAILED: %s has %s, and the manual page %s\n' "$name" "$known" "$written" >&2
    exit 1
  }
done
