include(GNUInstallDirs)

set(FTCLIENT_PUBLIC_HEADERS client/clientdatasource.h)
# Installed below include/ftclient, so that hosts write #include "client/..." as in this tree.
set(FTCLIENT_INCLUDE_DIRECTORIES
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/ftclient>)
if(WIN32)
  set(FTCLIENT_BACKEND platform/win32)
  set(FTCLIENT_SYSTEM_LIBRARIES ws2_32)
else()
  find_package(Threads REQUIRED)
  set(FTCLIENT_BACKEND platform/posix)
  set(FTCLIENT_SYSTEM_LIBRARIES Threads::Threads)
  list(APPEND FTCLIENT_PUBLIC_HEADERS client/ftwindow.h)
endif()

file(GLOB FTCLIENT_SOURCES CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}
  platform/*.cpp
  ${FTCLIENT_BACKEND}/*.cpp
  00shcode/mytoolkit/*.cpp
  00shcode/ftmsgq/*.cpp
  00shcode/ftmtsockimpl/*.cpp
  sockif/*.cpp
  client/*.cpp)
if(WIN32)
  list(REMOVE_ITEM FTCLIENT_SOURCES client/ftwindow.cpp)
endif()

# Both libraries are made from these objects, so that nothing is compiled twice.
add_library(ftclient_objects OBJECT ${FTCLIENT_SOURCES})
target_compile_definitions(ftclient_objects PRIVATE FTCLIENT_BUILD)
target_include_directories(ftclient_objects PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(ftclient_objects PRIVATE ftclient_warnings ${FTCLIENT_SYSTEM_LIBRARIES})
set_target_properties(ftclient_objects PROPERTIES
  POSITION_INDEPENDENT_CODE ON
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)

# The shared library is optimised as a whole. The objects hold ordinary code too, so that linking
# the static one stays quick and needs no plugin.
set(FTCLIENT_WHOLE_PROGRAM $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-flto=auto>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT WIN32 AND NOT FTCLIENT_SANITIZE)
  target_compile_options(ftclient_objects PRIVATE ${FTCLIENT_WHOLE_PROGRAM} -ffat-lto-objects)
else()
  set(FTCLIENT_WHOLE_PROGRAM)
endif()

# Everything, inner classes included: for tools, tests and benches. Hosts use it through the public
# headers, as they do the shared library.
add_library(ftclient_core STATIC $<TARGET_OBJECTS:ftclient_objects>)
add_library(ftclient::static ALIAS ftclient_core)
set_target_properties(ftclient_core PROPERTIES
  LINKER_LANGUAGE CXX
  OUTPUT_NAME ftclient
  EXPORT_NAME static)
target_compile_definitions(ftclient_core INTERFACE FTCLIENT_STATIC)
target_include_directories(ftclient_core INTERFACE ${FTCLIENT_INCLUDE_DIRECTORIES})
target_link_libraries(ftclient_core PUBLIC ${FTCLIENT_SYSTEM_LIBRARIES})

# What hosts load: only the names of the public headers are visible.
add_library(ftclient SHARED $<TARGET_OBJECTS:ftclient_objects>)
add_library(ftclient::ftclient ALIAS ftclient)
set_target_properties(ftclient PROPERTIES
  LINKER_LANGUAGE CXX
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR})
target_include_directories(ftclient INTERFACE ${FTCLIENT_INCLUDE_DIRECTORIES})
target_link_libraries(ftclient PRIVATE ${FTCLIENT_SYSTEM_LIBRARIES})
target_link_options(ftclient PRIVATE ${FTCLIENT_WHOLE_PROGRAM})
if(WIN32)
  include(cmake/windows_dll.cmake)
else()
  set(FTCLIENT_VERSION_SCRIPT ${PROJECT_SOURCE_DIR}/cmake/ftclient.map)
  target_link_options(ftclient PRIVATE -Wl,--version-script=${FTCLIENT_VERSION_SCRIPT})
  set_property(TARGET ftclient APPEND PROPERTY LINK_DEPENDS ${FTCLIENT_VERSION_SCRIPT})
  if(NOT FTCLIENT_SANITIZE)
    target_link_options(ftclient PRIVATE -Wl,--no-undefined)
  endif()
endif()
