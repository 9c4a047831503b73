#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Uses an installed zedipc as its users do: a program is built by pkg-config and by CMake
# and run against the installed server, and the command sends and listens.
#   use_installed.sh RULES COMPILER
# The environment says where it is installed. RULES is the installed rule file. Needs port
# 5899 for itself.
set -euo pipefail
rules=$1 compiler=$2
outside=$(dirname "$(readlink -f "$0")")/outside
unset NOTIFY_SERVER IPC_LOGMASK NFY_LOGMASK

scratch=$(mktemp -d)
pids=()
cleanup() {
  local pid
  for pid in "${pids[@]}"; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  rm -rf "$scratch"
}
trap cleanup EXIT
cd "$scratch"

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

# wait_for TEXT FILE
wait_for() {
  local _
  for _ in $(seq 600); do
    if grep -q "$1" "$2"; then return; fi
    sleep 0.05
  done
  fail "'$1' does not appear in $2: $(cat "$2")"
}

# start NAME COMMAND...
start() {
  "${@:2}" >"$1.out" 2>"$1.err" &
  pids+=($!)
}

same() { [ "$1" = "$2" ] || fail "there is '$1' instead of '$2'"; }

read -ra flags < <(pkg-config --cflags --libs 'zedipc >= 1.18')
"$compiler" -std=c++11 -Wall -Wextra -Wpedantic -Werror "$outside/outside.cpp" \
  -o by_pkg_config "${flags[@]}" -pthread

cmake -S "$outside" -B by_cmake -DCMAKE_CXX_COMPILER="$compiler" >cmake.log 2>&1 ||
  fail "CMake: $(cat cmake.log)"
cmake --build by_cmake >cmake.log 2>&1 || fail "the CMake build: $(cat cmake.log)"

start server zedipc serve --rules "$rules"
wait_for serving server.out
# The installed rule file has no rules.
grep -q '127\.0\.0\.1 port 5899 (local)' server.out || fail "not local: $(cat server.out)"
listeners=$(cat /proc/net/tcp /proc/net/tcp6 | awk '$4 == "0A" && $2 ~ /:170B$/ { print $2 }')
same "$listeners" 0100007F:170B

same "$(./by_pkg_config 2>err)" 'tray 2'
same "$(by_cmake/outside 2>err)" 'tray 2'

start listener zedipc listen paper.out --as display --count 1 --format raw --timeout 60
wait_for listening listener.err
zedipc send display paper.out '{"tray":3}'
wait "${pids[-1]}" || fail "the listener: $(cat listener.err)"
same "$(cat listener.out)" '{"tray":3}'
