#pragma once

#include <string>
#include <vector>

namespace virtualmac {

struct ProgramLaunch {
  std::string root;
  std::string identity;
  std::vector<std::string> words;  ///< The program's path and its arguments.
  bool asJSON = false;             ///< How a failure is told.
};

/// Makes this process a client of the machine with that signing identity, and runs the program in
/// it. The program is told its machine by words before its own:
///   --machine-descriptor N --service NAME --service-path SOCKET --disk DIRECTORY -- ARGUMENT...
/// Returns only when that fails: an exit code, after the failure was told.
int launchProgram(const ProgramLaunch& launch);

}  // namespace virtualmac
