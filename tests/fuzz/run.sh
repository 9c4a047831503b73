#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Lets libFuzzer run the harnesses, by default all of them, and tells what it found.
#   run.sh BUILD_DIRECTORY SECONDS [NAME...]
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")"
build=$1 seconds=$2
shift 2
findings=$build/findings
regressions=tests/fuzz/regressions

all=(*_fuzzer.cpp)
all=("${all[@]%_fuzzer.cpp}")
[ $# -gt 0 ] || set -- "${all[@]}"
for name in "$@"; do
  if [ ! -e "${name}_fuzzer.cpp" ]; then
    echo "fuzz: there is no harness '$name'; there are: ${all[*]}" >&2
    exit 2
  fi
done

# The value of one of libFuzzer's final statistics in the file $1.
statistic() { sed -n "s/^stat::$2: *//p" "$1" | tail -n 1; }

# The inputs of the harness $1 that were findings.
findings_of() { (cd "$findings" && find . -name "$1-*" ! -name '*.txt' -printf '%f\n' | sort); }

# fuzz NAME SECONDS LOGMASK WORDS: one run, in which the harness has this log mask.
fuzz() {
  local name=$1 output=$findings/$1-$3.txt before status=0 inputs=("corpus/$1")
  [ ! -d "regressions/$name" ] || inputs+=("regressions/$name")
  mkdir -p "$build/corpus/$name"
  before=$(findings_of "$name")
  IPC_LOGMASK=$3 NFY_LOGMASK=$3 "$build/tests/fuzz/fuzz_$name" \
    -max_total_time="$2" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 -close_fd_mask=2 \
    -dict="$name.dict" -artifact_prefix="$findings/$name-" \
    "$build/corpus/$name" "${inputs[@]}" >"$output" 2>&1 || status=$?
  printf '%-8s %-15s %10s executions %7s a second  ' "$name" "$4" \
    "$(statistic "$output" number_of_executed_units)" "$(statistic "$output" average_exec_per_sec)"
  if [ $status = 0 ]; then
    echo "no findings"
    return 0
  fi
  echo "FOUND SOMETHING (its output: $output)"
  grep -hE '^(fuzz: |==[0-9]+== ?ERROR|SUMMARY|.*runtime error: )' "$output" | sed 's/^/    /' || true
  comm -13 <(echo "$before") <(findings_of "$name") | while read -r file; do
    echo "    input: $findings/$file"
    echo "    again: IPC_LOGMASK=$3 NFY_LOGMASK=$3 $build/tests/fuzz/fuzz_$name $findings/$file"
    echo "    once mended: mkdir -p $regressions/$name &&" \
      "cp $findings/$file $regressions/$name/WHAT_WAS_WRONG"
  done
  return 1
}

# All runs of the harness $1.
fuzz_harness() {
  local logged=$(((seconds + 3) / 4)) found=0
  case $1 in
    json | rules) fuzz "$1" "$seconds" 0 "" || found=1 ;; # they log nothing
    *)
      fuzz "$1" "$((seconds - logged))" 0 "without a log" || found=1
      fuzz "$1" "$logged" 255 "with all logs" || found=1
      ;;
  esac
  return $found
}

# One harness on each processor; Ctrl-C ends them all.
trap 'trap - INT TERM; kill 0' INT TERM
mkdir -p "$findings"
found=0
running=0
for name in "$@"; do
  if [ "$running" = "$(nproc)" ]; then
    wait -n || found=1
    running=$((running - 1))
  fi
  fuzz_harness "$name" &
  running=$((running + 1))
done
for ((; running > 0; running--)); do
  wait -n || found=1
done
exit $found
