#include "BatteryRegistryReader.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace korvel::BatteryRegistryReader {

namespace {

using Dictionary = PropertyValue::Dictionary;

constexpr std::string_view batteryData = "BatteryData";
constexpr std::string_view rawCurrentCapacity = "AppleRawCurrentCapacity";
constexpr std::string_view rawMaxCapacity = "AppleRawMaxCapacity";
constexpr std::string_view lifetimeData = "LifetimeData";
constexpr std::string_view timeAtHighSoc = "TimeAtHighSoc";

constexpr std::array<std::string_view, 5> liftedKeys = {
    rawCurrentCapacity, rawMaxCapacity, "NominalChargeCapacity", "DesignCapacity", "Temperature"};
constexpr std::array<std::string_view, 3> gatheredKeys = {"CellVoltage", "WeightedRa", "Qmax"};

/// The value under a key; null when there is none.
const PropertyValue* valueAt(const Dictionary& entries, std::string_view key) {
  const auto found = entries.find(key);
  return found == entries.end() || found->second.isAbsent() ? nullptr : &found->second;
}

/// The dictionary under a key; empty when there is none.
Dictionary dictionaryAt(const Dictionary& entries, std::string_view key) {
  const PropertyValue* value = valueAt(entries, key);
  const Dictionary* nested = value == nullptr ? nullptr : value->dictionary();
  return nested == nullptr ? Dictionary() : *nested;
}

/// Copies `source` of `from` to `key` of `to`, unless `to` has it.
void fillIn(Dictionary& to, std::string_view key, const Dictionary& from, std::string_view source) {
  if (valueAt(to, key) != nullptr) return;
  const PropertyValue* value = valueAt(from, source);
  if (value != nullptr) to.insert_or_assign(std::string(key), *value);
}

/// The entry's own "BatteryData"; none when it cannot be read or is not a dictionary.
std::optional<Dictionary> batteryDataOf(IORegistry& registry, ObjectRef entry) {
  PropertyValue properties;
  if (registry.createProperties(entry, properties) != kernSuccess) return std::nullopt;
  const Dictionary* data = properties[batteryData].dictionary();
  return data == nullptr ? std::nullopt : std::optional(*data);
}

void completeLifetime(Dictionary& data, const std::vector<Dictionary>& banks) {
  Dictionary lifetime = dictionaryAt(data, lifetimeData);
  for (const Dictionary& bank : banks) {
    fillIn(lifetime, timeAtHighSoc, dictionaryAt(bank, lifetimeData), timeAtHighSoc);
  }
  if (!lifetime.empty()) data.insert_or_assign(std::string(lifetimeData), std::move(lifetime));
}

void gather(Dictionary& data, std::string_view key, const std::vector<Dictionary>& banks) {
  if (valueAt(data, key) != nullptr) return;
  PropertyValue::Array collected;
  for (const Dictionary& bank : banks) {
    const PropertyValue* value = valueAt(bank, key);
    if (value != nullptr && value->integer()) collected.push_back(*value);
  }
  if (!collected.empty()) data.insert_or_assign(std::string(key), std::move(collected));
}

}  // namespace

std::optional<Dictionary> properties(IORegistry& registry, ObjectRef service) {
  PropertyValue root;
  if (registry.createProperties(service, root) != kernSuccess) return std::nullopt;
  const Dictionary* rootEntries = root.dictionary();
  if (rootEntries == nullptr) return std::nullopt;

  Dictionary pack;
  std::vector<Dictionary> banks;
  ObjectRef found = 0;
  if (registry.createIterator(service, "IOService", ioRegistryIterateRecursively, found) !=
      kernSuccess) {
    return merged(*rootEntries, pack, banks);
  }
  const ScopedRegistryObject iterator(registry, found);
  while (const ObjectRef next = registry.iteratorNext(iterator.get())) {
    const ScopedRegistryObject entry(registry, next);
    if (pack.empty() && registry.conformsTo(next, "AppleSmartBatteryPack")) {
      pack = batteryDataOf(registry, next).value_or(Dictionary());
    } else if (registry.conformsTo(next, "AppleSmartBatteryBank")) {
      if (auto data = batteryDataOf(registry, next)) banks.push_back(*std::move(data));
    }
  }
  return merged(*rootEntries, pack, banks);
}

Dictionary merged(const Dictionary& root, const Dictionary& pack,
                  const std::vector<Dictionary>& banks) {
  Dictionary result = root;
  Dictionary data = dictionaryAt(root, batteryData);
  for (const auto& [key, value] : pack) data.try_emplace(key, value);

  for (const std::string_view key : liftedKeys) fillIn(result, key, data, key);
  fillIn(result, rawMaxCapacity, data, "FullChargeCapacity");
  fillIn(result, rawCurrentCapacity, data, "RemainingCapacity");
  completeLifetime(data, banks);
  for (const std::string_view key : gatheredKeys) gather(data, key, banks);
  result.insert_or_assign(std::string(batteryData), std::move(data));
  return result;
}

}  // namespace korvel::BatteryRegistryReader
