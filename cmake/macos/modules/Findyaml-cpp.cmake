# yaml-cpp for a cross build: its headers only. What needs it is compiled and put into libraries; no
# program can be linked with it.
include(KorvelHostHeaders)
if(NOT TARGET yaml-cpp)
  korvel_host_headers(yaml-cpp PROBE yaml-cpp/yaml.h ENTRIES yaml-cpp)
endif()
if(TARGET yaml-cpp)
  set(yaml-cpp_TARGET yaml-cpp)
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(yaml-cpp REQUIRED_VARS yaml-cpp_TARGET)
