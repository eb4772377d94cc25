#!/bin/bash
# The shared library exports the names of its public headers and no others. A DLL also needs only
# what every Windows has, exports the class for both compilers, tells its version and is small.
# usage: exports_test.sh LIBRARY NM VERSION
set -euo pipefail

library=$1
tools=${2%nm}
names=(
  # The compiler needs more than one name for what makes and unmakes objects.
  _ZN17CClientDataSource{{C1,C2,D0,D1,D2}Ev,{C1,C2,aS}ERKS_}
  _ZN17CClientDataSource{4LinkEPKciS1_iS1_iS1_iS1_ijj,6UnLinkEv,8IsOnlineEv,7AskDataEPKcj}
  _ZN17CClientDataSource{17ChangeReceieveWndEjj,10FreeBufferEPc,16GetBalanceServerEPcicPS0_}
  _ZT{I,V}17CClientDataSource
)

compare() { # what, lines found, expected...
  diff <(printf '%s\n' "${@:3}" | LC_ALL=C sort) <(LC_ALL=C sort -u <<<"$2") && return
  echo "exports_test: $library: wrong $1 (< is missing, > is too much)"
  exit 1
}

if [[ $library != *.dll ]]; then
  compare "exported names" "$("$tools"nm -D --defined-only "$library" | cut -d ' ' -f 3)" \
    "${names[@]}" _ZTS17CClientDataSource FT{Create,Destroy}Window FTGetWindowFd FTWaitMessage
  exit
fi

# Microsoft's names; that each of them is right is seen where they are used.
mapfile -t -O "${#names[@]}" names < \
  <(sed -nE 's/^  (\?[^ ]+) = .*/\1/p' "$(dirname "$0")/../../client/ftclient_msvc.def")
headers=$("$tools"objdump -p "$library")
compare "imported DLLs" "$(sed -nE 's/^\tDLL Name: //p' <<<"$headers")" \
  KERNEL32.dll USER32.dll WS2_32.dll msvcrt.dll
compare "exported names" \
  "$(sed -nE '/^\[Ordinal\/Name Pointer\] Table/,/^$/s/^\t\[ *[0-9]+\] //p' <<<"$headers")" \
  "${names[@]}"
# The names and texts of a version resource are in 16-bit characters.
compare versions "$("$tools"strings -e l "$library" | sed -nE '/^(File|Product)Version$/{N;s/\n/ /;p}')" \
  "FileVersion $3.0" "ProductVersion $3.0"
(($(stat -c %s "$library") <= 512 * 1024)) || compare size more "at most 524288 bytes"
