# Installs the guides and examples, in directories as in this tree, so that links from one to another
# hold. Links to the public headers lead to where these are installed; of links to what is not
# installed their text is left.
file(GLOB FTCLIENT_GUIDES CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} README.md docs/*.md)
file(GLOB FTCLIENT_PICTURES CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} docs/*.png docs/*.svg)
set(FTCLIENT_EXAMPLES examples/host.cpp examples/epoll_loop.cpp examples/glib_window.cpp)
if(WIN32)
  set(FTCLIENT_EXAMPLES examples/win32_monitor.cpp)
endif()
set(FTCLIENT_DOCUMENTS ${FTCLIENT_GUIDES} ${FTCLIENT_PICTURES} ${FTCLIENT_EXAMPLES})

# The text of a guide in this directory as it is installed.
function(read_guide guide directory result)
  file(READ ${PROJECT_SOURCE_DIR}/${guide} text)
  string(REGEX MATCHALL "\\([A-Za-z0-9_./-]+" links "${text}") # no list bears the bracket before it
  list(REMOVE_DUPLICATES links)
  foreach(link IN LISTS links)
    string(SUBSTRING ${link} 1 -1 link)
    cmake_path(APPEND directory ${link} OUTPUT_VARIABLE target)
    cmake_path(NORMAL_PATH target)
    if(target IN_LIST FTCLIENT_PUBLIC_HEADERS)
      file(RELATIVE_PATH header ${CMAKE_INSTALL_FULL_DOCDIR}/${directory}
        ${CMAKE_INSTALL_FULL_INCLUDEDIR}/ftclient/${target})
      string(REPLACE "](${link})" "](${header})" text "${text}")
    elseif(NOT target IN_LIST FTCLIENT_DOCUMENTS)
      string(REGEX REPLACE "\\[([^]]*)\\]\\(${link}(#[^)]*)?\\)" "\\1" text "${text}")
    endif()
  endforeach()
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

foreach(guide IN LISTS FTCLIENT_GUIDES)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${guide})
  cmake_path(GET guide PARENT_PATH directory)
  read_guide(${guide} "${directory}" text)
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/guides/${guide} CONTENT "${text}" @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/guides/${guide}
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/${directory} COMPONENT development)
endforeach()
install(FILES ${FTCLIENT_PICTURES}
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT development)
install(FILES ${FTCLIENT_EXAMPLES}
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)
