# This finds cpp-httplib. Debian builds it as a library; its header must then be read with the
# switches that the library was built with, as its structures depend on them. Elsewhere it is headers
# only. A cross build has Debian's header without a library, so sources with it are compiled, but no
# program with it can be linked.
if(NOT TARGET httplib::httplib)
  if(CMAKE_CROSSCOMPILING)
    include(KorvelHostHeaders)
    korvel_host_headers(httplib::httplib PROBE httplib.h ENTRIES httplib.h)
  else()
    find_path(HTTPLIB_INCLUDE_DIR httplib.h)
    find_library(HTTPLIB_LIBRARY cpp-httplib)
    if(HTTPLIB_INCLUDE_DIR)
      add_library(httplib::httplib INTERFACE IMPORTED GLOBAL)
      target_include_directories(httplib::httplib INTERFACE ${HTTPLIB_INCLUDE_DIR})
    endif()
    if(HTTPLIB_INCLUDE_DIR AND HTTPLIB_LIBRARY)
      target_link_libraries(httplib::httplib INTERFACE ${HTTPLIB_LIBRARY})
      target_compile_definitions(httplib::httplib INTERFACE CPPHTTPLIB_OPENSSL_SUPPORT
        CPPHTTPLIB_ZLIB_SUPPORT CPPHTTPLIB_BROTLI_SUPPORT)
    endif()
  endif()
endif()
if(TARGET httplib::httplib)
  set(httplib_TARGET httplib::httplib)
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(httplib REQUIRED_VARS httplib_TARGET)
