#include "VirtualMac/Machine/PowerSourceList.h"

#include <utility>

#include "VirtualMac/Machine/Battery.h"
#include "VirtualMac/Machine/Enclosure.h"

namespace virtualmac {

namespace {

using korvel::HandleRef;
using korvel::PropertyValue;

/// An element's handle is this and its index in the snapshot; it differs from every name.
constexpr HandleRef elementBase = 0x7e0000;

PropertyValue describe(const OtherPowerSourceProfile& source) {
  return PropertyValue::Dictionary{{"Name", source.name},
                                   {"Type", source.type},
                                   {"Transport Type", "USB"},
                                   {"Current Capacity", source.currentCapacity},
                                   {"Max Capacity", 100},
                                   {"Is Present", true},
                                   {"Power Source State", "AC Power"}};
}

}  // namespace

PowerSourceList::PowerSourceList(const Profile& profile, const Battery& pack,
                                 const Adapter& charger, MachineContext& shared)
    : battery(pack), adapter(charger), context(shared), others(profile.otherPowerSources) {}

PropertyValue PowerSourceList::batteryDescription() const {
  PropertyValue::Dictionary description;
  description["Name"] = "InternalBattery-0";
  description["Type"] = "InternalBattery";
  description["Transport Type"] = "Internal";
  description["Max Capacity"] = 100;
  description["Is Present"] = true;
  description["Is Charging"] = battery.isCharging();
  description["Is Charged"] = battery.isFull();
  description["Power Source State"] = adapter.isConnected() ? "AC Power" : "Battery Power";
  const PropertyValue capacity = capacityOverride.value_or(battery.percent());
  if (!capacity.isAbsent()) description["Current Capacity"] = capacity;
  return description;
}

const PowerSourceList::Descriptions& PowerSourceList::current() {
  if (cached != nullptr && cachedRevision == context.revision) return cached;
  std::vector<PropertyValue> descriptions;
  for (const OtherPowerSourceProfile& source : others) {
    if (source.beforeBattery) descriptions.push_back(describe(source));
  }
  if (battery.isPresent()) descriptions.push_back(batteryDescription());
  for (const OtherPowerSourceProfile& source : others) {
    if (!source.beforeBattery) descriptions.push_back(describe(source));
  }
  cached = std::make_shared<const std::vector<PropertyValue>>(std::move(descriptions));
  cachedRevision = context.revision;
  return cached;
}

void PowerSourceList::overrideCurrentCapacity(PropertyValue value) {
  capacityOverride = std::move(value);
  context.noteChange();
}

void PowerSourceList::restoreCurrentCapacity() {
  capacityOverride.reset();
  context.noteChange();
}

HandleRef PowerSourcesClient::copyInfo() {
  return sources.snapshotFails ? 0 : objects.insert(sources.current());
}

korvel::PowerSourceList PowerSourcesClient::copyList(HandleRef info) {
  const PowerSourceList::Descriptions* snapshot = objects.find(info);
  if (snapshot == nullptr || sources.listFails) return {};
  korvel::PowerSourceList list;
  list.isArray = !sources.listIsNotArray;
  const std::size_t count = list.isArray && !sources.listEmpty ? (*snapshot)->size() : 0;
  for (std::size_t i = 0; i < count; ++i) list.elements.push_back(elementBase + i);
  list.handle = objects.insert(*snapshot);
  return list;
}

PropertyValue PowerSourcesClient::getDescription(HandleRef info, HandleRef source) {
  const PowerSourceList::Descriptions* snapshot = objects.find(info);
  if (snapshot == nullptr || source < elementBase) return {};
  const std::size_t index = source - elementBase;
  return index < (*snapshot)->size() ? (**snapshot)[index] : PropertyValue();
}

void PowerSourcesClient::release(HandleRef object) { objects.erase(object); }

}  // namespace virtualmac
