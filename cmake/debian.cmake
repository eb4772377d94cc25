set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY >=)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/strip_archives.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/finish_packages.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

function(describe_package component summary contents)
  set(CPACK_DEBIAN_${component}_DESCRIPTION "${summary}
It keeps one TCP link to one of a few servers, sends requests as checksummed
packages and posts what arrives to a window of the application.

This package has ${contents}." PARENT_SCOPE)
endfunction()

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libftclient${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)
describe_package(LIBRARY "client-side communication library" "the shared library")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libftclient-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (= ${PROJECT_VERSION})")
describe_package(DEVELOPMENT "client-side communication library (development files)"
  "the headers, the static library and the guides")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME ftclient-tools)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOL_DEBUGINFO_PACKAGE ON)
describe_package(TOOL "client-side communication library (tool)"
  "ftc, a host for the command line and a server to
develop with, and a dissector for Wireshark")

# Every package has these two.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  configure_file(packaging/debian/changelog.in ${PROJECT_BINARY_DIR}/changelog @ONLY)
  execute_process(COMMAND gzip -9nf ${PROJECT_BINARY_DIR}/changelog COMMAND_ERROR_IS_FATAL ANY)
  foreach(component LIBRARY DEVELOPMENT TOOL)
    string(TOLOWER ${component} lower)
    install(FILES packaging/debian/copyright ${PROJECT_BINARY_DIR}/changelog.gz
      DESTINATION share/doc/${CPACK_DEBIAN_${component}_PACKAGE_NAME} COMPONENT ${lower})
  endforeach()
endif()
