include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(FTCLIENT_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ftclient)

install(TARGETS ftclient EXPORT ftclientTargets)
if(WIN32)
  install(FILES ${FTCLIENT_MSVC_LIBRARY} DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
# Below include/ftclient, so that hosts write #include "client/clientdatasource.h" as in this tree.
install(FILES ${FTCLIENT_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ftclient/client)

install(EXPORT ftclientTargets
  FILE ftclientConfig.cmake
  NAMESPACE ftclient::
  DESTINATION ${FTCLIENT_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ftclientConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ftclientConfigVersion.cmake
  DESTINATION ${FTCLIENT_PACKAGE_DIR})
