# Makes a cross build's bytes depend on the sources and the tools alone: every path of the building
# machine that would get into an object file or a debug map is given a neutral name. docs/macos.md
# says how two builds are compared and how a debugger is told where the sources are.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-resource-dir
  OUTPUT_VARIABLE compiler_headers OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)

# The compiler uses the last name that fits. The build's directory lies in the tree mostly, and its
# name must be the same where it does not.
add_compile_options(
  "-ffile-prefix-map=${compiler_headers}=/compiler"
  "-ffile-prefix-map=${CMAKE_OSX_SYSROOT}=/sdk"
  "-ffile-prefix-map=${CMAKE_SOURCE_DIR}=/korvel"
  "-ffile-prefix-map=${CMAKE_BINARY_DIR}=/korvel/build/macos-cross")

# The debug map names the object files relative to the build's directory; dsymutil finds them there.
# A path may hold a comma, which parts the words of the shorter form.
add_link_options("SHELL:-Xlinker -oso_prefix -Xlinker \"${CMAKE_BINARY_DIR}/\"" LINKER:-reproducible)
