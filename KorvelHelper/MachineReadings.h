#pragma once

#include <cstdint>
#include <optional>

namespace korvel {

class IORegistry;
class PowerSources;

/// Battery, adapter and lid, read afresh on every call. Each reading gives back all that it opened.
/// A value that cannot be read is unknown, never guessed; only the lid counts as open then. Any
/// thread.
namespace MachineReadings {

/// The charge of the first internal battery that reports one, unchanged.
std::optional<std::int64_t> batteryCapacityPercent(PowerSources& sources);
/// Whole degrees, cut toward zero.
std::optional<std::int64_t> batteryTemperatureCelsius(IORegistry& registry);
std::optional<bool> externalPowerConnected(IORegistry& registry);
bool clamshellClosed(IORegistry& registry);

}  // namespace MachineReadings

}  // namespace korvel
