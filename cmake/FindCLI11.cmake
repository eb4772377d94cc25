# CLI11 when cross-compiling: it consists of headers alone, so those of the building system serve.
# A link shows the compiler these and no other headers of that system.
find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(CLI11 REQUIRED_VARS CLI11_INCLUDE_DIR)

if(CLI11_FOUND AND NOT TARGET CLI11::CLI11)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/cli11)
  file(CREATE_LINK ${CLI11_INCLUDE_DIR}/CLI ${PROJECT_BINARY_DIR}/cli11/CLI SYMBOLIC)
  add_library(CLI11::CLI11 INTERFACE IMPORTED)
  target_include_directories(CLI11::CLI11 INTERFACE ${PROJECT_BINARY_DIR}/cli11)
endif()
