#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

namespace korvel {

/// The move that a tick of enforcement makes with the gate.
enum class GateDecision : unsigned char { Hold, Pause, Resume };

/// The width of the hysteresis band below `target` that a stored band means: 1 to 20, and never so
/// wide that the resume threshold falls below 1 %.
constexpr std::int64_t effectiveBand(std::int64_t sailingBand, std::int64_t target) {
  const std::int64_t bounded = std::clamp<std::int64_t>(sailingBand, 1, 20);
  return std::min(bounded, target - 1);
}

/// The gate for one reading of the battery, with a target of 20 to 99 %. Pauses at the target and
/// above, resumes below the band, and inside the band leaves the last decision standing. Nothing is
/// decided on an unknown charge, or unless the adapter is known to be connected.
constexpr GateDecision decideGate(std::int64_t target, std::int64_t sailingBand,
                                  std::optional<std::int64_t> capacity,
                                  std::optional<bool> externalPower) {
  if (externalPower != true || !capacity) return GateDecision::Hold;
  if (*capacity >= target) return GateDecision::Pause;
  return *capacity < target - effectiveBand(sailingBand, target) ? GateDecision::Resume
                                                                 : GateDecision::Hold;
}

}  // namespace korvel
