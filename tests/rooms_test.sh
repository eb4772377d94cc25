#!/bin/bash
# Keeps the rooms of the house apart: who may include what, and who may know the platform.
# usage: rooms_test.sh [ROOT]
set -euo pipefail

cd "${1:-$(dirname "$0")/..}"

# From the ground up. A room may include itself and the rooms before it.
rooms=(platform 00shcode/mytoolkit 00shcode/ftmsgq 00shcode/ftmtsockimpl sockif client)
contract=sockif/sock_if_contract.h
public_headers=(client/clientdatasource.h client/ftwindow.h)

faults=0

fault() { # file, line number, what is wrong
  echo "$1:$2: $3"
  faults=$((faults + 1))
}

sources_in() { # directory...: those of them that exist
  local dir
  for dir in "$@"; do
    [[ -d $dir ]] && find "$dir" -name '*.h' -o -name '*.cpp' | LC_ALL=C sort
  done
}

is_one_of() { # word, list...
  local word=$1 other
  shift
  for other in "$@"; do
    [[ $word == "$other" ]] && return 0
  done
  return 1
}

# Prints "line-number text" of each matching preprocessor line.
directives() { # file, extended pattern after the #
  sed -nE "/^[[:space:]]*#[[:space:]]*($2)/{=;p}" "$1" | paste -d ' ' - -
}

quoted_includes() { # file: prints "line-number path"
  directives "$1" 'include[[:space:]]*"' | sed -E 's/^([0-9]+) [^"]*"([^"]*)".*/\1 \2/'
}

system_includes() { # file: prints "line-number path"
  directives "$1" 'include[[:space:]]*<' | sed -E 's/^([0-9]+) [^<]*<([^>]*)>.*/\1 \2/'
}

rank_of() { # path: prints the room's number from the ground, or nothing
  local i
  for i in "${!rooms[@]}"; do
    [[ $1 == "${rooms[i]}"/* ]] && echo "$i" && return
  done
  return 0
}

# Standard C++ headers have neither a dot nor a slash. What <cerrno> tells, the platform answers.
is_portable_header() { # file that includes it, header
  case $2 in
    cerrno) return 1 ;;
    stdint.h | stddef.h) is_one_of "$1" "${public_headers[@]}" ;;
    CLI/*) [[ $1 == tools/* ]] ;;
    poll.h) [[ $1 == examples/* ]] ;;  # a host's own event loop
    windows.h) [[ $1 == examples/win32_*.cpp ]] ;;  # hosts with windows of the system
    benchmark/*) [[ $1 == bench/* ]] ;;
    *[./]*) return 1 ;;
  esac
}

check_platform_headers() { # file
  local line header
  while read -r line header; do
    is_portable_header "$1" "$header" ||
      fault "$1" "$line" "<$header> is no C++ standard header: the operating system belongs in platform/"
  done < <(system_includes "$1")
}

check_platform_macros() { # file
  local line text
  local macros='_?_?(WIN32|WIN64|WINDOWS|linux|gnu_linux|unix|unix_|APPLE|MINGW[0-9]+|CYGWIN|'
  macros+='POSIX_[A-Z_]+)(__)?|_MSC_VER|_GNU_SOURCE'
  while read -r line text; do
    [[ $text =~ (^|[^A-Za-z0-9_])($macros)($|[^A-Za-z0-9_]) ]] || continue
    # The export macro has to know how a name is exported.
    is_one_of "$1" "${public_headers[@]}" && [[ ${BASH_REMATCH[2]} == _WIN32 ]] && continue
    fault "$1" "$line" "tests for a platform (${BASH_REMATCH[2]}): that belongs in platform/"
  done < <(directives "$1" 'if|elif|ifdef|ifndef|define')
}

check_include_order() { # file of a room
  local line path own other
  own=$(rank_of "$1")
  while read -r line path; do
    other=$(rank_of "$path")
    if [[ -z $other ]]; then
      fault "$1" "$line" "\"$path\" is in none of the library's rooms"
    elif [[ ! -f $path ]]; then
      fault "$1" "$line" "\"$path\" does not exist below the root"
    elif ((own > 0)) && [[ $path == platform/*/* ]]; then
      fault "$1" "$line" "\"$path\" is inside a backend: only the contract is for others"
    elif [[ $1 == "$contract" && $path == sockif/* ]]; then
      fault "$1" "$line" "the contract knows nothing of the implementation (\"$path\")"
    elif ((other > own)) && [[ ${rooms[own]} != */ftmtsockimpl || $path != "$contract" ]]; then
      fault "$1" "$line" "${rooms[own]} must not include \"$path\": includes go down only"
    fi
  done < <(quoted_includes "$1")
}

check_wire_codec() { # file of the wire codec
  local line path
  while read -r line path; do
    case $path in
      client/package*.h | client/check_sum*.h | 00shcode/mytoolkit/buffer.h) ;;
      *) fault "$1" "$line" "the wire codec needs the buffer alone, not \"$path\"" ;;
    esac
  done < <(quoted_includes "$1")
}

check_example() { # file
  local line path
  while read -r line path; do
    is_one_of "$path" "${public_headers[@]}" ||
      fault "$1" "$line" "an example is a host: \"$path\" is not a public header"
  done < <(quoted_includes "$1")
}

for room in "${rooms[@]}"; do
  [[ -n $(sources_in "$room") ]] || fault "$room" 0 "the room is empty or missing"
done

checked=0
while read -r file; do
  check_include_order "$file"
  checked=$((checked + 1))
done < <(sources_in "${rooms[@]}")

while read -r file; do
  check_platform_headers "$file"
  check_platform_macros "$file"
  checked=$((checked + 1))
done < <(sources_in "${rooms[@]:1}" tools examples bench)

while read -r file; do
  check_wire_codec "$file"
done < <(sources_in client | grep -E '^client/(package|check_sum)')

while read -r file; do
  check_example "$file"
done < <(sources_in examples)

if ((faults > 0)); then
  echo "rooms_test: $faults faults"
  exit 1
fi
echo "rooms_test: $checked checks passed"
