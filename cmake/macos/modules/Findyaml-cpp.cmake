# A cross build has yaml-cpp's headers only, so sources with it are compiled and put into libraries,
# but no program with it can be linked.
include(KorvelHostHeaders)
if(NOT TARGET yaml-cpp)
  korvel_host_headers(yaml-cpp PROBE yaml-cpp/yaml.h ENTRIES yaml-cpp)
endif()
if(TARGET yaml-cpp)
  set(yaml-cpp_TARGET yaml-cpp)
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(yaml-cpp REQUIRED_VARS yaml-cpp_TARGET)
