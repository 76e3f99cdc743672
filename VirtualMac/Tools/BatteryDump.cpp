#include "VirtualMac/Tools/BatteryDump.h"

#include <algorithm>
#include <array>
#include <optional>
#include <set>
#include <utility>

#include "BatteryRegistryReader.h"
#include "VirtualMac/Tools/PropertyListText.h"

namespace virtualmac {

namespace {

using korvel::PropertyValue;
using Dictionary = PropertyValue::Dictionary;

constexpr std::string_view serviceClass = "AppleSmartBattery";
constexpr std::size_t mostClassesNamed = 5;

std::string classOf(const PropertyValue& entry) {
  const std::string* name = entry["IOObjectClass"].text();
  return name == nullptr ? std::string() : *name;
}

/// A dump that somebody has trimmed may lack the class.
bool isService(const PropertyValue& entry) {
  constexpr std::array<std::string_view, 4> figures = {"CurrentCapacity", "DesignCapacity",
                                                       "ExternalConnected", "BatteryData"};
  if (const std::string name = classOf(entry); !name.empty()) return name == serviceClass;
  return std::ranges::any_of(figures, [&](auto key) { return !entry[key].isAbsent(); });
}

/// Visits an entry, or every one of an array, and those below, in the registry's order. `visit`
/// says whether to go below.
template <class Visit>
void walk(const PropertyValue& value, const Visit& visit) {
  if (const PropertyValue::Array* entries = value.array()) {
    for (const PropertyValue& each : *entries) walk(each, visit);
  } else if (value.dictionary() != nullptr && visit(value)) {
    walk(value["IORegistryEntryChildren"], visit);
  }
}

/// The entry's "BatteryData"; null when it has none, or something else under that name.
const Dictionary* dataOf(const PropertyValue& entry) { return entry["BatteryData"].dictionary(); }

BatteryDump dumpOf(const PropertyValue& service) {
  BatteryDump made{*service.dictionary(), {}, {}, 0};
  made.service.erase("IORegistryEntryChildren");
  walk(service["IORegistryEntryChildren"], [&](const PropertyValue& entry) {
    const Dictionary* data = dataOf(entry);
    if (data != nullptr && classOf(entry) == "AppleSmartBatteryPack" && made.pack.empty()) {
      made.pack = *data;
    } else if (data != nullptr && classOf(entry) == "AppleSmartBatteryBank") {
      made.banks.push_back(*data);
    }
    return true;
  });
  return made;
}

std::string nothingFound(const std::set<std::string>& classes) {
  std::string text = "holds no AppleSmartBattery";
  std::size_t named = 0;
  for (const std::string& each : classes) {
    if (named == mostClassesNamed) break;
    text += (named++ == 0 ? "; it holds " : ", ") + each;
  }
  if (classes.size() > named) text += " and " + std::to_string(classes.size() - named) + " more";
  return text;
}

}  // namespace

Dictionary BatteryDump::merged() const {
  return korvel::BatteryRegistryReader::merged(service, pack, banks);
}

std::expected<BatteryDump, std::string> batteryDumpFrom(std::string_view text) {
  const auto list = propertyListFrom(text);
  if (!list) return std::unexpected(list.error());
  std::optional<BatteryDump> found;
  std::set<std::string> classes;
  walk(*list, [&](const PropertyValue& entry) {
    if (const std::string name = classOf(entry); !name.empty()) classes.insert(name);
    if (!isService(entry)) return true;
    if (found) {
      ++found->moreServices;
    } else {
      found = dumpOf(entry);
    }
    return false;
  });
  if (!found) return std::unexpected(nothingFound(classes));
  return *std::move(found);
}

}  // namespace virtualmac
