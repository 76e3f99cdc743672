#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Tests/model/Recorder.h"
#include "Tests/model/reference/Script.h"

namespace model {

/// One thing that happens, and the time that passes after it.
struct Deed {
  std::string
      name;  ///< Of the player's table, or "fault": then `fault` is a line of the catalogue.
  std::int64_t value = 0;
  std::string fault = {};
  double seconds = 0;
};

struct Story {
  std::uint64_t seed = 0;
  std::string profile = "newer-keys";
  double percent = 80;
  bool onDemand = false;  ///< launchd starts the helper when a client comes.
  bool anyOrder = false;  ///< The seed chooses which thread goes on.
  std::vector<Deed> deeds;

  [[nodiscard]] std::string text() const;
};

Story storyFor(std::uint64_t seed);

/// A record as the helper would not write it: in another layout, and with members that are missing,
/// wrong, unknown or given twice. It can be read all the same, or not.
std::string foreignRecord(std::uint64_t seed);

/// Everything that one playing gave.
struct Played {
  Trace trace = {};
  std::uint64_t order = 0;
  std::int64_t at = 0;
  /// The outcome that each client heard, by the place of its message.
  std::map<std::uint64_t, std::string> outcomes = {};
};
Played played(const Story& story);

/// Everything that some runs came by: "log CATEGORY LEVEL TEXT", and "state TOPIC BEFORE AFTER".
struct Reach {
  std::set<std::string> lines = {};
  void add(const Played& run);
};

/// Returns the first difference between the program and the model; none: they agree.
std::optional<Difference> compared(const Played& run, int mistake = 0, Reach* reach = nullptr);

/// Drops deeds as long as a difference is left.
Story shortest(Story story, int mistake = 0);

}  // namespace model
