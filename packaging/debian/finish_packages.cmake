# Run by cpack. The maintainer scripts that it writes call ldconfig, and the trigger does that. Its
# packages of debug information lack the link to the documents of what they belong to, and their lists
# of check sums name files where they were packed.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(tree ${package}.tree)
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
  if(package MATCHES "/([^/]*)-dbgsym_[^/]*$")
    file(MAKE_DIRECTORY ${tree}/usr/share/doc)
    file(CREATE_LINK ${CMAKE_MATCH_1} ${tree}/usr/share/doc/${CMAKE_MATCH_1}-dbgsym SYMBOLIC)
    file(READ ${tree}/DEBIAN/md5sums sums)
    string(REGEX REPLACE " /[^\n]*-dbgsym/usr/" " usr/" sums "${sums}")
    file(WRITE ${tree}/DEBIAN/md5sums "${sums}")
    file(READ ${tree}/DEBIAN/control control)
    string(REPLACE "Package-Type: ddeb\n" "" control "${control}")
    file(WRITE ${tree}/DEBIAN/control "${control}")
  endif()
  execute_process(COMMAND dpkg-deb --root-owner-group --build ${tree} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${tree})
endforeach()
