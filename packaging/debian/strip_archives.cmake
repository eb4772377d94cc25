# Run by cpack. What it strips itself goes into packages of debug information; it leaves archives alone.
file(GLOB_RECURSE archives ${CPACK_TEMPORARY_DIRECTORY}/*.a)
foreach(archive IN LISTS archives)
  execute_process(COMMAND objcopy --strip-debug ${archive} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
