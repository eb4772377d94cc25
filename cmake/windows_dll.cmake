# What only the Windows DLL has: its name, its version resource and its small size.
enable_language(RC)

configure_file(${PROJECT_SOURCE_DIR}/client/ftclient.rc.in ${PROJECT_BINARY_DIR}/ftclient.rc @ONLY)

# Names that applications of other compilers import, and the code behind them.
file(GLOB FTCLIENT_DLL_SOURCES CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}
  client/win32/*.cpp
  client/*.def)

target_sources(ftclient PRIVATE ${PROJECT_BINARY_DIR}/ftclient.rc ${FTCLIENT_DLL_SOURCES})
target_compile_definitions(ftclient PRIVATE FTCLIENT_BUILD)
target_include_directories(ftclient PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(ftclient PRIVATE ftclient_warnings)
set_target_properties(ftclient PROPERTIES PREFIX "")

target_compile_options(ftclient_objects PRIVATE -ffunction-sections -fdata-sections)
target_link_options(ftclient PRIVATE -Wl,--gc-sections,--no-insert-timestamp -s
                    -Wl,--wrap=pthread_once)  # see platform/win32/once.cpp

# What Microsoft's linker and lld-link want; GNU ld's own libftclient.dll.a holds other names.
find_program(FTCLIENT_DLLTOOL llvm-dlltool REQUIRED)
set(FTCLIENT_MSVC_NAMES ${PROJECT_SOURCE_DIR}/client/ftclient_msvc.def)
set(FTCLIENT_MSVC_LIBRARY ${PROJECT_BINARY_DIR}/ftclient.lib)
add_custom_command(OUTPUT ${FTCLIENT_MSVC_LIBRARY}
  COMMAND ${FTCLIENT_DLLTOOL} -m i386 -d ${FTCLIENT_MSVC_NAMES} -l ${FTCLIENT_MSVC_LIBRARY}
  DEPENDS ${FTCLIENT_MSVC_NAMES}
  VERBATIM)
add_custom_target(ftclient_msvc_library ALL DEPENDS ${FTCLIENT_MSVC_LIBRARY})
