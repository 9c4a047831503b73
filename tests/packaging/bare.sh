#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Clones the last commit into a Debian system that has nothing but git, and runs commands
# of ./dev there, with this machine's network.
#   bare.sh WORK-DIR COMMAND...
# The system is made once, in WORK-DIR; each run has a copy of it. Ends with 0 if all
# commands did, and with 77 unless root runs it.
set -euo pipefail
work=$1
tests=$(dirname "$(readlink -f "$0")")
source "$tests/debian_system.sh"

need_root
packages=(git)
find_mirror
[[ $mirror != https:* ]] || packages+=(ca-certificates)
make_debian "$work" "${packages[@]}"
# In one file, which nothing of this machine has to be mounted for. The folder can be
# another user's.
git -c safe.directory='*' -C "$tests" bundle create -q "$root/root/zedipc.bundle" HEAD
inside host 'cd && git clone -q zedipc.bundle zedipc'

ended=() status=0
for command in "${@:2}"; do
  printf '\n==> In a Debian with nothing but git: ./dev %s\n' "$command"
  result=0
  inside host "cd ~/zedipc && ./dev $command" </dev/null || result=$?
  if [ $result = 0 ]; then
    ended+=("./dev $command: worked")
  else
    ended+=("./dev $command: failed, status $result")
    status=1
  fi
done
printf '\n==> How they ended\n'
printf '%s\n' "${ended[@]}"
exit $status
