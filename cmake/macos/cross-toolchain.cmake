# Builds for a Mac (arm64, macOS 14) from another system, with LLVM 19 and a macOS SDK.
# The SDK is named by the cache variable or the environment variable MACOSX_SDK; see docs/macos.md.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)

if(NOT MACOSX_SDK)
  set(MACOSX_SDK "$ENV{MACOSX_SDK}")
endif()
set(MACOSX_SDK "${MACOSX_SDK}" CACHE PATH "The macOS SDK to build against")
if(NOT EXISTS "${MACOSX_SDK}/usr/include" OR NOT EXISTS "${MACOSX_SDK}/System/Library/Frameworks")
  message(FATAL_ERROR "MACOSX_SDK must name a macOS SDK (usr/include and System/Library/Frameworks "
    "in it); it is '${MACOSX_SDK}'")
endif()
# Every trial compilation reads this file again, in a project of its own.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MACOSX_SDK)
# A trial that links would find whatever it asks for; see link-with-stubs.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

set(CMAKE_OSX_SYSROOT "${MACOSX_SDK}")
set(CMAKE_OSX_ARCHITECTURES arm64)
set(CMAKE_OSX_DEPLOYMENT_TARGET 14.0)

# Full paths are needed, because CMake does not search for the Objective-C compilers by name.
find_program(KORVEL_CLANG NAMES clang-19 REQUIRED)
find_program(KORVEL_CLANGXX NAMES clang++-19 REQUIRED)
foreach(language C OBJC)
  set(CMAKE_${language}_COMPILER ${KORVEL_CLANG})
  set(CMAKE_${language}_COMPILER_TARGET arm64-apple-macos14.0)
endforeach()
foreach(language CXX OBJCXX)
  set(CMAKE_${language}_COMPILER ${KORVEL_CLANGXX})
  set(CMAKE_${language}_COMPILER_TARGET arm64-apple-macos14.0)
endforeach()
find_program(CMAKE_AR NAMES llvm-ar-19 REQUIRED)
find_program(CMAKE_RANLIB NAMES llvm-ranlib-19 REQUIRED)
find_program(CMAKE_NM NAMES llvm-nm-19 REQUIRED)
find_program(CMAKE_STRIP NAMES llvm-strip-19 REQUIRED)
find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool-19 REQUIRED)
# The linker is given by kind, not by path: the compiler then takes the ld64.lld of its own release
# and passes it modern arguments.
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -fuse-ld=lld)
endforeach()

# A full SDK has the linker stubs of libSystem and libc++. For an SDK without them, each link makes
# stubs from a reviewed list of names.
if(NOT EXISTS "${MACOSX_SDK}/usr/lib/libSystem.tbd")
  find_program(KORVEL_PYTHON NAMES python3 REQUIRED)
  set(CMAKE_CXX_LINKER_LAUNCHER ${KORVEL_PYTHON} ${CMAKE_CURRENT_LIST_DIR}/link-with-stubs)
  set(CMAKE_OBJCXX_LINKER_LAUNCHER ${CMAKE_CXX_LINKER_LAUNCHER})
  set(CMAKE_OBJC_LINKER_LAUNCHER ${CMAKE_CXX_LINKER_LAUNCHER})
endif()

set(CMAKE_FIND_ROOT_PATH "${MACOSX_SDK}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The host's libraries cannot be linked, so the modules beside this file find libraries that are
# header-only or come with their source.
list(PREPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR}/modules)
# The tests run only on a Mac, so their names can be discovered only there.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
# cpp-httplib, yaml-cpp and RapidCheck are no header-only libraries, and this system has none of them
# for a Mac.
set(KORVEL_COMPILED_ONLY
  virtual_mac_run virtual-mac-page vmac_web_tests scenario_engine_tests scenario_player
  upgrade_matrix_tests korvel_property_tests korvel_fuzz_replay)
