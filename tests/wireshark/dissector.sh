#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Captures an exchange with the notification server, and looks at it through the dissector.
#   dissector.sh DISSECTOR EXAMPLES-DIR
# Ends with 77 where tshark is not installed or nothing can be captured.
set -euo pipefail
dissector=$1 examples=$2

scratch=$(mktemp -d)
started=()
cleanup() {
  local pid
  for pid in "${started[@]}"; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  rm -rf "$scratch"
}
trap cleanup EXIT

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

skip() {
  printf 'SKIPPED: %s\n' "$*"
  exit 77
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

# start NAME COMMAND... runs a command beside the test, with its output in a file.
start() {
  local name=$1
  shift
  "$@" >"$name.out" 2>&1 &
  started+=($!)
  pids[$name]=$!
}

stop() {
  kill "${pids[$1]}"
  wait "${pids[$1]}" || true
}

printed() { grep -qF -- "$2" "$1.out"; }

# message KEY VALUE... prints a message of the protocol, whose values are JSON.
message() {
  local separator='{'
  while [ $# -gt 0 ]; do
    printf '%s"%s":%s' "$separator" "$1" "$2"
    separator=,
    shift 2
  done
  printf '}'
}

# To the display, with this text as parameter.
to_lobby() {
  message flags -2 from '"raw"' notification '"paper.out"' parameter "\"$1\"" to '"lobby"' \
    type '"notify"'
}

header() { printf '\0NFY%b%b\0\0\0\0' "$(octal "$1")"; }

# A 32-bit word as the escapes of printf, most significant byte first.
octal() {
  printf '\\0%o\\0%o\\0%o\\0%o' $(($1 >> 24 & 255)) $(($1 >> 16 & 255)) $(($1 >> 8 & 255)) \
    $(($1 & 255))
}

frame() {
  header $((${#1} + 4))
  printf '%s' "$1"
}

# send FILE... makes a connection and writes each file to it at once.
send() {
  local file
  exec 3<>/dev/tcp/127.0.0.1/5899
  for file in "$@"; do cat "$file" >&3; done
}

# shows FILTER FIELD LINE... says what a field has to be in the packets that a filter finds.
shows() {
  local filter=$1 field=$2 expected found
  shift 2
  expected=$(printf '%s\n' "$@")
  found=$(look -Y "$filter" -T fields -e "$field")
  [ "$found" = "$expected" ] ||
    fail "$field where $filter is"$'\n'"$found"$'\n'"instead of"$'\n'"$expected"
}

look() { HOME=$scratch tshark -n -X "lua_script:$dissector" -r capture.pcapng "$@" 2>tshark.err; }

command -v tshark >/dev/null && command -v dumpcap >/dev/null || skip 'tshark is not installed'
unset NOTIFY_SERVER IPC_LOGMASK NFY_LOGMASK
declare -A pids
cd "$scratch"

# ---- The exchange

start dumpcap dumpcap -q -i lo -f 'tcp port 5899' -w capture.pcapng
capturing() { printed dumpcap 'File: ' || ! kill -0 "${pids[dumpcap]}" 2>/dev/null; }
wait_until 'nothing is captured' capturing
printed dumpcap 'File: ' || skip "$(cat dumpcap.out)"

start server "$examples/server"
listening() { grep -q ':170B 00000000:0000 0A' /proc/net/tcp; }
wait_until 'the server does not listen' listening
start monitor "$examples/monitor"
wait_until 'the monitor does not observe' printed monitor observing
start lobby "$examples/display" lobby 10
wait_until 'the display is not registered' printed lobby registered
# The server may not be through with the registration at the first attempt.
taken() { "$examples/printer" lobby paper.out '{"tray":2}' >printer.out 2>&1; }
wait_until 'the display does not take what the printer sends' taken
"$examples/printer" nobody paper.out '{"tray":3}' >printer.out 2>&1 &&
  fail 'somebody took what was sent to nobody'

frame "$(to_lobby split)" >whole
head -c 9 whole >first
tail -c +10 whole >second
send first second
wait_until 'the split frame does not come' printed lobby split

{ frame "$(to_lobby one)"; frame "$(to_lobby two)"; } >pair
send pair
wait_until 'the two frames do not come' printed lobby two

{ printf 'rubbish\0NFX\0'; frame "$(to_lobby behind)"; } >rubbish
send rubbish
wait_until 'the frame behind rubbish does not come' printed lobby behind

{ header 3; header 524293; header -1; frame "$(to_lobby refused)"; } >refused
send refused
wait_until 'the frame behind refused ones does not come' printed lobby refused

{ frame ''; frame '[1]'; frame "$(to_lobby ignored)"; } >ignored
send ignored
wait_until 'the frame behind an empty one does not come' printed lobby ignored

frame '{ "type" : "notify" "to":"lobby","notification":"paper\u002eout" "flags":"3",
  "from":null, "parameter":{"a":["}\""]} , "priority" : 99999999999 , }' >tolerant
send tolerant
wait_until 'the tolerant message does not come' printed lobby '}\""'

stop lobby
stop monitor
captured() { grep -q '"unregister_observer"' capture.pcapng; }
wait_until 'the capture does not come to its end' captured
stop dumpcap

# ---- What the dissector shows

look -T fields -e zedipc.type >types
[ ! -s tshark.err ] || ! grep -iE 'lua|error' tshark.err || fail 'tshark complains'
for type in notify notify_observer register register_observer unicast_error unregister \
  unregister_observer; do
  tr ',' '\n' <types | grep -qx "$type" || fail "no message is shown as $type"
done

shows 'zedipc.type == "register" && zedipc.to == "lobby"' zedipc.notification paper.out
shows 'zedipc.type == "register" && zedipc.to == "lobby"' zedipc.priority 10
shows 'zedipc.type == "unicast_error" && zedipc.to == "nobody"' zedipc.parameter '{"tray":3}'
shows 'zedipc.type == "unicast_error" && zedipc.to == "nobody"' _ws.expert.message \
  'Nobody took this notification'
shows 'zedipc.reference > 9 && zedipc.to == "lobby" && zedipc.parameter contains "split"' \
  zedipc.from raw

# A frame over two segments is shown once, with the second.
to_server='tcp.dstport == 5899'
shows "$to_server && zedipc.parameter contains \"split\"" tcp.segment.count 2
shows "$to_server && zedipc.parameter contains \"split\"" zedipc.flags 0xfffffffe
shows "$to_server && zedipc.parameter contains \"one\"" zedipc.parameter '"one","two"'
shows "$to_server && zedipc.parameter contains \"one\"" _ws.col.Info \
  'notify paper.out from raw to lobby, notify paper.out from raw to lobby'
shows "$to_server && zedipc.parameter contains \"behind\"" zedipc.skipped \
  "$(printf 'rubbish\0NFX\0' | od -An -tx1 | cut -c 2-)"
shows zedipc.resynchronised zedipc.parameter '"behind"'
shows zedipc.refused zedipc.length "3,524293,-1,$(($(to_lobby refused | wc -c) + 4))"
shows zedipc.refused zedipc.parameter '"refused"'
shows "$to_server && zedipc.ignored" zedipc.parameter '"ignored"'
shows "$to_server && zedipc.ignored" zedipc.length "4,7,$(($(to_lobby ignored | wc -c) + 4))"
shows "$to_server && zedipc.from == \"null\"" zedipc.priority 2147483647
shows "$to_server && zedipc.from == \"null\"" zedipc.notification paper.out
shows "$to_server && zedipc.from == \"null\"" zedipc.flags 0x00000003
