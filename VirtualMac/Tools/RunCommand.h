#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace virtualmac {

/// Adds `run FILE|DIRECTORY...` to the program: plays scenarios and says how they went.
void addRun(CLI::App& program, std::function<int()>& chosen);

}  // namespace virtualmac
