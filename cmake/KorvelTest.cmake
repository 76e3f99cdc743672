# korvel_add_test(NAME sources... [LIBRARIES targets...] [LABELS labels...] [WAITS]) adds one
# GoogleTest program and registers each of its tests with CTest by name.
include(GoogleTest)
find_package(GTest REQUIRED)

# Tests that only compute give way to those that wait for real time (WAITS), so that both kinds can
# run side by side. CMake begins a test's command with the words of CROSSCOMPILING_EMULATOR, which is
# how they get there.
find_program(KORVEL_NICE nice REQUIRED)
set(KORVEL_GIVES_WAY ${KORVEL_NICE} -n 10)

function(korvel_add_test name)
  cmake_parse_arguments(ARG "WAITS" "TIMEOUT" "LIBRARIES;LABELS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  korvel_add_program(${name} ${ARG_UNPARSED_ARGUMENTS})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE korvel_flags ${ARG_LIBRARIES} GTest::gtest GTest::gmock
    GTest::gtest_main Threads::Threads)
  if(KORVEL_COVERAGE)
    target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/Tests/CountsAtAbort.cpp)
  endif()
  if(NOT ARG_WAITS AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
    target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/Tests/OneCore.cpp)
  endif()
  if(name IN_LIST KORVEL_COMPILED_ONLY)
    return()
  endif()
  if(NOT ARG_WAITS AND NOT CMAKE_CROSSCOMPILING)
    set_target_properties(${name} PROPERTIES CROSSCOMPILING_EMULATOR "${KORVEL_GIVES_WAY}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 TEST_LIST ${name}_tests
    PROPERTIES TIMEOUT ${ARG_TIMEOUT})
  if(ARG_LABELS)
    korvel_label_tests(${name}_tests "${ARG_LABELS}")
  endif()
endfunction()

# korvel_label_tests(list labels) labels the tests of a discovery's TEST_LIST. Several labels form a
# list, which the discovery's own properties would break up.
function(korvel_label_tests list labels)
  set(file ${CMAKE_CURRENT_BINARY_DIR}/${list}_labels.cmake)
  file(WRITE ${file} "if(${list})\n  set_tests_properties(\${${list}} PROPERTIES \
LABELS \"${labels}\")\nendif()\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${file})
endfunction()
