# find_host_headers(PACKAGE HEADER TARGET): what the find modules of libraries of headers only have
# in common. The host's headers serve the target of a cross build too: through a directory that
# holds nothing else of the host.
include(FindPackageHandleStandardArgs)
macro(find_host_headers package header target)
  find_path(${package}_INCLUDE_DIR ${header} NO_CMAKE_FIND_ROOT_PATH)
  mark_as_advanced(${package}_INCLUDE_DIR)
  find_package_handle_standard_args(${package} REQUIRED_VARS ${package}_INCLUDE_DIR)
  if(${package}_FOUND AND NOT TARGET ${target})
    set(include_dir ${${package}_INCLUDE_DIR})
    if(CMAKE_CROSSCOMPILING)
      set(include_dir ${CMAKE_BINARY_DIR}/host_include)
      file(MAKE_DIRECTORY ${include_dir})
      cmake_path(SET header_path ${header})
      cmake_path(GET header_path PARENT_PATH header_dir)
      file(CREATE_LINK ${${package}_INCLUDE_DIR}/${header_dir} ${include_dir}/${header_dir}
        SYMBOLIC)
    endif()
    add_library(${target} INTERFACE IMPORTED)
    set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${include_dir})
  endif()
endmacro()
