# Here are the project's switches, and one interface target with the flags of every target.
option(KORVEL_VIRTUAL_MAC "Build the virtual Mac and its tools" ON)
option(KORVEL_TESTS "Build the tests" ON)
option(KORVEL_BENCHMARKS "Build the benchmarks" OFF)
option(KORVEL_FUZZ "Build the fuzzer, which needs clang and KORVEL_SANITIZE with fuzzer-no-link" OFF)
option(KORVEL_COVERAGE "Count what tests execute, which needs clang" OFF)
option(KORVEL_TIN_MAC "Build the rooms that run the Mac's own program on Linux, and nothing else" OFF)
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
if(KORVEL_COVERAGE)
  target_compile_options(korvel_flags INTERFACE
    -fprofile-instr-generate -fcoverage-mapping -fcoverage-mcdc)
  target_link_options(korvel_flags INTERFACE -fprofile-instr-generate)
endif()
find_package(Threads REQUIRED)

# A toolchain names the programs that it cannot link; their sources are still compiled. The list is
# written to a file so that the toolchain's script can print it.
if(KORVEL_COMPILED_ONLY)
  list(JOIN KORVEL_COMPILED_ONLY "\n" programs)
  file(WRITE ${CMAKE_BINARY_DIR}/compiled-only.txt "${programs}\n")
endif()
# korvel_add_program(NAME sources...) adds a program, or only its objects.
function(korvel_add_program name)
  if(name IN_LIST KORVEL_COMPILED_ONLY)
    add_library(${name} OBJECT ${ARGN})
  else()
    add_executable(${name} ${ARGN})
  endif()
endfunction()
