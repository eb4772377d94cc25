# What cmake --install puts in place, in components that packages are made of: the shared library,
# what one develops hosts with, and the tool.
include(CMakePackageConfigHelpers)

set(FTCLIENT_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ftclient)
set(FTCLIENT_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Package managers want one kind alone, and say which.
set(FTCLIENT_INSTALLED ftclient ftclient_core)
if(DEFINED BUILD_SHARED_LIBS AND BUILD_SHARED_LIBS)
  set(FTCLIENT_INSTALLED ftclient)
elseif(DEFINED BUILD_SHARED_LIBS)
  set(FTCLIENT_INSTALLED ftclient_core)
endif()
install(TARGETS ${FTCLIENT_INSTALLED} EXPORT ftclientTargets
  RUNTIME COMPONENT library
  LIBRARY COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development)
if(WIN32 AND ftclient IN_LIST FTCLIENT_INSTALLED)
  install(FILES ${FTCLIENT_MSVC_LIBRARY}
    DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
endif()
if(FTCLIENT_WHOLE_PROGRAM AND ftclient_core IN_LIST FTCLIENT_INSTALLED)
  # What it left in the objects serves this version of the compiler alone.
  configure_file(cmake/strip_archive.cmake.in ${PROJECT_BINARY_DIR}/strip_archive.cmake @ONLY)
  install(SCRIPT ${PROJECT_BINARY_DIR}/strip_archive.cmake COMPONENT development)
endif()
install(FILES ${FTCLIENT_PUBLIC_HEADERS}
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ftclient/client COMPONENT development)

install(EXPORT ftclientTargets
  NAMESPACE ftclient::
  DESTINATION ${FTCLIENT_PACKAGE_DIR} COMPONENT development)
configure_package_config_file(cmake/ftclientConfig.cmake.in ${PROJECT_BINARY_DIR}/ftclientConfig.cmake
  INSTALL_DESTINATION ${FTCLIENT_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ftclientConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ftclientConfig.cmake
  ${PROJECT_BINARY_DIR}/ftclientConfigVersion.cmake
  DESTINATION ${FTCLIENT_PACKAGE_DIR} COMPONENT development)

# Found from where the file lies, so that the tree can be moved.
file(RELATIVE_PATH FTCLIENT_PREFIX_FROM_PKGCONFIG /${FTCLIENT_PKGCONFIG_DIR} /)
string(REGEX REPLACE "/$" "" FTCLIENT_PREFIX_FROM_PKGCONFIG ${FTCLIENT_PREFIX_FROM_PKGCONFIG})
set(FTCLIENT_STATIC_CFLAGS -DFTCLIENT_STATIC)
set(FTCLIENT_STATIC_LIBS -pthread)
if(WIN32)
  set(FTCLIENT_STATIC_LIBS -lws2_32)
endif()
if(NOT ftclient IN_LIST FTCLIENT_INSTALLED) # then nobody has to ask for what static linking takes
  set(FTCLIENT_CFLAGS " ${FTCLIENT_STATIC_CFLAGS}")
  set(FTCLIENT_LIBS " ${FTCLIENT_STATIC_LIBS}")
endif()
configure_file(cmake/ftclient.pc.in ${PROJECT_BINARY_DIR}/ftclient.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ftclient.pc
  DESTINATION ${FTCLIENT_PKGCONFIG_DIR} COMPONENT development)

include(cmake/guides.cmake)
if(WIN32)
  install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT library)
endif()

# gdb finds the printers by itself where it looks for those of libraries in /usr.
if(NOT WIN32)
  install(FILES tools/gdb/ftclient.py
    DESTINATION ${CMAKE_INSTALL_DATADIR}/ftclient/gdb COMPONENT development)
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    install(FILES tools/gdb/ftclient.py
      DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}
      RENAME libftclient.so.${PROJECT_VERSION}-gdb.py COMPONENT development)
  endif()
endif()
