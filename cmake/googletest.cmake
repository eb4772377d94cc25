# GoogleTest for 32 bits, built from the sources that Debian's package googletest installs.
set(FTCLIENT_GOOGLETEST_DIR /usr/src/googletest CACHE PATH "Sources of GoogleTest")
if(NOT EXISTS ${FTCLIENT_GOOGLETEST_DIR}/CMakeLists.txt)
  message(FATAL_ERROR "No sources of GoogleTest in ${FTCLIENT_GOOGLETEST_DIR}: "
                      "install the package googletest.")
endif()
set(INSTALL_GTEST OFF CACHE INTERNAL "")
add_subdirectory(${FTCLIENT_GOOGLETEST_DIR} ${PROJECT_BINARY_DIR}/googletest
                 EXCLUDE_FROM_ALL SYSTEM)
