#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Does what a document tells its reader to do, and compares what comes of it.
#   run_document.sh DOCUMENT SOURCE-DIR BUILD-DIR COMPILER [FLAG...]
#
# Every code block has a comment on the line above that says what it is:
#   <!-- file: NAME -->           a file, written to the reader's folder
#   <!-- run -->                  commands that have to succeed
#   <!-- run: fails -->           commands that have to fail
#   <!-- start: NAME... -->       a command for each terminal, left running under its name;
#                                 one whose name is - has to end and succeed
#   <!-- output -->               what the last commands that ended have printed
#   <!-- output: NAME -->         what NAME prints next
#   <!-- document_test: WHAT -->  tried out by document_test.cpp, or by packet_filter.sh
#   <!-- not run: REASON -->      nothing that can be run here
# A comment by itself, <!-- stop: NAME -->, ends what was started. The process named
# "server" is waited for until it listens.
set -euo pipefail
document=$1 source_dir=$2 build_dir=$3
shift 3

scratch=$(mktemp -d)
declare -A pids=() shown=()
cleanup() {
  local pid
  for pid in "${pids[@]}"; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  rm -rf "$scratch"
}
trap cleanup EXIT

line_number=0
fail() {
  printf '%s:%s: %s\n' "$document" "$line_number" "$*" >&2
  exit 1
}

wait_until() {
  local what=$1 i
  shift
  for i in $(seq 600); do
    if "$@"; then return; fi
    sleep 0.05
  done
  fail "$what"
}

# What a process has printed, without what the library says of its log.
printed() { grep -v '^DBGLOG <' "$1.out" || true; }

listening() { grep -qs '^ *[0-9]*: [0-9A-F]*:170B [0-9A-F]*:0000 0A' /proc/net/tcp /proc/net/tcp6; }

# Whether all that was sent on port 5899 has been read, and no thread of the processes that
# were started is at work: then the server is through with it.
quiet() {
  local pid i
  for i in 1 2 3; do
    cat /proc/net/tcp /proc/net/tcp6 2>/dev/null |
      awk '($2 $3) ~ /:170B/ && $5 !~ /:00000000$/ { exit 1 }' || return 1
    for pid in "${pids[@]}"; do
      if grep -hs '^State:' /proc/"$pid"/task/*/status | grep -qv 'S (sleeping)'; then return 1; fi
    done
    sleep 0.02
  done
}

settle() { wait_until 'what was started does not come to rest' quiet; }

run() {
  settle
  printf '%s\n' "$1" >commands.sh
  status=0
  bash -e -o pipefail commands.sh >last.out 2>&1 </dev/null || status=$?
}

run_well() {
  run "$1"
  [ "$status" = 0 ] || fail "this ends with status $status:"$'\n'"$1"$'\n'"$(cat last.out)"
}

run_badly() {
  run "$1"
  [ "$status" != 0 ] || fail "this has to fail:"$'\n'"$1"
}

start_one() {
  local name=$1 command=$2
  settle
  : >"$name.out"
  bash -c "$command" >>"$name.out" 2>&1 </dev/null &
  pids[$name]=$!
  shown[$name]=0
  [ "$name" != server ] || wait_until 'the server does not listen' listening
}

# start "NAME..." COMMANDS
start() {
  local commands name i=0
  mapfile -t commands <<<"$2"
  for name in $1; do
    if [ "$name" = - ]; then run_well "${commands[i]}"; else start_one "$name" "${commands[i]}"; fi
    i=$((i + 1))
  done
  [ "$i" = ${#commands[@]} ] || fail "there are ${#commands[@]} commands for: $1"
}

stop() {
  [ -n "${pids[$1]-}" ] || fail "$1 was not started"
  kill "${pids[$1]}" || fail "$1 has ended by itself: $(cat "$1.out")"
  wait "${pids[$1]}" || true
  unset "pids[$1]"
}

same() {
  [ "$1" = "$2" ] || fail "the output is"$'\n'"$1"$'\n'"instead of"$'\n'"$2"
}

more_than() { [ "$(printed "$1" | wc -l)" -ge "$2" ]; }

# expect NAME TEXT
expect() {
  local from=$((shown[$1] + 1)) to=$((shown[$1] + $(wc -l <<<"$2")))
  [ -e "$1.out" ] || fail "$1 was not started"
  wait_until "$1 has printed no more than"$'\n'"$(cat "$1.out")" more_than "$1" "$to"
  same "$(printed "$1" | sed -n "$from,${to}p")" "$2"
  shown[$1]=$to
}

# block MARK TEXT
block() {
  case "$1" in
    'file: '*) printf '%s\n' "$2" >"${1#file: }" ;;
    run) run_well "$2" ;;
    'run: fails') run_badly "$2" ;;
    'start: '*) start "${1#start: }" "$2" ;;
    output) same "$(printed last)" "$2" ;;
    'output: '*) expect "${1#output: }" "$2" ;;
    'document_test: conversation' | 'document_test: messages' | 'document_test: rules') ;;
    'document_test: packet filter') ;;
    'not run: '?*) ;;
    *) fail "what is to be done with this block? Its mark is '$1'" ;;
  esac
}

# A checkout as the document's reader has it, with this build in the place of a release,
# a g++ that is this build's compiler, and the command in the PATH.
cd "$scratch"
mkdir build bin
ln -s "$source_dir/include" include
ln -s "$build_dir" build/release
printf '#!/bin/sh\nexec %s "$@"\n' "$*" >bin/g++
chmod +x bin/g++
ln -s "$build_dir/tools/zedipc" bin/zedipc
PATH=$scratch/bin:$PATH
unset NOTIFY_SERVER IPC_LOGMASK NFY_LOGMASK

mark='' text='' indent='' inside=false
while IFS= read -r line; do
  line_number=$((line_number + 1))
  if $inside; then
    if [ "$line" = "$indent\`\`\`" ]; then
      inside=false
      block "$mark" "${text%$'\n'}"
      mark=''
    else
      text+=${line#"$indent"}$'\n'
    fi
  elif [[ $line =~ ^(\ *)\`\`\` ]]; then
    inside=true text='' indent=${BASH_REMATCH[1]}
  elif [[ $line =~ ^\ *\<!--\ stop:\ (.*)\ --\>$ ]]; then
    stop "${BASH_REMATCH[1]}"
  elif [[ $line =~ ^\ *\<!--\ (.*)\ --\>$ ]]; then
    mark=${BASH_REMATCH[1]}
  else
    mark=''
  fi
done <"$source_dir/$document"
! $inside || fail 'the last block has no end'
