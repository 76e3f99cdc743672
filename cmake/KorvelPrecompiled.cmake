# Most of a build's time goes into the same headers and templates, which nearly every source has.
# With this switch the headers are read once for each of four kinds of targets, and a target's sources
# are compiled a few at a time. The headers are the libraries'; only tests get some of this tree,
# because no compiler warns of a header that was read so. Builds without the switch show that every
# source includes what it uses.
option(KORVEL_PRECOMPILED "Read the same headers once for many sources, and compile several at once"
  OFF)
# Twice as many would save little more, and a person who changes one source waits for all of them.
set(KORVEL_SOURCES_AT_ONCE 6)
set(KORVEL_APART "" CACHE STRING "Rooms whose sources are compiled one by one nevertheless")

set(KORVEL_STANDARD_HEADERS
  <algorithm> <array> <chrono> <cstdint> <expected> <filesystem> <functional> <map> <memory>
  <optional> <set> <span> <string> <string_view> <utility> <variant> <vector>)
# Sweeps and swarms play years in these rooms, so a little optimisation costs less than it saves.
set(KORVEL_PLAYED_ROOMS KorvelHelper VirtualMac/InProcess VirtualMac/Machine VirtualMac/Schedule
  Tests/model)
set(KORVEL_PLAYED_OPTIONS -O1)
set(KORVEL_MACHINE_HEADERS <asio/io_context.hpp> <asio/local/stream_protocol.hpp>
  <asio/post.hpp> <asio/steady_timer.hpp> <fmt/format.h> <nlohmann/json.hpp>)
set(KORVEL_PROGRAM_HEADERS <CLI/CLI.hpp> ${KORVEL_MACHINE_HEADERS})
set(KORVEL_TEST_HEADERS <gmock/gmock.h> <gtest/gtest.h> <future> <nlohmann/json.hpp>
  ${CMAKE_SOURCE_DIR}/KorvelHelper/Platform/Platform.h
  ${CMAKE_SOURCE_DIR}/VirtualMac/InProcess/Invariants.h
  ${CMAKE_SOURCE_DIR}/VirtualMac/InProcess/World.h
  ${CMAKE_SOURCE_DIR}/VirtualMac/Machine/Machine.h)

# korvel_precompile(KIND LIBRARIES HEADER...): the headers of one kind, for targets that link it.
function(korvel_precompile kind libraries)
  set(source ${CMAKE_BINARY_DIR}/headers/${kind}.cpp)
  file(GENERATE OUTPUT ${source} CONTENT "")
  add_library(headers_${kind} OBJECT ${source})
  target_link_libraries(headers_${kind} PRIVATE korvel_flags ${libraries})
  target_precompile_headers(headers_${kind} PRIVATE ${KORVEL_STANDARD_HEADERS} ${ARGN})
  if(kind STREQUAL "played")
    target_compile_options(headers_${kind} PRIVATE ${KORVEL_PLAYED_OPTIONS})
  endif()
  # A time in the file would make the compiler's cache miss.
  target_compile_options(headers_${kind} PRIVATE -Xclang -fno-pch-timestamp)
endfunction()

# korvel_reuse_headers(DIRECTORY): gives every target there and below the headers of its kind, and
# makes it compile several sources at once.
function(korvel_reuse_headers directory)
  get_property(below DIRECTORY ${directory} PROPERTY SUBDIRECTORIES)
  foreach(each ${below})
    korvel_reuse_headers(${each})
  endforeach()
  file(RELATIVE_PATH room ${CMAKE_SOURCE_DIR} ${directory})
  get_property(targets DIRECTORY ${directory} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target ${targets})
    get_target_property(type ${target} TYPE)
    get_target_property(libraries ${target} LINK_LIBRARIES)
    if(NOT type MATCHES "^(STATIC|OBJECT)_LIBRARY$|^EXECUTABLE$" OR target MATCHES "^headers_")
      continue()
    endif()
    set(kind machine)
    if("GTest::gtest" IN_LIST libraries)
      set(kind tests)
    elseif(room IN_LIST KORVEL_PLAYED_ROOMS)
      set(kind played)
      target_compile_options(${target} PRIVATE ${KORVEL_PLAYED_OPTIONS})
    elseif(room STREQUAL "VirtualMac/Tools")
      set(kind programs)
    endif()
    target_precompile_headers(${target} REUSE_FROM headers_${kind})
    if(NOT room IN_LIST KORVEL_APART)
      set_target_properties(${target} PROPERTIES
        UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${KORVEL_SOURCES_AT_ONCE})
    endif()
  endforeach()
endfunction()

# korvel_precompile_headers(): for all targets that are known so far.
function(korvel_precompile_headers)
  # A source's own names lie in sight of the next, which may use them for something else.
  target_compile_options(korvel_flags INTERFACE -Wno-shadow)
  find_package(asio REQUIRED)
  find_package(CLI11 REQUIRED)
  find_package(fmt REQUIRED)
  find_package(nlohmann_json 3.11 REQUIRED)
  find_package(GTest REQUIRED)
  korvel_precompile(played nlohmann_json::nlohmann_json <nlohmann/json.hpp>)
  korvel_precompile(machine "asio::asio;fmt::fmt;nlohmann_json::nlohmann_json"
    ${KORVEL_MACHINE_HEADERS})
  korvel_precompile(programs "asio::asio;CLI11::CLI11;fmt::fmt;nlohmann_json::nlohmann_json"
    ${KORVEL_PROGRAM_HEADERS})
  korvel_precompile(tests
    "GTest::gtest;GTest::gmock;nlohmann_json::nlohmann_json;korvel_core;vmac_inprocess"
    ${KORVEL_TEST_HEADERS})
  korvel_reuse_headers(${CMAKE_SOURCE_DIR})
endfunction()
