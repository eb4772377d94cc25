#!/bin/bash
# The DLL needs only what every Windows has, exports the class for both compilers and nothing else,
# tells its version and is small.
# usage: imports_test.sh DLL OBJDUMP VERSION
set -euo pipefail

library=$1
objdump=$2
version=$3.0
most_bytes=$((512 * 1024))

imports=$(LC_ALL=C sort <<'END'
KERNEL32.dll
USER32.dll
WS2_32.dll
msvcrt.dll
END
)

# In the order of the header: what Microsoft's compilers call a member, and what GNU's do. GNU's
# need more than one name for what makes and unmakes objects.
exports=$(LC_ALL=C sort <<'END'
??0CClientDataSource@@QAE@XZ
_ZN17CClientDataSourceC1Ev
_ZN17CClientDataSourceC2Ev
??0CClientDataSource@@QAE@ABV0@@Z
_ZN17CClientDataSourceC1ERKS_
_ZN17CClientDataSourceC2ERKS_
??4CClientDataSource@@QAEAAV0@ABV0@@Z
_ZN17CClientDataSourceaSERKS_
??1CClientDataSource@@UAE@XZ
_ZN17CClientDataSourceD0Ev
_ZN17CClientDataSourceD1Ev
_ZN17CClientDataSourceD2Ev
??_7CClientDataSource@@6B@
_ZTV17CClientDataSource
_ZTI17CClientDataSource
?Link@CClientDataSource@@QAEHPBDH0H0H0H0HII@Z
_ZN17CClientDataSource4LinkEPKciS1_iS1_iS1_iS1_ijj
?UnLink@CClientDataSource@@QAEHXZ
_ZN17CClientDataSource6UnLinkEv
?IsOnline@CClientDataSource@@QAEHXZ
_ZN17CClientDataSource8IsOnlineEv
?AskData@CClientDataSource@@QAEHPBDI@Z
_ZN17CClientDataSource7AskDataEPKcj
?ChangeReceieveWnd@CClientDataSource@@QAEXII@Z
_ZN17CClientDataSource17ChangeReceieveWndEjj
?FreeBuffer@CClientDataSource@@QAEXPAD@Z
_ZN17CClientDataSource10FreeBufferEPc
?GetBalanceServer@CClientDataSource@@QAEHPADHDPAPAD@Z
_ZN17CClientDataSource16GetBalanceServerEPcicPS0_
END
)

faults=0

compare() { # what, expected lines, lines found
  local difference
  difference=$(diff <(echo "$2") <(echo "$3")) && return 0
  echo "imports_test: $library does not have exactly the $1 that it should"
  echo "(< is missing, > is too much):"
  echo "$difference"
  faults=$((faults + 1))
}

headers=$("$objdump" -p "$library")
compare "imported DLLs" "$imports" \
  "$(sed -nE 's/^\tDLL Name: //p' <<<"$headers" | LC_ALL=C sort -u)"
compare "exported names" "$exports" \
  "$(sed -nE '/^\[Ordinal\/Name Pointer\] Table/,/^$/s/^\t\[ *[0-9]+\] //p' <<<"$headers" |
    LC_ALL=C sort)"

# The names and texts of a version resource are in 16-bit characters.
found=$("${objdump%objdump}strings" -e l "$library" |
  sed -nE '/^(File|Product)Version$/{N;s/\n/ /;p}')
compare "versions" "FileVersion $version"$'\n'"ProductVersion $version" "$found"

bytes=$(stat -c %s "$library")
if ((bytes > most_bytes)); then
  echo "imports_test: $library has $bytes bytes, more than $most_bytes"
  faults=$((faults + 1))
fi

((faults == 0)) || exit 1
echo "imports_test: $(wc -l <<<"$exports") names, $(wc -l <<<"$imports") DLLs, $bytes bytes"
