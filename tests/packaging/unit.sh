#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The systemd unit is understood by systemd, and shuts the server in well enough.
#   unit.sh BUILD-DIR
# Ends with 77 where systemd is not installed.
set -euo pipefail
build=$1

command -v systemd-analyze >/dev/null || {
  echo 'systemd-analyze is not installed'
  exit 77
}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build" --prefix "$scratch" --component tools >/dev/null
cd "$scratch/lib/systemd/system"

complaints=$(systemd-analyze verify --man=no ./zedipc.service 2>&1) || {
  echo "$complaints"
  exit 1
}
# What is wrong in other units of the system is none of ours.
if grep zedipc <<<"$complaints"; then exit 1; fi

# In tenths; what is above 2 was forgotten.
systemd-analyze security --offline=yes --threshold=20 ./zedipc.service || exit 1
