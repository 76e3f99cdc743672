#include "Tests/fuzz/Replay.h"

#include <algorithm>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>

namespace korvel::fuzz {

Replayed replay(const Target& target, const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) files.push_back(entry);
  std::ranges::sort(files);
  Replayed result;
  for (const std::filesystem::path& file : files) {
    // The last name before a crash tells whose it was.
    std::cout << target.name << ": " << file.filename().string() << '\n' << std::flush;
    std::ifstream stream(file, std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(stream), {}};
    ++result.inputs;
    try {
      if (!stream.is_open()) throw Misbehaviour("it cannot be read");
      target.run(input);
    } catch (const std::exception& error) {
      result.misbehaved.push_back(file.string() + ": " + error.what());
    }
  }
  return result;
}

}  // namespace korvel::fuzz
