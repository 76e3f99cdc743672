#pragma once

#include <cstdint>

#include "Base/Date.h"

namespace korvel {

/// The questions asked of a limit, in percent. A stored limit may be any number, because the state
/// file may have been edited; so each use asks its own before it acts.
namespace ChargeLimits {

inline constexpr std::int64_t lowest = 20;
inline constexpr std::int64_t none = 100;  ///< "No limit": charging is left to the system.

/// A client may set 100 too: from then on nothing is held back.
constexpr bool maySet(std::int64_t limit) { return limit >= lowest && limit <= none; }

/// The polling loop takes 100 too: its first tick hands charging back and ends the loop.
constexpr bool isTarget(std::int64_t target) { return target >= lowest && target <= none; }

/// A client that connects starts the loop only for a limit that somebody chose: the limit of a
/// fresh install was never written.
constexpr bool startsOnConnect(std::int64_t limit, Date lastWriteAt) {
  return isTarget(limit) && lastWriteAt != Date::distantPast();
}

/// Waking only renews a loop that ran before the sleep, so nobody asks whether the limit was
/// chosen.
constexpr bool startsOnWake(std::int64_t limit) { return isTarget(limit); }

/// With 100 nothing is held back, so the gate is not paused before sleep or after a discharge.
constexpr bool holdsBack(std::int64_t limit) { return limit >= lowest && limit < none; }

}  // namespace ChargeLimits

}  // namespace korvel
