# A cross build uses nlohmann/json's headers only.
include(KorvelHostHeaders)
if(NOT TARGET nlohmann_json::nlohmann_json)
  korvel_host_headers(nlohmann_json::nlohmann_json PROBE nlohmann/json.hpp ENTRIES nlohmann)
endif()
include(FindPackageHandleStandardArgs)
if(TARGET nlohmann_json::nlohmann_json)
  set(nlohmann_json_TARGET nlohmann_json::nlohmann_json)
  file(STRINGS ${CMAKE_BINARY_DIR}/host-headers/nlohmann/json.hpp/nlohmann/detail/abi_macros.hpp
    versions REGEX "define NLOHMANN_JSON_VERSION_(MAJOR|MINOR|PATCH) ")
  if(NOT versions)
    file(STRINGS ${CMAKE_BINARY_DIR}/host-headers/nlohmann/json.hpp/nlohmann/json.hpp versions
      REGEX "define NLOHMANN_JSON_VERSION_(MAJOR|MINOR|PATCH) ")
  endif()
  string(REGEX MATCHALL "VERSION_[A-Z]+ ([0-9]+)" versions "${versions}")
  string(REGEX REPLACE "VERSION_[A-Z]+ " "" versions "${versions}")
  list(JOIN versions "." nlohmann_json_VERSION)
endif()
find_package_handle_standard_args(nlohmann_json
  REQUIRED_VARS nlohmann_json_TARGET VERSION_VAR nlohmann_json_VERSION)
