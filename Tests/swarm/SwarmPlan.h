#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace swarm {

/// The plan of one run, drawn from the seed. Every run has some kinds of faults and deeds and lacks
/// others, so that none hides another.
struct SwarmPlan {
  std::uint64_t seed = 0;
  std::string profile;
  std::uint64_t steps = 0;
  bool restartAfterCrash = false;
  std::vector<std::string> machineFaults;  ///< Lines for the machine's catalogue of faults.
  std::vector<std::string> callFaults;     ///< Platform calls that may fail now and then, by id.
  std::vector<std::string> deeds;          ///< Names of acts of people, programs and hardware.

  [[nodiscard]] bool has(std::string_view deed) const;
  /// Returns whether a fault's line or a failing call's name begins so.
  [[nodiscard]] bool hasFault(std::string_view beginning) const;
  /// Returns the seed and everything drawn from it, in one line.
  [[nodiscard]] std::string text() const;
};

SwarmPlan planFor(std::uint64_t seed);

}  // namespace swarm
