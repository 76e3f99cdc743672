#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace virtualmac {

/// Adds `record [FILE.yaml]` to the program: makes a scenario from a journal.
void addRecord(CLI::App& program, std::function<int()>& chosen);

}  // namespace virtualmac
