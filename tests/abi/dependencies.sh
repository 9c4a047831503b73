#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The library needs the C++ standard library and the system's own, and nothing else: the
# log library, in particular, is bound at run time where there is one.
#   dependencies.sh READELF LIBRARY
set -uo pipefail
readelf=$1 library=$2

needed=$("$readelf" -dW "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]$/\1/p')
if ! grep -q '^libstdc++\.so\.' <<<"$needed"; then
  echo "$library is not linked with the C++ standard library, or $readelf cannot read it"
  exit 1
fi
known='^(libstdc\+\+|libgcc_s|libm|libc|libpthread|libdl|libatomic|ld-linux[-a-z0-9_]*)\.so\.'
if others=$(grep -Ev "$known" <<<"$needed"); then
  echo "$library needs what it should not:"
  echo "$others"
  exit 1
fi
