#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Tests/fuzz/Target.h"

namespace korvel::fuzz {

struct Replayed {
  std::size_t inputs = 0;
  std::vector<std::string> misbehaved;  ///< A line each: the file and what was wrong.
};

/// Gives a target every file of a folder, in the order of their names. Each is named on the
/// standard output before it is run, so that the last line names one that ends the program.
Replayed replay(const Target& target, const std::filesystem::path& folder);

}  // namespace korvel::fuzz
