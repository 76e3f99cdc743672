#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace virtualmac {

/// Adds `timeline FILE` to the program: draws what a machine's journal tells.
void addTimeline(CLI::App& program, std::function<int()>& chosen);

}  // namespace virtualmac
