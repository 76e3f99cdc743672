# This finds Asio without Boost, which is headers only.
if(NOT TARGET asio::asio)
  if(CMAKE_CROSSCOMPILING)
    include(KorvelHostHeaders)
    korvel_host_headers(asio::asio PROBE asio.hpp ENTRIES asio.hpp asio)
  else()
    find_path(ASIO_INCLUDE_DIR asio.hpp)
    if(ASIO_INCLUDE_DIR)
      add_library(asio::asio INTERFACE IMPORTED GLOBAL)
      target_include_directories(asio::asio INTERFACE ${ASIO_INCLUDE_DIR})
    endif()
  endif()
endif()
if(TARGET asio::asio)
  # Else Asio's own allocation depends on the headers that come before it in a source, and one source
  # would free what another allocated in another way.
  set_target_properties(asio::asio PROPERTIES
    INTERFACE_COMPILE_DEFINITIONS ASIO_DISABLE_STD_ALIGNED_ALLOC)
  set(asio_TARGET asio::asio)
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(asio REQUIRED_VARS asio_TARGET)
