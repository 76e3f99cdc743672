# RapidCheck for a cross build: its headers only. What needs it is compiled and not linked.
include(KorvelHostHeaders)
if(NOT TARGET rapidcheck)
  korvel_host_headers(rapidcheck PROBE rapidcheck.h ENTRIES rapidcheck.h rapidcheck)
  # Its headers use what this C++ library marks as old from C++23 on.
  if(TARGET rapidcheck)
    target_compile_definitions(rapidcheck INTERFACE _LIBCPP_DISABLE_DEPRECATION_WARNINGS)
  endif()
endif()
if(TARGET rapidcheck)
  set(rapidcheck_TARGET rapidcheck)
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(rapidcheck REQUIRED_VARS rapidcheck_TARGET)
