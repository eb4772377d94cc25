#!/bin/bash
# The DLL needs only what every Windows has, exports the class for both compilers and nothing else,
# tells its version and is small.
# usage: imports_test.sh DLL OBJDUMP VERSION
set -euo pipefail

library=$1
objdump=$2
version=$3.0
most_bytes=$((512 * 1024))
exports=(
  # GNU's compilers need more than one name for what makes and unmakes objects.
  _ZN17CClientDataSource{{C1,C2,D0,D1,D2}Ev,{C1,C2,aS}ERKS_}
  _ZN17CClientDataSource{4LinkEPKciS1_iS1_iS1_iS1_ijj,6UnLinkEv,8IsOnlineEv,7AskDataEPKcj}
  _ZN17CClientDataSource{17ChangeReceieveWndEjj,10FreeBufferEPc,16GetBalanceServerEPcicPS0_}
  _ZT{I,V}17CClientDataSource
)
# Microsoft's; that each of them is right is seen where they are used.
mapfile -t -O "${#exports[@]}" exports < \
  <(sed -nE 's/^  (\?[^ ]+) = .*/\1/p' "$(dirname "$0")/../../client/ftclient_msvc.def")

faults=0

compare() { # what, lines found, expected...
  local difference
  difference=$(diff <(printf '%s\n' "${@:3}" | LC_ALL=C sort) <(LC_ALL=C sort -u <<<"$2")) && return
  echo "imports_test: $library does not have exactly the $1 that it should"
  echo "(< is missing, > is too much):"
  echo "$difference"
  faults=$((faults + 1))
}

headers=$("$objdump" -p "$library")
compare "imported DLLs" "$(sed -nE 's/^\tDLL Name: //p' <<<"$headers")" \
  KERNEL32.dll USER32.dll WS2_32.dll msvcrt.dll
compare "exported names" \
  "$(sed -nE '/^\[Ordinal\/Name Pointer\] Table/,/^$/s/^\t\[ *[0-9]+\] //p' <<<"$headers")" \
  "${exports[@]}"
# The names and texts of a version resource are in 16-bit characters.
compare versions "$("${objdump%objdump}strings" -e l "$library" |
  sed -nE '/^(File|Product)Version$/{N;s/\n/ /;p}')" \
  "FileVersion $version" "ProductVersion $version"

bytes=$(stat -c %s "$library")
if ((bytes > most_bytes)); then
  echo "imports_test: $library has $bytes bytes, more than $most_bytes"
  faults=$((faults + 1))
fi

((faults == 0)) || exit 1
echo "imports_test: ${#exports[@]} names, $bytes bytes"
