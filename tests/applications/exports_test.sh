#!/bin/bash
# The shared library exports the names of its public headers and no others.
# usage: exports_test.sh LIBRARY [NM]
set -euo pipefail

library=$1
nm=${2:-nm}

expected=$(LC_ALL=C sort <<'END'
CClientDataSource::AskData
CClientDataSource::CClientDataSource
CClientDataSource::ChangeReceieveWnd
CClientDataSource::FreeBuffer
CClientDataSource::GetBalanceServer
CClientDataSource::IsOnline
CClientDataSource::Link
CClientDataSource::UnLink
CClientDataSource::operator=
CClientDataSource::~CClientDataSource
FTCreateWindow
FTDestroyWindow
FTGetWindowFd
FTWaitMessage
typeinfo for CClientDataSource
typeinfo name for CClientDataSource
vtable for CClientDataSource
END
)

# "address type name(parameters)" down to "name"; an overload or variant counts once.
exported=$("$nm" -D -C --defined-only "$library" |
  sed -E 's/^[0-9a-f]* *[A-Za-z] //; s/\(.*//' | LC_ALL=C sort -u)

if ! difference=$(diff <(echo "$expected") <(echo "$exported")); then
  echo "exports_test: $library does not export exactly what it should"
  echo "(< is missing, > is too much):"
  echo "$difference"
  exit 1
fi
echo "exports_test: exactly $(wc -l <<<"$expected") names"
