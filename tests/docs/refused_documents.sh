#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Documents that run_document.sh has to find fault with.
#   refused_documents.sh RUN-DOCUMENT
set -euo pipefail
run_document=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fence='```'

# run MARK COMMAND [MARK TEXT] runs a document with one or two blocks.
run() {
  : >"$scratch/document.md"
  while [ $# -gt 0 ]; do
    printf '%s\n%s\n%s\n%s\n' "$1" "$fence" "$2" "$fence" >>"$scratch/document.md"
    shift 2
  done
  "$run_document" document.md "$scratch" "$scratch" c++ >"$scratch/log" 2>&1
}

accepts() {
  run "$@" || {
    printf 'FAILED, this document is refused: %s\n' "$*" >&2
    cat "$scratch/log" >&2
    exit 1
  }
}

refuses() {
  if run "$@"; then
    printf 'FAILED, this document is not refused: %s\n' "$*" >&2
    exit 1
  fi
}

accepts '<!-- run -->' 'echo one; echo two' '<!-- output -->' $'one\ntwo'
accepts '<!-- run: fails -->' false
accepts '<!-- not run: a drawing -->' 'A --> B'
accepts '<!-- start: talker -->' 'echo one; exec sleep 60' '<!-- output: talker -->' one
accepts '<!-- start: - -->' true
accepts '<!-- file: greeting -->' hello '<!-- run -->' 'grep -qx hello greeting'

refuses '' true
refuses 'Text.' true
refuses '<!-- not run -->' true
refuses '<!-- not run:  -->' true
refuses '<!-- run -->' false
refuses '<!-- run -->' $'false\ntrue'
refuses '<!-- run: fails -->' true
refuses '<!-- run -->' 'echo one; echo two' '<!-- output -->' one
refuses '<!-- start: talker -->' 'echo two; exec sleep 60' '<!-- output: talker -->' one
refuses '<!-- start: one -->' $'sleep 60\nsleep 60'
refuses '<!-- start: one two -->' 'sleep 60'
refuses '<!-- start: - -->' false
refuses '<!-- output: nobody -->' text
