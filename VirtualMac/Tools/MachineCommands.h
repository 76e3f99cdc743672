#pragma once

#include <functional>
#include <vector>

namespace CLI {
class App;
}

namespace virtualmac {

/// Exit codes of the programs.
inline constexpr int exitDone = 0;
inline constexpr int exitFailed = 1;
inline constexpr int exitUsage = 2;

/// Adds a command; its callback puts what is to be done into the second argument.
using AddCommand = std::function<void(CLI::App&, std::function<int()>&)>;

/// The program `virtual-mac`, with commands of its own and `more`.
int runVirtualMac(int argc, char** argv, const std::vector<AddCommand>& more);

}  // namespace virtualmac
