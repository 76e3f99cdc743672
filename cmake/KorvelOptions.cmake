# The project's switches, and one interface target that carries the flags of every target.
option(KORVEL_VIRTUAL_MAC "Build the virtual Mac and its tools" ON)
option(KORVEL_TESTS "Build the tests" ON)
option(KORVEL_BENCHMARKS "Build the benchmarks" OFF)
set(KORVEL_SANITIZE "" CACHE STRING "Sanitizers for every target: address,undefined or thread")

add_library(korvel_flags INTERFACE)
target_compile_options(korvel_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
  $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wthread-safety -Werror=thread-safety>
  # g++ 12 sees uninitialised reads in std::variant and std::function moves that are not there.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
if(KORVEL_SANITIZE)
  target_compile_options(korvel_flags INTERFACE
    -fsanitize=${KORVEL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(korvel_flags INTERFACE -fsanitize=${KORVEL_SANITIZE})
endif()
find_package(Threads REQUIRED)

# Rooms that a toolchain cannot build are named by it, and written down for its script to tell.
if(KORVEL_LEFT_OUT)
  list(JOIN KORVEL_LEFT_OUT "\n" rooms)
  file(WRITE ${CMAKE_BINARY_DIR}/left-out.txt "${rooms}\n")
endif()
