# cpack: Debian packages of the components (preset deb), and an archive for Windows (preset zip).
# The owner has still to choose: cmake --preset package -DCPACK_PACKAGE_CONTACT="NAME <ADDRESS>"
set(CPACK_PACKAGE_CONTACT "maintainers of ftclient <ftclient@debian.example.org>" CACHE STRING
  "Maintainer of the packages")
set(CPACK_PACKAGE_VENDOR ftclient)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_ALL library development tool)

if(WIN32)
  set(CPACK_STRIP_FILES ON)
  set(CPACK_PACKAGE_FILE_NAME ftclient-${PROJECT_VERSION}-windows-x86)
else()
  include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
endif()
include(CPack)

file(READ packaging/vcpkg/ftclient/vcpkg.json port)
string(JSON port_version GET ${port} version)
if(NOT port_version VERSION_EQUAL PROJECT_VERSION)
  message(SEND_ERROR "packaging/vcpkg is of version ${port_version}.")
endif()
