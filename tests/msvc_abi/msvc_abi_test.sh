#!/bin/bash
# Applications as the Microsoft compilers make them, against the library and a real server.
# usage: msvc_abi_test.sh FTCLIENT_DLL FTC WINE_RUN [FTCLIENT_LIB]
# FTC is the development server; WINE_RUN runs a Windows program. Works below the current directory.
set -euo pipefail

if (($# < 3 || $# > 4)); then
  sed -n '3,4s/^# //p' "$0" >&2
  exit 2
fi
dll=$(realpath "$1")
ftc=$2
wine_run=$3
import_library=${4:-}
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)

for tool in clang++ lld-link llvm-dlltool; do
  command -v "$tool" >/dev/null || {
    echo "msvc_abi_test: $tool is missing; it comes with the packages clang, lld and llvm" >&2
    exit 1
  }
done

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

compile() { # source... : objects of the same names in the working directory
  local source
  for source in "$@"; do
    clang++ --target=i686-pc-windows-msvc -std=c++17 -O1 -ffreestanding -fno-exceptions \
      -Wall -Wextra -Wshadow -Werror -I"$root" -c "$here/$source.cpp" -o "$work/$source.obj"
  done
}

link() { # application, object...: the libraries follow
  local application=$1
  shift
  (cd "$work" && lld-link /nologo /nodefaultlib /subsystem:console /entry:Start /safeseh:no \
    "/out:$application.exe" "${@/%/.obj}" "${libraries[@]}" "${system_libraries[@]}")
}

cp "$dll" "$work/ftclient.dll"
system_libraries=()
for library in kernel32 ntdll user32 msvcrt; do
  llvm-dlltool -m i386 -k -d "$here/$library.def" -l "$work/$library.lib"
  system_libraries+=("$library.lib")
done
if [[ -n $import_library ]]; then
  cp "$import_library" "$work/ftclient.lib"
else
  llvm-dlltool -m i386 -d "$root/client/ftclient_msvc.def" -l "$work/ftclient.lib"
fi

linked=(linked_app object_cases derived_cases type_cases member_cases allocator)
loaded=(loaded_app raw_call)
common=(app inbox)
compile "${linked[@]}" "${loaded[@]}" "${common[@]}"
libraries=(ftclient.lib)
link linked_app "${linked[@]}" "${common[@]}"
libraries=()
link loaded_app "${loaded[@]}" "${common[@]}"

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
  echo "msvc_abi_test: $1"
  cat "$work/$1.txt"
  (($2 == 0)) && return
  cat "$work/$1.err"
  echo
  echo "msvc_abi_test: $1 ended with $2"
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
