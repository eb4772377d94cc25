#!/bin/bash
# A host in C++98 builds with what cmake --install leaves, and inside a tree of its own, and runs:
# each row of the table at the end is one way to find the library. Installed guides link to what is
# there.
# usage: package_test.sh BUILD_DIRECTORY GENERATOR CXX [TOOLCHAIN [EMULATOR]]    for Windows the latter
set -euo pipefail

build=$1 generator=$2 cxx=$3 toolchain=${4:-} emulator=${5:-}
source=$(realpath "$(dirname "$0")/../..")
work=$(mktemp -d)
trap 'finish $?' EXIT
cd "$work"
way="cmake --install"
prefix=$work/prefix
flags=(-std=c++98 -pedantic -Wall -Wextra -Werror)
export PKG_CONFIG_LIBDIR=$prefix/lib/pkgconfig LD_LIBRARY_PATH=$prefix/lib

write_host() {
  cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(old_host LANGUAGES CXX)
if(FTCLIENT_SOURCE)
  add_subdirectory(${FTCLIENT_SOURCE} ftclient)
else()
  find_package(ftclient 1.0 CONFIG REQUIRED)
  find_package(ftclient 2 CONFIG QUIET)
  if(ftclient_FOUND)
    message(FATAL_ERROR "The package serves as one of another major version.")
  endif()
endif()
foreach(kind ftclient static)
  add_executable(host_${kind} main.cpp)
  target_link_libraries(host_${kind} PRIVATE ftclient::${kind})
endforeach()
END
  cat >main.cpp <<'END'
#include "client/clientdatasource.h"
#ifndef _WIN32
#include "client/ftwindow.h"
#endif

#if __cplusplus >= 201103L && !defined(_MSC_VER)
#error "The package raises the host's language standard."
#endif

int main() {
  unsigned int window = 0;
#ifndef _WIN32
  window = FTCreateWindow();
#endif
  CClientDataSource client;
  client.Link("127.0.0.1", 1, 0, 0, 0, 0, 0, 0, 0, 0, window, 1);
  return client.IsOnline();
}
END
}

configure() { # directory, option...
  # CMake takes imported headers for system headers, whose warnings the compiler hides.
  cmake -S . -B "$1" -G "$generator" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_STANDARD=98 \
    -DCMAKE_CXX_EXTENSIONS=OFF -DCMAKE_NO_SYSTEM_FROM_IMPORTED=ON -DCMAKE_BUILD_TYPE=None \
    ${toolchain:+-DCMAKE_TOOLCHAIN_FILE="$toolchain"} "${@:2}"
}

with_find_package() { # kind
  CXXFLAGS="${CXXFLAGS-} ${flags[*]:1}" configure found -Dftclient_DIR="$prefix/lib/cmake/ftclient"
  cmake --build found --target "host_$1"
  cp found/host_"$1"* host.exe
}

with_subdirectory() { # kind
  configure inside -DFTCLIENT_SOURCE="$source"
  cmake --build inside --target "host_$1"
  cp inside/host_"$1"* host.exe
}

# A program for Windows brings its compiler's own libraries along in any case.
with_pkg_config() { # -static, or -Bdynamic for the shared library
  local options=()
  [[ $1 != -static ]] || options=(--static)
  "$cxx" ${CXXFLAGS-} "${flags[@]}" ${toolchain:+-static} main.cpp -o host.exe "${1/-B/-Wl,-B}" \
    $(pkg-config "${options[@]}" --cflags --libs ftclient) ${toolchain:+-Wl,-Bstatic}
}

with_microsoft_abi() { # import library
  clang++ --target=i686-pc-windows-msvc -ffreestanding -fno-exceptions "${flags[@]:1}" \
    -I"$prefix/include/ftclient" -c main.cpp
  "$cxx" -static main.o "$prefix/lib/$1" -o host.exe
}

guides_of() { # directory
  cd "$prefix/share/doc/ftclient/$1"
  grep -ohE '\]\([^)#:]+[)#]' *.md | sed -E 's/^..|.$//g' | xargs ls -d
}

finish() { # result
  (($1 == 0)) || { cat log && echo "package_test: $way: failed"; }
  rm -rf "$work"
}

write_host
cmake --install "$build" --prefix "$prefix" >log
ways=("find_package ftclient" "find_package static" "pkg_config -Bdynamic" "pkg_config -static"
  "subdirectory ftclient")
if [[ -n $toolchain ]]; then
  ways+=("microsoft_abi ftclient.lib")
  cp "$prefix"/bin/*.dll . # a program finds its DLL beside itself
fi
for way in "guides_of ." "guides_of docs"; do ($way) >log 2>&1; done
for way in "${ways[@]}"; do
  (
    "with_${way% *}" "${way#* }"
    [[ -n $toolchain && -z $emulator ]] || $emulator ./host.exe
  ) >log 2>&1
done
