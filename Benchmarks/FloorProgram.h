#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace benchmarks {

/// Starts one of the floors' programs and waits for its word; ends it with the object. Its calls
/// over descriptor 3 are answered meanwhile, as a machine that does nothing would.
class FloorProgram {
 public:
  explicit FloorProgram(std::vector<std::string> words);
  ~FloorProgram();
  FloorProgram(const FloorProgram&) = delete;
  FloorProgram& operator=(const FloorProgram&) = delete;

  pid_t pid = 0;
  bool spoke = false;
};

}  // namespace benchmarks
