#pragma once

#include <string_view>

namespace sweeps {

/// Names the running case while the object lives: if the program aborts (a trap of the product),
/// the name is the last output on standard error.
class CurrentCase {
 public:
  explicit CurrentCase(std::string_view description);
  ~CurrentCase();
  CurrentCase(const CurrentCase&) = delete;
  CurrentCase& operator=(const CurrentCase&) = delete;
};

}  // namespace sweeps
