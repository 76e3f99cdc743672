#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace virtualmac {

/// Adds a command, whose callback puts the work to do into the second argument.
using AddCommand = std::function<void(CLI::App&, std::function<int()>&)>;

/// The program `virtual-mac`, with commands of its own and `more`; built from `commit`.
int runVirtualMac(int argc, char** argv, const std::string& commit,
                  const std::vector<AddCommand>& more);

}  // namespace virtualmac
