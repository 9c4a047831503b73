#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the README's first programs with the README's commands, and runs them.
#   first_program.sh SOURCE-DIR BUILD-DIR COMPILER [FLAG...]
set -euo pipefail
source_dir=$1 build_dir=$2
shift 2
readme=$source_dir/README.md

scratch=$(mktemp -d)
started=()
cleanup() {
  [ ${#started[@]} -eq 0 ] || kill "${started[@]}" 2>/dev/null || true
  rm -rf "$scratch"
}
trap cleanup EXIT

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

# The code block behind the comment <!-- WHAT -->.
block() {
  awk -v mark="<!-- $1 -->" '
    $0 == mark { found = 1; next }
    found && /^```/ { if (inside) exit; inside = 1; next }
    inside { print }' "$readme"
}

wait_until() {
  local what=$1 i
  shift
  for i in $(seq 200); do
    if "$@"; then return; fi
    sleep 0.05
  done
  fail "$what"
}

# A checkout as the README's reader has it, with this build in the place of a release,
# and a g++ that is this build's compiler.
cd "$scratch"
mkdir build bin
ln -s "$source_dir/include" include
ln -s "$build_dir" build/release
printf '#!/bin/sh\nexec %s "$@"\n' "$*" >bin/g++
chmod +x bin/g++
for file in receiver.cpp sender.cpp; do
  block "file: $file" >"$file"
  lines=$(wc -l <"$file")
  [ "$lines" -ge 10 ] && [ "$lines" -le 25 ] || fail "$file has $lines lines"
done
block 'commands: build' >build.sh
grep -q g++ build.sh || fail 'the README has no build commands'
PATH=$scratch/bin:$PATH bash -e build.sh

mapfile -t programs < <(block 'commands: run')
[ ${#programs[@]} -eq 3 ] || fail "the README starts ${#programs[@]} programs"
unset NOTIFY_SERVER IPC_LOGMASK NFY_LOGMASK

# Without a server both say what is missing.
if ${programs[2]} 2>error.txt; then fail 'the sender succeeds without a server'; fi
grep -q 'start one first' error.txt || fail 'the sender does not say what is missing'

${programs[0]} >server.txt 2>&1 &
started+=($!)
listening() { grep -q ':170B 00000000:0000 0A' /proc/net/tcp; }
wait_until 'the server does not listen' listening
${programs[1]} >received.txt &
started+=($!)
# The receiver may not have registered yet when the first one is sent.
received() { ${programs[2]} && [ -s received.txt ]; }
wait_until 'the receiver gets nothing' received
expected=$(sed -n 's/^The receiver prints `\(.*\)`\.$/\1/p' "$readme")
[ -n "$expected" ] || fail 'the README does not say what the receiver prints'
[ "$(head -n 1 received.txt)" = "$expected" ] || fail "the receiver printed $(head -n 1 received.txt)"
