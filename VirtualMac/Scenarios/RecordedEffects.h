#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "VirtualMac/Machine/SavedJournal.h"
#include "VirtualMac/Scenarios/RecordedDeeds.h"

namespace virtualmac {

/// A condition that a story expects because a journal tells it.
struct RecordedEffect {
  double time = 0;
  std::size_t index = 0;  ///< Of the entry that tells it.
  std::string phrase;
  /// The state that it speaks of: two of one state cannot be told apart in one step. Empty: it
  /// speaks of a line, which is heard whenever it comes.
  std::string state;
  std::string line;  ///< Says the same of the journal's line; empty: it cannot.
};

/// A time in which charging was not switched.
struct SteadyTime {
  double begin = 0, end = 0;
  std::string phrase;  ///< `gate paused and inflow on`
};

struct RecordedEffects {
  std::vector<RecordedEffect> effects;  ///< In the order of time.
  std::vector<SteadyTime> steady;
};

/// The effects that a story expects: hardware keys, settings, assertions, the native limit, sleep,
/// the state file's fields, the helper's life, and the lines of its log that tell a decision or an
/// error. States that last are told as such, others by their lines. Moments and numbers of
/// processes and handles are left out, because no two runs have the same.
RecordedEffects effectsIn(const SavedJournal& journal, const RecordedDeeds& deeds);

}  // namespace virtualmac
