#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Has nftables check the packet filter that a document shows, in a network of its own.
#   packet_filter.sh DOCUMENT
# Ends with 77 where nftables is not installed, or there can be no network of one's own.
set -euo pipefail
PATH=$PATH:/usr/sbin:/sbin
command -v nft >/dev/null || {
  echo 'nft is not installed (Debian package nftables)'
  exit 77
}
private=(unshare --net)
"${private[@]}" true 2>/dev/null || private+=(--map-root-user)
"${private[@]}" true 2>/dev/null || {
  echo 'there are no network namespaces here'
  exit 77
}

filter=$(awk '
  shown && /^ *```$/ { exit }
  shown { print }
  marked && /^ *```$/ { shown = 1 }
  { marked = /<!-- document_test: packet filter -->/ }' "$1")
grep -q '^ *tcp dport 5899 drop$' <<<"$filter" || {
  printf '%s shows no packet filter that closes the port\n' "$1" >&2
  exit 1
}
"${private[@]}" nft --check --file - <<<"$filter"
