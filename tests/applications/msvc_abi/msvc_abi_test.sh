#!/bin/bash
# Applications as the Microsoft compilers make them, against the library and a real server.
# usage: msvc_abi_test.sh FTCLIENT_DLL FTC WINE_RUN FTCLIENT_LIB
# FTC is the development server; WINE_RUN runs a Windows program. Works below the current directory.
set -euo pipefail

(($# == 4)) || {
  sed -n '3,4s/^# //p' "$0" >&2
  exit 2
}
ftc=$2
wine_run=$3
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../../.." && pwd)

work=$(mktemp -d "$PWD/msvc_abi.XXXXXX")
server=
cleanup() {
  if [[ -n $server ]]; then
    kill "$server" 2>/dev/null || true
    wait "$server" || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT
cp "$1" "$work/ftclient.dll"
cp "$4" "$work/ftclient.lib"

import_library() { # name, what it exports...
  printf 'LIBRARY %s.dll\nEXPORTS\n' "$1" >"$work/$1.def"
  printf '  %s\n' "${@:2}" >>"$work/$1.def"
  llvm-dlltool -m i386 -k -d "$work/$1.def" -l "$work/$1.lib"
}

link() { # application, source...
  local application=$1 source
  shift
  for source in "$@"; do
    clang++ --target=i686-pc-windows-msvc -std=c++17 -O1 -ffreestanding -fno-exceptions \
      -fno-threadsafe-statics -mno-stack-arg-probe -Wall -Wextra -Wshadow -Werror \
      -I"$root" -c "$here/$source.cpp" -o "$work/$source.obj"
  done
  (cd "$work" && lld-link /nologo /nodefaultlib /subsystem:console /entry:Start /safeseh:no \
    "/out:$application.exe" "${@/%/.obj}" {ftclient,kernel32,ntdll,user32,msvcrt}.lib)
}

import_library kernel32 ExitProcess@4 FreeLibrary@4 GetCurrentProcessId@0 GetModuleHandleA@4 \
  GetProcAddress@8 GetProcessHeap@0 GetTickCount@0 HeapAlloc@12 HeapCreate@12 HeapFree@12 \
  HeapValidate@12 LoadLibraryA@4 SetUnhandledExceptionFilter@4 TerminateProcess@8
import_library ntdll NtQuerySystemInformation@16
import_library user32 CreateWindowExA@48 DestroyWindow@4 MsgWaitForMultipleObjects@20 \
  PeekMessageA@20 wsprintfA
# The parts of the compiler's runtime that the system brings along.
import_library msvcrt '??8type_info@@QBEHABV0@@Z' '?name@type_info@@QBEPBDXZ' __RTCastToVoid \
  __RTDynamicCast __RTtypeid __getmainargs _write atoi memcmp memcpy memset strcmp
link linked_app linked_app object_cases type_cases app
link loaded_app loaded_app app

mkfifo "$work/said"
"$ftc" serve --host 127.0.0.1 --port 0 --mode echo >"$work/said" &
server=$!
exec {said}<"$work/said"
line=
read -r -t 20 -u "$said" line || true
[[ $line =~ ^listening\ on\ (.*):([0-9]+)$ ]] || {
  echo "msvc_abi_test: the server said: $line" >&2
  exit 1
}
host=${BASH_REMATCH[1]} port=${BASH_REMATCH[2]}
cat <&"$said" >/dev/null &

run() { # application: its report and its diagnostics go to files
  timeout 40 "$wine_run" "$work/$1.exe" "$host" "$port" >"$work/$1.txt" 2>"$work/$1.err"
}

show() { # application, exit status
  echo "msvc_abi_test: $1 ended with $2"
  cat "$work/$1.txt"
  (($2 == 0)) || cat "$work/$1.err"
}

run loaded_app &
loaded_app=$!
linked_status=0
run linked_app || linked_status=$?
loaded_status=0
wait "$loaded_app" || loaded_status=$?
show linked_app "$linked_status"
show loaded_app "$loaded_status"
((linked_status == 0 && loaded_status == 0))
