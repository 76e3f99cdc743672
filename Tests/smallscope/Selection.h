#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "Tests/LongRun.h"
#include "Tests/smallscope/Stimuli.h"

namespace smallscope {

/// The selection made in the environment. Without it, a run takes a few sequences that a seed
/// draws.
struct Selection {
  bool full = false;                 ///< KORVEL_FULL=1: every sequence, and every call.
  longrun::Shard shard;              ///< KORVEL_SHARD=I/N: one of N parts of them.
  std::uint64_t seed = 1;            ///< KORVEL_SEED: the seed of the draw.
  std::optional<Sequence> sequence;  ///< KORVEL_SEQUENCE: this sequence alone.
  std::uint64_t killAt = 0;          ///< KORVEL_K: with the kill at this call of its last step.
};
/// Throws std::invalid_argument with the allowed values when a variable has another one.
Selection selectionFrom(longrun::Environment environment);

/// Returns the numbers below `total` that are to be played, `few` of them in a drawn selection.
/// `salt` gives each profile a draw of its own.
std::vector<std::uint64_t> chosen(const Selection& selection, std::uint64_t total,
                                  std::uint64_t few, std::uint64_t salt);

}  // namespace smallscope
