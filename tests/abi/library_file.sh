#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The library's three names, and what its file tells the dynamic linker.
#   library_file.sh READELF DIRECTORY VERSION
set -uo pipefail
readelf=$1 directory=$2 version=$3
file=$directory/libzedipc.so.$version
status=0

complain() {
  echo "$*"
  status=1
}

if [[ ! -f $file || -L $file ]]; then complain "$file is no regular file"; fi
for link in "$directory/libzedipc.so.1" "$directory/libzedipc.so"; do
  [[ -L $link ]] || complain "$link is no symbolic link"
  [[ $link -ef $file ]] || complain "$link does not lead to $file"
done

dynamic=$("$readelf" -dW "$file") || complain "$readelf cannot read $file"
[[ $dynamic == *"soname: [libzedipc.so.1]"* ]] || complain "the SONAME is not libzedipc.so.1"
# Its threads run until the process ends.
[[ $dynamic == *"(FLAGS_1)"*NODELETE* ]] || complain "the library can be unloaded"
[[ $dynamic != *"(RPATH)"* && $dynamic != *"(RUNPATH)"* ]] ||
  complain "the library has a search path of its own"
exit $status
