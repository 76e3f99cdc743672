#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace virtualmac {

/// Adds `bundle [FILE]` to the program: one file for somebody who was not there.
void addBundle(CLI::App& program, std::function<int()>& chosen);

}  // namespace virtualmac
