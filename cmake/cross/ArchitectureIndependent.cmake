# link_host_headers(NAME): makes /usr/include/NAME, headers that are the same for every processor, visible to the cross
# compiler, alone: the rest of /usr/include is this machine's. Sets host_headers to the folder to include from.
function(link_host_headers name)
  set(folder ${PROJECT_BINARY_DIR}/host-include)
  if(NOT IS_DIRECTORY ${folder}/${name} AND IS_DIRECTORY /usr/include/${name})
    file(MAKE_DIRECTORY ${folder})
    file(CREATE_LINK /usr/include/${name} ${folder}/${name} SYMBOLIC)
  endif()
  set(host_headers ${folder} PARENT_SCOPE)
endfunction()

# header_package(NAME FOLDER TARGET PROBE): what Find<NAME>.cmake does for a library that is headers only.
macro(header_package name folder target probe)
  link_host_headers(${folder})
  find_path(${name}_INCLUDE_DIR ${probe} PATHS ${host_headers} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  mark_as_advanced(${name}_INCLUDE_DIR)
  include(FindPackageHandleStandardArgs)
  find_package_handle_standard_args(${name} REQUIRED_VARS ${name}_INCLUDE_DIR)
  if(${name}_FOUND AND NOT TARGET ${target})
    add_library(${target} INTERFACE IMPORTED)
    set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${${name}_INCLUDE_DIR})
  endif()
endmacro()
