#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Compiles each public header as the only include of a file.
#   headers.sh COMPILER STANDARD INCLUDE-DIR
# Ends with 77 if there is no such compiler.
set -uo pipefail
compiler=$1 standard=$2 include=$3

if ! command -v "$compiler" >/dev/null; then
  echo "$compiler is not installed"
  exit 77
fi

status=0
for header in "$include"/zedipc/*.h; do
  name=zedipc/${header##*/}
  printf '#include <%s>\n' "$name" |
    "$compiler" -x c++ "-std=$standard" -fsyntax-only \
      -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror "-I$include" - || {
    echo "<$name> does not compile alone as $standard with $compiler"
    status=1
  }
done
exit $status
