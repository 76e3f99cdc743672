# korvel_host_headers(target PROBE header ENTRIES names...) adds an interface library over
# header-only libraries of the building system. /usr/include holds another system's C library and
# must stay off the path, so the named entries are linked into a directory of their own.
function(korvel_host_headers target)
  cmake_parse_arguments(ARG "" "PROBE" "ENTRIES" ${ARGN})
  string(MAKE_C_IDENTIFIER "KORVEL_HOST_${ARG_PROBE}" found)
  find_path(${found} ${ARG_PROBE} PATHS /usr/include /usr/local/include
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT ${found})
    return()
  endif()
  set(directory ${CMAKE_BINARY_DIR}/host-headers/${ARG_PROBE})
  file(MAKE_DIRECTORY ${directory})
  foreach(entry ${ARG_ENTRIES})
    file(CREATE_LINK ${${found}}/${entry} ${directory}/${entry} SYMBOLIC)
  endforeach()
  add_library(${target} INTERFACE IMPORTED GLOBAL)
  target_include_directories(${target} SYSTEM INTERFACE ${directory})
endfunction()
