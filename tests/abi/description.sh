#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The library's binary interface, with the types that its functions take and the layout of
# its classes, against the description that is kept of it.
#   description.sh compare|update LIBRARY HEADERS DESCRIPTION
# LIBRARY has debug information. Ends with 77 where libabigail's programs are not installed.
set -uo pipefail
mode=$1 library=$2 headers=$3 description=$4

command -v abidw abidiff >/dev/null || {
  echo "abidw and abidiff are not installed (Debian package abigail-tools)"
  exit 77
}

# The same on each machine: without paths, lines, and what is not in the headers.
describe() {
  abidw --headers-dir "$headers" --drop-private-types --exported-interfaces-only \
    --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --no-architecture \
    --no-parameter-names --type-id-style hash "$library"
}

if [[ $mode == update ]]; then
  describe >"$description"
  exit
fi

described=$(mktemp --suffix=.abi)
trap 'rm -f "$described"' EXIT
describe >"$described" || exit
abidiff --no-architecture --fail-no-debug-info "$description" "$described" || {
  cat <<'HINT'

The library's binary interface has changed. Programs that were linked with it may break,
unless there are only additions; if they do, it needs a new SOVERSION.
If the change is meant, build the target update_abi_description and commit the file.
HINT
  exit 1
}
