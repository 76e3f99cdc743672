# A cross build has RapidCheck's headers only, so programs with it are compiled but not linked.
include(KorvelHostHeaders)
if(NOT TARGET rapidcheck)
  korvel_host_headers(rapidcheck PROBE rapidcheck.h ENTRIES rapidcheck.h rapidcheck)
  # The headers use features that this C++ library deprecates since C++23.
  if(TARGET rapidcheck)
    target_compile_definitions(rapidcheck INTERFACE _LIBCPP_DISABLE_DEPRECATION_WARNINGS)
  endif()
endif()
if(TARGET rapidcheck)
  set(rapidcheck_TARGET rapidcheck)
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(rapidcheck REQUIRED_VARS rapidcheck_TARGET)
