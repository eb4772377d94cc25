set(FTCLIENT_PUBLIC_HEADERS client/clientdatasource.h)
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

# Everything, inner classes included: for tools, tests and benches.
add_library(ftclient_core STATIC $<TARGET_OBJECTS:ftclient_objects>)
set_target_properties(ftclient_core PROPERTIES LINKER_LANGUAGE CXX)
target_compile_definitions(ftclient_core INTERFACE FTCLIENT_STATIC)
target_include_directories(ftclient_core INTERFACE ${PROJECT_SOURCE_DIR})
target_link_libraries(ftclient_core PUBLIC ${FTCLIENT_SYSTEM_LIBRARIES})

# What hosts load: only the names of the public headers are visible.
add_library(ftclient SHARED $<TARGET_OBJECTS:ftclient_objects>)
add_library(ftclient::ftclient ALIAS ftclient)
set_target_properties(ftclient PROPERTIES
  LINKER_LANGUAGE CXX
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR})
target_include_directories(ftclient INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
  $<INSTALL_INTERFACE:include/ftclient>)
target_link_libraries(ftclient PRIVATE ${FTCLIENT_SYSTEM_LIBRARIES})
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
