# What cmake --install puts in place, in components that packages are made of: the shared library,
# what one develops hosts with, and the tool.
include(CMakePackageConfigHelpers)

set(FTCLIENT_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ftclient)
set(FTCLIENT_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS ftclient ftclient_core EXPORT ftclientTargets
  RUNTIME COMPONENT library
  LIBRARY COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development)
if(WIN32)
  install(FILES ${FTCLIENT_MSVC_LIBRARY}
    DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
endif()
if(FTCLIENT_WHOLE_PROGRAM) # what it left in the objects serves this version of the compiler alone
  install(CODE "
    file(GLOB archive \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/libftclient.a\")
    execute_process(COMMAND ${CMAKE_OBJCOPY} --remove-section=.gnu.lto_*
      --remove-section=.gnu.debuglto_* \${archive} COMMAND_ERROR_IS_FATAL ANY)"
    COMPONENT development)
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
set(FTCLIENT_PKGCONFIG_LIBS -pthread)
if(WIN32)
  set(FTCLIENT_PKGCONFIG_LIBS -lws2_32)
endif()
configure_file(cmake/ftclient.pc.in ${PROJECT_BINARY_DIR}/ftclient.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ftclient.pc
  DESTINATION ${FTCLIENT_PKGCONFIG_DIR} COMPONENT development)
