#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace virtualmac {

/// Adds `explain LINE` to the program: from a line of the helper's log to its meaning and remedy.
void addExplain(CLI::App& program, std::function<int()>& chosen);

}  // namespace virtualmac
