#!/bin/bash
# A host in C++98 builds with the installed package, and runs.
# usage: package_test.sh BUILD_DIRECTORY GENERATOR CXX
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

cmake --install "$1" --prefix "$work/prefix" >log
cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(old_host LANGUAGES CXX)
find_package(ftclient CONFIG REQUIRED)
add_executable(old_host main.cpp)
target_link_libraries(old_host PRIVATE ftclient::ftclient)
END
cat >main.cpp <<'END'
#include "client/clientdatasource.h"
#include "client/ftwindow.h"

#if __cplusplus >= 201103L
#error "The package raises the host's language standard."
#endif

int main() {
  const unsigned int window = FTCreateWindow();
  CClientDataSource client;
  client.Link("127.0.0.1", 1, 0, 0, 0, 0, 0, 0, 0, 0, window, 1);
  return FTDestroyWindow(window);
}
END
# CMake takes imported headers for system headers, whose warnings the compiler hides.
CXXFLAGS="${CXXFLAGS-} -pedantic -Wall -Wextra -Werror" cmake -S . -B build -G "$2" \
  -DCMAKE_CXX_COMPILER="$3" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_STANDARD=98 \
  -DCMAKE_CXX_EXTENSIONS=OFF -DCMAKE_NO_SYSTEM_FROM_IMPORTED=ON >log
cmake --build build
build/old_host
