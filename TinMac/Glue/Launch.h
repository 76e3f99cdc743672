#pragma once

#include <string>
#include <vector>

#include "VirtualMac/Remote/RemotePlatform.h"

namespace tinmac {

/// The words on the command line.
struct Launch {
  std::string frameworks;  ///< The library that stands in for Apple's frameworks.
  std::string program;     ///< The Mac's own program.
  virtualmac::LaunchOptions options;
  std::vector<std::string> words;  ///< The program's arguments, without its own name.
};

/// Loads the frameworks and the program, runs the program's main() and ends the process with its
/// status. Returns only when that cannot begin: then a text is on standard error.
int run(const Launch& launch);

}  // namespace tinmac
