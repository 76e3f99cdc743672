#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace virtualmac {

/// Adds `completion`, which prints what lets a shell complete the program's words. Each of its
/// scripts asks the program itself, so they need no change when its commands do.
void addCompletion(CLI::App& program, std::function<int()>& chosen);

}  // namespace virtualmac
