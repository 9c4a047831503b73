#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes the manual pages, and formats them without a warning.
#   manual_pages.sh DIR VERSION
# Ends with 77 where scdoc or groff is not installed.
set -euo pipefail
cd "$1"
version=$2

for tool in scdoc groff; do
  command -v "$tool" >/dev/null || {
    echo "$tool is not installed"
    exit 77
  }
done

page=$(mktemp)
trap 'rm -f "$page"' EXIT
status=0
for source in *.scd; do
  name=${source%.scd}
  scdoc <"$source" >"$page"
  complaints=$(groff -t -man -ww -z -Tutf8 "$page" 2>&1)
  [ -z "$complaints" ] || {
    printf '%s: %s\n' "$source" "$complaints" >&2
    status=1
  }
  # A page is found by its file's name.
  heading=$(head -n 1 "$source")
  [[ $heading == "${name%.*}(${name##*.}) \"zedipc $version\" "* ]] || {
    printf '%s: its heading is of another page or version: %s\n' "$source" "$heading" >&2
    status=1
  }
done
exit $status
