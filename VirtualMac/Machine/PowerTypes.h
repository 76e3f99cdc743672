#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/KernelTypes.h"
#include "VirtualMac/Schedule/VirtualTime.h"

namespace virtualmac {

inline constexpr korvel::KernReturn ioReturnNotFound = static_cast<korvel::KernReturn>(0xE00002F0U);

enum class SleepReason : std::uint8_t { Idle, Lid, Requested, LowBattery };
/// "idle", "lid", "requested", "low battery"
std::string_view sleepReasonText(SleepReason reason);

/// Awake, asking whether it may sleep, telling that it will, asleep.
enum class SleepPhase : std::uint8_t { Awake, Asking, Leaving, Asleep };

struct Assertion {
  std::uint32_t id = 0;
  std::int32_t owner = 0;
  std::string type;
  std::string name;
  std::int64_t level = 0;                       ///< 0: off.
  std::optional<Nanoseconds> releasedAtUptime;  ///< Its time-out.
  bool releaseOnTimeout = false;                ///< Otherwise the time-out only turns it off.
};

/// The rest of the machine, as far as the power manager depends on it.
struct SleepConditions {
  bool adapterConnected = false;
  bool lidClosed = false;
  bool displayConnected = false;
  bool batteryLow = false;  ///< Running from a battery with nothing left.
};

/// A root-domain message on its way to one registration of one process.
struct PowerMessage {
  std::int32_t pid = 0;
  korvel::ObjectRef notifier = 0;
  std::uint32_t messageType = 0;
  std::intptr_t notificationID = 0;  ///< 0 for messages that take no acknowledgement.
};

}  // namespace virtualmac
