#pragma once

#include <string>

#include "VirtualMac/Remote/RemotePlatform.h"

namespace tinmac {

/// The words on the command line.
struct Launch {
  std::string frameworks;  ///< The library that stands in for Apple's frameworks.
  std::string program;     ///< The Mac's own program.
  virtualmac::LaunchOptions options;
};

/// Loads the frameworks and the program and runs the program's main(). Returns its status.
/// Failure: a text on standard error and status 1.
int run(const Launch& launch);

}  // namespace tinmac
