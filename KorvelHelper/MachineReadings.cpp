#include "MachineReadings.h"

#include "Base/Scoped.h"
#include "BatteryRegistryReader.h"
#include "Platform/IORegistry.h"
#include "Platform/PowerSources.h"

namespace korvel {

namespace {

using ScopedPowerObject = Scoped<PowerSources, HandleRef, &PowerSources::release>;

std::optional<std::int64_t> capacityOfInternalBattery(const PropertyValue& description) {
  const std::string* type = description["Type"].text();
  if (type == nullptr || *type != "InternalBattery") return std::nullopt;
  return description["Current Capacity"].integer();
}

std::optional<bool> booleanProperty(IORegistry& registry, const char* className, const char* key) {
  const ScopedRegistryObject service(registry, registry.getMatchingService(className));
  if (!service) return std::nullopt;
  return registry.createProperty(service.get(), key).boolean();
}

}  // namespace

std::optional<std::int64_t> MachineReadings::batteryCapacityPercent(PowerSources& sources) {
  const HandleRef snapshot = sources.copyInfo();
  if (snapshot == 0) return std::nullopt;
  const ScopedPowerObject ownedSnapshot(sources, snapshot);
  const PowerSourceList list = sources.copyList(snapshot);
  const ScopedPowerObject ownedList(sources, list.handle);
  if (list.handle == 0 || !list.isArray) return std::nullopt;
  for (const HandleRef source : list.elements) {
    if (auto capacity = capacityOfInternalBattery(sources.getDescription(snapshot, source))) {
      return capacity;
    }
  }
  return std::nullopt;
}

std::optional<std::int64_t> MachineReadings::batteryTemperatureCelsius(IORegistry& registry) {
  const ScopedRegistryObject battery(registry, registry.getMatchingService("AppleSmartBattery"));
  if (!battery) return std::nullopt;
  const auto properties = BatteryRegistryReader::properties(registry, battery.get());
  if (!properties) return std::nullopt;
  const auto found = properties->find("Temperature");
  if (found == properties->end()) return std::nullopt;
  const std::optional<std::int64_t> hundredths = found->second.integer();
  return hundredths ? std::optional(*hundredths / 100) : std::nullopt;
}

std::optional<bool> MachineReadings::externalPowerConnected(IORegistry& registry) {
  return booleanProperty(registry, "AppleSmartBattery", "ExternalConnected");
}

bool MachineReadings::clamshellClosed(IORegistry& registry) {
  return booleanProperty(registry, "IOPMrootDomain", "AppleClamshellState").value_or(false);
}

}  // namespace korvel
