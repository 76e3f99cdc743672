#include "VirtualMac/Machine/Registry.h"

#include <algorithm>
#include <array>

#include "Platform/IORegistry.h"
#include "VirtualMac/Machine/Battery.h"
#include "VirtualMac/Machine/Enclosure.h"
#include "VirtualMac/Machine/SMC.h"

namespace virtualmac {

namespace {

using korvel::PropertyValue;
using Dictionary = PropertyValue::Dictionary;

constexpr std::string_view controllerClass = "AppleSMC";
constexpr std::string_view batteryClass = "AppleSmartBattery";
constexpr std::string_view rootDomainClass = "IOPMrootDomain";
constexpr std::string_view packClass = "AppleSmartBatteryPack";
constexpr std::string_view bankClass = "AppleSmartBatteryBank";

constexpr Registry::EntryID controllerEntry = 1;
constexpr Registry::EntryID batteryEntry = 2;
constexpr Registry::EntryID rootDomainEntry = 3;
constexpr Registry::EntryID packEntry = 4;
constexpr Registry::EntryID firstBankEntry = 16;

/// Constant figures of a cell bank.
constexpr std::int64_t firstCellMillivolts = 3900;
constexpr std::int64_t cellMillivoltStep = 10;
constexpr std::int64_t cycleCount = 42;

Dictionary bankProperties(Registry::EntryID entry) {
  const std::int64_t index = entry - firstBankEntry;
  Dictionary data{{"CellVoltage", firstCellMillivolts + cellMillivoltStep * index},
                  {"WeightedRa", 40 + index},
                  {"Qmax", 6000 + index},
                  {"LifetimeData", Dictionary{{"TimeAtHighSoc", 1200 + index}}}};
  return Dictionary{{"BatteryData", std::move(data)}};
}

}  // namespace

Registry::Registry(const Battery& pack, const Adapter& charger, const Lid& cover,
                   const SMC& controller, MachineContext& shared)
    : battery(pack), adapter(charger), lid(cover), smc(controller), context(shared) {}

std::string_view Registry::className(EntryID entry) {
  static constexpr std::array<std::string_view, 5> byEntry{"", controllerClass, batteryClass,
                                                           rootDomainClass, packClass};
  if (entry >= firstBankEntry) return bankClass;
  return entry < byEntry.size() ? byEntry[entry] : std::string_view();
}

bool Registry::isHidden(std::string_view className) const {
  return std::ranges::find(hiddenServices, className) != hiddenServices.end();
}

Registry::EntryID Registry::matching(std::string_view className) const {
  if (isHidden(className)) return noEntry;
  if (className == controllerClass) return smc.servicePresent ? controllerEntry : noEntry;
  if (className == batteryClass) return battery.isPresent() ? batteryEntry : noEntry;
  if (className == rootDomainClass) return rootDomainEntry;
  return noEntry;
}

bool Registry::conforms(EntryID entry, std::string_view className) const {
  return entry != noEntry && (className == Registry::className(entry) || className == "IOService");
}

std::vector<Registry::EntryID> Registry::below(EntryID entry, bool recursively) const {
  const bool hasPack = battery.kind().layout == BatteryLayout::Pack;
  std::vector<EntryID> found;
  const bool listsBanks =
      entry == packEntry || (entry == batteryEntry && (recursively || !hasPack));
  if (entry == batteryEntry && hasPack) found.push_back(packEntry);
  for (EntryID bank = 0; listsBanks && bank < battery.kind().banks; ++bank) {
    found.push_back(firstBankEntry + bank);
  }
  return found;
}

bool Registry::externalConnected() const {
  return adapter.isConnected() && !(inhibitHidesAdapter && smc.inflowInhibited());
}

Dictionary Registry::buildPackData() const {
  return {{"FullChargeCapacity", battery.rawMaxCapacity()},
          {"RemainingCapacity", battery.rawCurrentCapacity()},
          {"NominalChargeCapacity", battery.rawMaxCapacity()},
          {"DesignCapacity", battery.designCapacity()},
          {"Temperature", battery.temperatureHundredths()}};
}

Dictionary Registry::buildBatteryService() const {
  Dictionary properties;
  properties["BatteryInstalled"] = true;
  properties["ExternalConnected"] = externalConnected();
  properties["IsCharging"] = battery.isCharging();
  properties["FullyCharged"] = battery.isFull();
  properties["CurrentCapacity"] = battery.percent();
  properties["MaxCapacity"] = 100;
  properties["CycleCount"] = cycleCount;
  if (battery.kind().layout == BatteryLayout::Root) {
    properties["AppleRawCurrentCapacity"] = battery.rawCurrentCapacity();
    properties["AppleRawMaxCapacity"] = battery.rawMaxCapacity();
    properties["NominalChargeCapacity"] = battery.rawMaxCapacity();
    properties["DesignCapacity"] = battery.designCapacity();
    properties["Temperature"] = battery.temperatureHundredths();
    properties["BatteryData"] = Dictionary{{"StateOfCharge", battery.percent()}};
  }
  return properties;
}

Dictionary Registry::build(EntryID entry) const {
  switch (entry) {
    case batteryEntry:
      return buildBatteryService();
    case packEntry:
      return Dictionary{{"BatteryData", buildPackData()}};
    case rootDomainEntry: {
      Dictionary properties{{"IOClass", std::string(rootDomainClass)}};
      if (lid.exists()) properties["AppleClamshellState"] = lid.isClosed();
      return properties;
    }
    default:
      return entry >= firstBankEntry ? bankProperties(entry) : Dictionary();
  }
}

const PropertyValue* Registry::overriding(EntryID entry, std::string_view key) const {
  if (overrides.empty()) return nullptr;
  const auto found = overrides.find(std::pair(std::string(className(entry)), std::string(key)));
  return found == overrides.end() ? nullptr : &found->second;
}

const PropertyValue& Registry::properties(EntryID entry) {
  Cached& cached = cache[entry];
  const std::int64_t temperature = battery.temperatureHundredths();
  if (cached.revision == context.revision && cached.temperature == temperature) return cached.value;
  Dictionary made = build(entry);
  for (const auto& [place, value] : overrides) {
    if (place.first != className(entry)) continue;
    made.erase(place.second);
    if (!value.isAbsent()) made[place.second] = value;
  }
  cached = Cached{context.revision, temperature, PropertyValue(std::move(made))};
  return cached.value;
}

PropertyValue Registry::property(EntryID entry, std::string_view key) {
  if (const PropertyValue* value = overriding(entry, key)) return *value;
  if (entry == batteryEntry && key == "ExternalConnected") return externalConnected();
  if (entry == rootDomainEntry && key == "AppleClamshellState" && lid.exists()) {
    return lid.isClosed();
  }
  return properties(entry)[key];
}

void Registry::overrideProperty(std::string_view className, std::string_view key,
                                PropertyValue value) {
  overrides.insert_or_assign(std::pair(std::string(className), std::string(key)), std::move(value));
  context.noteChange();
}

void Registry::restoreProperty(std::string_view className, std::string_view key) {
  overrides.erase(std::pair(std::string(className), std::string(key)));
  context.noteChange();
}

void Registry::setInhibitHidesAdapter(bool hides) {
  inhibitHidesAdapter = hides;
  context.noteChange();
}

void Registry::hideService(std::string_view className, bool hidden) {
  std::erase(hiddenServices, className);
  if (hidden) hiddenServices.emplace_back(className);
}

korvel::ObjectRef RegistryClient::getMatchingService(std::string_view className) {
  const Registry::EntryID entry = registry.matching(className);
  return entry == Registry::noEntry ? 0 : objects.insert(Object{entry, {}});
}

Registry::EntryID RegistryClient::entry(korvel::ObjectRef object) {
  const Object* found = objects.find(object);
  return found == nullptr ? Registry::noEntry : found->entry;
}

PropertyValue RegistryClient::createProperty(korvel::ObjectRef object, std::string_view key) {
  const Registry::EntryID id = entry(object);
  if (id == Registry::noEntry || registry.propertiesUnreadable) return {};
  return registry.property(id, key);
}

korvel::KernReturn RegistryClient::createProperties(korvel::ObjectRef object,
                                                    PropertyValue& properties) {
  const Registry::EntryID id = entry(object);
  if (id == Registry::noEntry) return machSendInvalidDest;
  if (registry.propertiesUnreadable) return korvel::ioReturnError;
  properties = registry.properties(id);
  return korvel::kernSuccess;
}

korvel::KernReturn RegistryClient::createIterator(korvel::ObjectRef object, std::string_view plane,
                                                  std::uint32_t options,
                                                  korvel::ObjectRef& iterator) {
  const Registry::EntryID id = entry(object);
  if (id == Registry::noEntry) return machSendInvalidDest;
  if (plane != "IOService") return korvel::ioReturnBadArgument;
  if (registry.iterationFails) return korvel::ioReturnError;
  std::vector<Registry::EntryID> entries =
      registry.below(id, (options & korvel::ioRegistryIterateRecursively) != 0);
  std::ranges::reverse(entries);
  iterator = objects.insert(Object{Registry::noEntry, std::move(entries)});
  return korvel::kernSuccess;
}

korvel::ObjectRef RegistryClient::iteratorNext(korvel::ObjectRef iterator) {
  Object* found = objects.find(iterator);
  if (found == nullptr || found->remaining.empty()) return 0;
  const Registry::EntryID next = found->remaining.back();
  found->remaining.pop_back();
  return objects.insert(Object{next, {}});
}

bool RegistryClient::conformsTo(korvel::ObjectRef object, std::string_view className) {
  return registry.conforms(entry(object), className);
}

korvel::KernReturn RegistryClient::objectRelease(korvel::ObjectRef object) {
  return objects.erase(object) ? korvel::kernSuccess : machSendInvalidDest;
}

}  // namespace virtualmac
