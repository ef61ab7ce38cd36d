# CLI11, the command-line parser of the tools. It is headers only, so the host's serve the target
# of a cross build too: through a directory that holds nothing else of the host.
find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp NO_CMAKE_FIND_ROOT_PATH)
mark_as_advanced(CLI11_INCLUDE_DIR)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(CLI11 REQUIRED_VARS CLI11_INCLUDE_DIR)

if(CLI11_FOUND AND NOT TARGET CLI11::CLI11)
  set(include_dir ${CLI11_INCLUDE_DIR})
  if(CMAKE_CROSSCOMPILING)
    set(include_dir ${CMAKE_BINARY_DIR}/host_include)
    file(MAKE_DIRECTORY ${include_dir})
    file(CREATE_LINK ${CLI11_INCLUDE_DIR}/CLI ${include_dir}/CLI SYMBOLIC)
  endif()
  add_library(CLI11::CLI11 INTERFACE IMPORTED)
  set_target_properties(CLI11::CLI11 PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${include_dir})
endif()
