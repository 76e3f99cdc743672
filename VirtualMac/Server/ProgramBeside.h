#pragma once

#include <string>

namespace virtualmac {

/// The path of another program of this build: they are built beside each other.
std::string programBeside(const char* name);

}  // namespace virtualmac
