# Cross-compiles for Windows on 32-bit x86.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)

# The posix flavour has std::thread, which the tests use; the plain name may be either flavour.
set(FTCLIENT_TRIPLET i686-w64-mingw32)
set(CMAKE_C_COMPILER ${FTCLIENT_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${FTCLIENT_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${FTCLIENT_TRIPLET}-windres)

# A program or DLL needs nothing but the system's own DLLs.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)

set(CMAKE_FIND_ROOT_PATH /usr/${FTCLIENT_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run)
