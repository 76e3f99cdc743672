#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace swarm {

/// What one run of the swarm may do, all of it drawn from the seed: every run has some kinds of
/// faults and deeds and lacks others, so that none hides behind another.
struct SwarmPlan {
  std::uint64_t seed = 0;
  std::string profile;
  std::uint64_t steps = 0;
  bool restartAfterCrash = false;
  std::vector<std::string> machineFaults;  ///< Lines that the machine's catalogue of faults takes.
  std::vector<std::string> callFaults;     ///< Platform calls that may fail now and then, by id.
  std::vector<std::string> deeds;          ///< Names of what people, programs and hardware do.

  [[nodiscard]] bool has(std::string_view deed) const;
  /// Some fault whose line begins so, or a failing call of that name.
  [[nodiscard]] bool hasFault(std::string_view beginning) const;
  /// One line: the seed and everything that follows from it.
  [[nodiscard]] std::string text() const;
};

SwarmPlan planFor(std::uint64_t seed);

}  // namespace swarm
