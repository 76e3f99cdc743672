#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace korvel {

/// Why a force-discharge ended. The raw values are stored by clients.
enum class DischargeStopReason : unsigned char {
  floorReached,
  targetReached,
  lidClosed,
  systemWillSleep,
  powerDisconnected,  // No path of the helper gives it; the app's vocabulary keeps it.
  clamshellTimeout,
  clamshellOverheated,
  clamshellDisarmed,
  chargeInhibitLost,
};

std::string_view rawValue(DischargeStopReason reason);
/// The text that the app shows.
std::string_view bannerCopy(DischargeStopReason reason);

inline constexpr std::int64_t dischargeFloorLidOpenPercent = 20;
inline constexpr std::int64_t dischargeFloorLidClosedPercent = 30;
inline constexpr std::int64_t dischargeReboundPercent = 3;
inline constexpr std::int64_t clamshellThermalCapCelsius = 45;
inline constexpr double clamshellHeatSoakSeconds = 3600;
inline constexpr std::int64_t unreadableCapacityLimitTicks = 3;

/// Below or at this charge a discharge neither starts nor goes on.
constexpr std::int64_t dischargeFloorPercent(bool lidClosed) {
  return lidClosed ? dischargeFloorLidClosedPercent : dischargeFloorLidOpenPercent;
}

/// The facts that a tick of the watchdog decides on.
struct DischargeFacts {
  std::int64_t capacity = 0;
  std::int64_t target = 0;
  bool lidClosed = false;
  bool keepAwakeArmed = false;
  std::optional<double> lidClosedSeconds;   ///< While armed; none: the lid is open.
  std::optional<std::int64_t> minimumSeen;  ///< Lowest charge of this discharge so far.
};

/// The watchdog's decision.
struct DischargeVerdict {
  std::optional<DischargeStopReason> stop;         ///< None: the discharge goes on.
  std::optional<std::int64_t> minimumSeen;         ///< The lowest charge, this tick's included.
  std::optional<std::int64_t> temperatureCelsius;  ///< The reading, if it was taken.
};

/// The first rule that holds ends the discharge: lid closed without keep-awake, heat soak, heat,
/// rebound, floor, target. `readTemperature` is called only when its rule's turn comes.
DischargeVerdict decideDischarge(
    const DischargeFacts& facts,
    const std::function<std::optional<std::int64_t>()>& readTemperature);

}  // namespace korvel
