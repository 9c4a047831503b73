#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The library's exported symbols, demangled, against the list that is kept of them. What
# has several symbols (constructors, destructors) stands there once for each.
#   exported_symbols.sh compare|update NM LIBRARY LIST
set -euo pipefail
mode=$1 nm=$2 library=$3 list=$4

# An address and a type stand ahead of each name.
exported=$("$nm" -D --defined-only -C "$library" | sed 's/^[0-9a-fA-F]* *[A-Za-z] //' |
  LC_ALL=C sort)
if [[ -z $exported ]]; then
  echo "$library exports nothing"
  exit 1
fi

if [[ $mode == update ]]; then
  echo "$exported" >"$list"
  echo "$list: $(wc -l <"$list") symbols"
elif ! diff -u --label "listed in tests/abi/exported_symbols.txt" --label "exported" \
  "$list" - <<<"$exported"; then
  cat <<'HINT'

The library's exported symbols have changed: '-' has gone, '+' is new.
What has gone breaks programs that were linked with it, and needs a new SOVERSION.
If the change is meant, build the target update_exported_symbols and commit the list.
HINT
  exit 1
fi
