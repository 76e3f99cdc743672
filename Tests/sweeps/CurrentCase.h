#pragma once

#include <string_view>

namespace sweeps {

/// Names the case that is being run, for as long as it lives: if the program aborts meanwhile (a
/// trap of the product), the name is the last thing on standard error.
class CurrentCase {
 public:
  explicit CurrentCase(std::string_view description);
  ~CurrentCase();
  CurrentCase(const CurrentCase&) = delete;
  CurrentCase& operator=(const CurrentCase&) = delete;
};

}  // namespace sweeps
