#!/bin/bash
# Keeps the rooms of the house apart: who may include what, and who may know the platform.
# usage: rooms_test.sh [ROOT]
set -euo pipefail

cd "${1:-$(dirname "$0")/../..}"

# From the ground up: rooms, and in the engine its files, which have no directory here. A file may
# include what stands in levels before its own, and its own room or header.
levels=('platform' '00shcode/mytoolkit' '00shcode/ftmsgq' 'sock link_orders' 'link_info'
  'connect_schedule pkg_cutter send_queue recv_backlog sock_if_contract engine_log'
  'engine_msgs engine_state engine_thread' 'link select_thread' 'send_thread'
  'receive_thread connector listener' 'wait_thread' 'engine' 'sockif' 'client')
engine=00shcode/ftmtsockimpl faults=0 checked=0
# The tool's rooms, from the ground up.
tool_rooms=(common capture server host terminal commands)
public_header='client/@(clientdatasource|ftwindow).h'
platform_macros='_?_?(WIN32|WIN64|WINDOWS|linux|gnu_linux|unix|unix_|APPLE|MINGW[0-9]+|CYGWIN|'
platform_macros+='POSIX_[A-Z_]+)(__)?|_MSC_VER|_GNU_SOURCE'

fault() { # what is wrong in the directive that was read
  echo "$file:$line: $1"
  faults=$((faults + 1))
}

level_of() { # path: prints its level, or nothing
  local i entry name=${1#"$engine"/}
  for i in "${!levels[@]}"; do
    for entry in ${levels[i]}; do
      [[ $name != "$entry"/* && ${name%.*} != "$entry" ]] || echo "$i"
    done
  done
}

check_levels() { # header of ours
  local own=$(level_of "$file") other=$(level_of "$1")
  if [[ -z $own || -z $other || ! -f $1 ]]; then
    fault "$file or \"$1\" has no level in the library, or does not exist"
  elif ((own > 0)) && [[ $1 == platform/*/* ]]; then
    fault "\"$1\" is inside a backend: only the contract is for others"
  elif ((other > own)) ||
    [[ $other == "$own" && $1 == "$engine"/* && ${file%.*} != "${1%.*}" ]]; then
    fault "${file%.*} must not include \"$1\": includes go down only"
  fi
}

check_tool_rooms() { # header of ours
  local own=$(cut -d/ -f2 <<<"$file") other=$(cut -d/ -f2 <<<"$1")
  [[ $1 != tools/* || $own == @(posix|win32) || " ${tool_rooms[*]} " == *" $other "*"$own "* ||
    $own == "$other" ]] || fault "tools/$own must not include \"$1\": includes go down only"
}

check_own_header() { # path
  case $file in
    client/package* | client/check_sum*)
      [[ $1 =~ ^(client/(package|check_sum).*|00shcode/mytoolkit/buffer)\.h$ ]] ||
        fault "the wire codec needs the buffer alone, not \"$1\"" ;;
    examples/server.cpp) # on the framework itself, and no more of it than a server needs
      [[ $1 == @(sockif/base_sock_if|client/package).h ]] ||
        fault "a server stands on the protocol base and the wire codec, not on \"$1\"" ;;
    examples/*)
      [[ $1 == $public_header ]] || fault "an example is a host: \"$1\" is not a public header" ;;
    tools/*/*) check_tool_rooms "$1" ;;
    tools/* | bench/*) ;;
    *) check_levels "$1" ;;
  esac
}

# Standard C++ headers have neither a dot nor a slash. What <cerrno> tells, the platform answers.
check_system_header() { # header
  [[ $1 == cerrno || $1 == *[./]* ]] || return 0
  case $1:$file in
    stdint.h:client/* | stddef.h:client/*) [[ $file == $public_header ]] && return ;;
    immintrin.h:client/check_sum_vector.cpp) return ;; # the processor's, and no system's
    CLI/*:tools/* | *:tools/posix/* | *:tools/win32/*) return ;;
    *:bench/*) return ;; # what measures, and the peers, stand on the system itself
    # A host's own event loop, and hosts with windows of the system.
    sys/*.h:examples/epoll_*.cpp | unistd.h:examples/epoll_*.cpp) return ;;
    windows.h:examples/win32_*.cpp) return ;;
    g*.h:examples/glib_*.cpp) return ;; # GLib's and GTK's
  esac
  fault "<$1> is no C++ standard header: the operating system belongs in platform/"
}

check_macros() { # directive
  [[ $1 =~ (^|[^A-Za-z0-9_])($platform_macros)($|[^A-Za-z0-9_]) ]] || return 0
  # The export macro has to know how a name is exported.
  [[ ${BASH_REMATCH[2]} == _WIN32 && $file == $public_header ]] && return
  fault "tests for a platform (${BASH_REMATCH[2]}): that belongs in platform/"
}

while IFS=: read -r file line text; do
  checked=$((checked + 1))
  if [[ $text =~ include[[:space:]]*\"([^\"]*) ]]; then
    check_own_header "${BASH_REMATCH[1]}"
  elif [[ $file != platform/* && $text =~ include[[:space:]]*\<([^\>]*) ]]; then
    check_system_header "${BASH_REMATCH[1]}"
  elif [[ $file != platform/* ]]; then
    check_macros "$text"
  fi
done < <(grep -rnE --include='*.h' --include='*.cpp' \
  '^[[:space:]]*#[[:space:]]*(include|if|elif|ifdef|ifndef|define)' \
  platform 00shcode sockif client tools examples $([[ ! -d bench ]] || echo bench))

echo "rooms_test: $faults faults in $checked directives"
((faults == 0 && checked > 100))
