#!/bin/bash
# The shared library exports the names that are written down for it and no others. A DLL also needs
# only what every Windows has, tells its version and is small.
# usage: exports_test.sh LIBRARY NM VERSION
set -euo pipefail

library=$1
tools=${2%nm}
exports=$(dirname "$0")/../../packaging/exports

compare() { # what, lines found, file with those expected
  diff <(LC_ALL=C sort "$3") <(LC_ALL=C sort -u <<<"$2") && return
  echo "exports_test: $library: wrong $1 (< is missing, > is too much)"
  exit 1
}

if [[ $library != *.dll ]]; then
  compare "exported names" "$("$tools"nm -D --defined-only "$library" | cut -d ' ' -f 3)" \
    "$exports/libftclient.so.txt"
  exit
fi

headers=$("$tools"objdump -p "$library")
compare "exported names" \
  "$(sed -nE '/^\[Ordinal\/Name Pointer\] Table/,/^$/s/^\t\[ *[0-9]+\] //p' <<<"$headers")" \
  "$exports/ftclient.dll.txt"
compare "imported DLLs" "$(sed -nE 's/^\tDLL Name: //p' <<<"$headers")" \
  <(printf '%s\n' KERNEL32.dll USER32.dll WS2_32.dll msvcrt.dll)
# The names and texts of a version resource are in 16-bit characters.
compare versions "$("$tools"strings -e l "$library" | sed -nE '/^(File|Product)Version$/{N;s/\n/ /;p}')" \
  <(printf '%s\n' "FileVersion $3.0" "ProductVersion $3.0")
(($(stat -c %s "$library") <= 512 * 1024)) || compare size more <(echo "at most 524288 bytes")
