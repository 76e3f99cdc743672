#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace virtualmac {

/// Adds `trace FILE` to the program: writes what a journal tells as a page for a browser.
void addTrace(CLI::App& program, std::function<int()>& chosen);

}  // namespace virtualmac
