#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace virtualmac {

/// Adds `profile import FILE` to the program: a profile from a dump of a real Mac's battery.
void addProfile(CLI::App& program, std::function<int()>& chosen);

}  // namespace virtualmac
