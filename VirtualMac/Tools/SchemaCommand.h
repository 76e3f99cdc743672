#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace virtualmac {

/// Adds `schema scenario|profile` to the program: prints the JSON schema with which editors
/// complete and check such files.
void addSchema(CLI::App& program, std::function<int()>& chosen);

}  // namespace virtualmac
