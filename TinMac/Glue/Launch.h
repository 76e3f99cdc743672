#pragma once

#include <string>
#include <vector>

#include "VirtualMac/Remote/RemotePlatform.h"

namespace CLI {
class App;
}

namespace tinmac {

/// The words on the command line.
struct Launch {
  std::string frameworks;  ///< The library that stands in for Apple's frameworks.
  std::string program;     ///< The Mac's own program.
  virtualmac::LaunchOptions options;
  std::string servicePath;         ///< Of a client: the socket of the service; else empty.
  std::vector<std::string> words;  ///< The program's arguments, without its own name.
};

/// Adds the words that name the two images.
void addImages(CLI::App& arguments, Launch& launch);

/// Loads the frameworks and the program, runs the program's main() and ends the process with its
/// status. Returns only when that cannot begin: then a text is on standard error.
int run(const Launch& launch);

}  // namespace tinmac
