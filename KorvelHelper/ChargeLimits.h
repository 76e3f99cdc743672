#pragma once

#include <cstdint>

#include "Base/Date.h"

namespace korvel {

/// Which limits, in percent, are good for what. A stored limit may be any number, because the state
/// file may have been edited; so each use asks its own question before it acts.
namespace ChargeLimits {

inline constexpr std::int64_t lowest = 20;
inline constexpr std::int64_t none = 100;  ///< "No limit": charging is left to the system.

/// A client may set 100 too: it ends the holding back.
constexpr bool maySet(std::int64_t limit) { return limit >= lowest && limit <= none; }

/// The polling loop takes 100 too: its first tick hands charging back and ends the loop.
constexpr bool isTarget(std::int64_t target) { return target >= lowest && target <= none; }

/// A client that connects starts the loop only for a limit that somebody chose: the limit of a
/// fresh install was never written.
constexpr bool startsOnConnect(std::int64_t limit, Date lastWriteAt) {
  return isTarget(limit) && lastWriteAt != Date::distantPast();
}

/// Waking starts the loop anew only where one ran before the sleep, so the limit was chosen then.
constexpr bool startsOnWake(std::int64_t limit) { return isTarget(limit); }

/// Outside the loop, before sleep and at the end of a discharge, 100 must not pause the gate: no
/// tick would open it again.
constexpr bool holdsBack(std::int64_t limit) { return limit >= lowest && limit < none; }

}  // namespace ChargeLimits

}  // namespace korvel
