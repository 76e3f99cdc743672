# This writes the source that has the commit of a tree, and leaves one that says the same alone.
# usage: cmake -D GIT=PROGRAM -D TREE=FOLDER -D SOURCE=FILE -P commit.cmake

# git(RESULT WORD...): the output, empty if the command fails.
function(git result)
  set(${result} "" PARENT_SCOPE)
  if(NOT GIT)
    return()
  endif()
  execute_process(COMMAND ${GIT} --no-optional-locks -C ${TREE} ${ARGN}
    RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(status EQUAL 0)
    set(${result} "${output}" PARENT_SCOPE)
  endif()
endfunction()

set(commit "unknown")
git(top rev-parse --show-toplevel)
# A tree without a repository may lie in somebody else's.
if(top STREQUAL TREE)
  git(head rev-parse --short=12 HEAD)
  if(head)
    set(commit "${head}")
    git(changes status --porcelain --untracked-files=no)
    if(changes)
      string(APPEND commit "-dirty")
    endif()
  endif()
endif()
file(CONFIGURE OUTPUT ${SOURCE} CONTENT [[#include "VirtualMac/Tools/Version.h"

namespace virtualmac {

const char* const builtCommit = "@commit@";

}  // namespace virtualmac
]] @ONLY)
