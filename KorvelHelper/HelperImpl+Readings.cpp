// What the core's decisions read, each time afresh.

#include "HelperImpl.h"
#include "MachineReadings.h"

namespace korvel {

std::optional<std::int64_t> HelperImpl::currentBatteryCapacityPercent() const {
  return MachineReadings::batteryCapacityPercent(platform.powerSources);
}

std::optional<std::int64_t> HelperImpl::currentBatteryTemperatureCelsius() const {
  return MachineReadings::batteryTemperatureCelsius(platform.registry);
}

std::optional<bool> HelperImpl::externalPowerConnected() const {
  return MachineReadings::externalPowerConnected(platform.registry);
}

bool HelperImpl::isClamshellClosed() const {
  return MachineReadings::clamshellClosed(platform.registry);
}

}  // namespace korvel
