#pragma once

#include <functional>
#include <vector>

namespace CLI {
class App;
}

namespace virtualmac {

/// Parses, and runs what the command's callback put into `chosen`. Returns an exit code: help is 0,
/// a wrong command line 2, with the nearest command for a word that is none.
int runCommandLine(CLI::App& program, const std::vector<const char*>& optionsWithValue, int argc,
                   char** argv, const std::function<int()>& chosen);

}  // namespace virtualmac
