# ftclient_warnings: what our own targets, and only they, are compiled with.
add_library(ftclient_warnings INTERFACE)
target_compile_options(ftclient_warnings INTERFACE -Wall -Wextra -Wconversion -Wshadow)
if(FTCLIENT_WERROR)
  target_compile_options(ftclient_warnings INTERFACE -Werror)
endif()

if(FTCLIENT_THREAD_SAFETY)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "FTCLIENT_THREAD_SAFETY needs clang, not ${CMAKE_CXX_COMPILER_ID}.")
  endif()
  target_compile_options(ftclient_warnings INTERFACE -Wthread-safety)
endif()

if(FTCLIENT_SANITIZE)
  add_compile_options(-fsanitize=${FTCLIENT_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${FTCLIENT_SANITIZE})
endif()
