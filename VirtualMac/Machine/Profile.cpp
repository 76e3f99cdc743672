#include "VirtualMac/Machine/Profile.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include "VirtualMac/Machine/Battery.h"
#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/BuiltInProfiles.h"
#include "VirtualMac/Machine/Nearest.h"
#include "VirtualMac/Machine/ProfileReader.h"

namespace virtualmac {

namespace {

using Json = ProfileReader::Json;
using korvel::PropertyValue;

constexpr std::int64_t largestKeySize = 255;
/// Attributes of a key that may be read and written.
constexpr std::uint8_t ordinaryAttributes = 0xd0;

PropertyValue propertyFrom(const Json& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number_integer()) return value.get<std::int64_t>();
  if (value.is_number_float()) return value.get<double>();
  if (value.is_string()) return value.get<std::string>();
  if (value.is_array()) {
    PropertyValue::Array elements;
    for (const Json& each : value) elements.push_back(propertyFrom(each));
    return elements;
  }
  if (!value.is_object()) return {};
  PropertyValue::Dictionary entries;
  for (const auto& [key, each] : value.items()) entries[key] = propertyFrom(each);
  return entries;
}

/// The nesting of arrays and objects.
std::size_t depthOf(const Json& value) {
  if (!value.is_structured()) return 0;
  std::size_t deepest = 0;
  for (const Json& each : value) deepest = std::max(deepest, depthOf(each));
  return deepest + 1;
}

/// Whether every whole number in it fits into 64 signed bits, as those of a property list do.
bool wholeNumbersFit(const Json& value) {
  if (value.is_structured()) return std::ranges::all_of(value, wholeNumbersFit);
  return !value.is_number_unsigned() || value.get<std::uint64_t>() <= INT64_MAX;
}

/// Refuses an offer that fits into no frame: it would end every helper of this machine.
void readOffer(ProfileReader& reader, PowerUIProfile& powerUI) {
  const Json* value = reader.field(
      "offeredLimits", "nested at most " + std::to_string(bounds::deepestProperty) + " deep",
      [](const Json& offer) { return depthOf(offer) <= bounds::deepestProperty; });
  if (value == nullptr) return;
  if (value->dump().size() > bounds::longestOffer) {
    return reader.complain(reader.keyPath("offeredLimits"),
                           "at most " + std::to_string(bounds::longestOffer) + " bytes");
  }
  if (!wholeNumbersFit(*value)) {
    return reader.complain(reader.keyPath("offeredLimits"),
                           "without whole numbers above " + std::to_string(INT64_MAX));
  }
  powerUI.offeredLimits = propertyFrom(*value);
}

void readBytes(ProfileReader& reader, SMCKeyProfile& key) {
  const auto isByte = [](const Json& each) {
    return each.is_number_unsigned() && each.get<std::uint64_t>() <= 255;
  };
  const auto fits = [&](const Json& value) {
    return value.is_array() && value.size() <= key.size && std::ranges::all_of(value, isByte);
  };
  constexpr const char* expected = "a list of at most size numbers from 0 to 255";
  if (const Json* value = reader.field("bytes", expected, fits))
    key.bytes = value->get<std::vector<std::uint8_t>>();
}

void readKeys(ProfileReader& reader, std::vector<SMCKeyProfile>& keys) {
  reader.readNamed([&](const std::string& name, ProfileReader& inner) {
    SMCKeyProfile key{.name = name, .size = 1, .attributes = ordinaryAttributes};
    inner.read("size", key.size, 1, largestKeySize);
    inner.read("type", key.type);
    inner.read("attributes", key.attributes, 0, 255);
    readBytes(inner, key);
    if (name.size() != 4) inner.complain(reader.keyPath(name), "named by four characters");
    if (key.type.size() != 4) inner.complain(inner.keyPath("type"), "four characters");
    keys.push_back(std::move(key));
  });
}

void readBattery(ProfileReader& reader, BatteryProfile& battery) {
  reader.read("present", battery.present);
  reader.readChoice<BatteryLayout>("layout", battery.layout,
                                   {{"root", BatteryLayout::Root}, {"pack", BatteryLayout::Pack}});
  reader.read("banks", battery.banks, 0, 16);
  reader.read("startPercent", battery.startPercent, 0, 100);
  reader.read("designCapacityMilliampHours", battery.designCapacityMilliampHours, 1, 100000);
  reader.read("fullCapacityMilliampHours", battery.fullCapacityMilliampHours, 1, 100000);
  reader.read("chargePercentPerHour", battery.chargePercentPerHour, 0, 1000);
  reader.read("taperStartPercent", battery.taperStartPercent, 0, 100);
  reader.read("activeDrainPercentPerHour", battery.activeDrainPercentPerHour, 0, 1000);
  reader.read("heldDrainPercentPerHour", battery.heldDrainPercentPerHour, 0, 1000);
  reader.read("asleepDrainPercentPerHour", battery.asleepDrainPercentPerHour, 0, 1000);
  reader.read("ambientCelsius", battery.ambientCelsius, lowestCelsius, highestCelsius);
  reader.read("chargingHeatCelsius", battery.chargingHeatCelsius, 0, 80);
  reader.read("dischargingHeatCelsius", battery.dischargingHeatCelsius, 0, 80);
  reader.read("closedLidHeatCelsius", battery.closedLidHeatCelsius, 0, 80);
}

void readPowerSource(ProfileReader& reader, Profile& profile) {
  OtherPowerSourceProfile source;
  reader.read("name", source.name);
  reader.read("type", source.type);
  reader.read("currentCapacity", source.currentCapacity, 0, 100);
  reader.readChoice<bool>("place", source.beforeBattery,
                          {{"before battery", true}, {"after battery", false}});
  profile.otherPowerSources.push_back(std::move(source));
}

void readIdentity(ProfileReader& reader, Profile& profile) {
  SigningIdentity identity;
  reader.read("name", identity.name);
  reader.read("signed", identity.isSigned);
  reader.read("anchorApple", identity.anchorApple);
  reader.read("anchorAppleGeneric", identity.anchorAppleGeneric);
  reader.read("identifier", identity.identifier);
  reader.read("team", identity.team);
  const auto areTexts = [](const Json& value) {
    const auto isText = [](const Json& each) { return each.is_string(); };
    return value.is_array() && std::ranges::all_of(value, isText);
  };
  constexpr const char* expected = "a list of object identifiers as text";
  if (const Json* value = reader.field("leafExtensions", expected, areTexts))
    identity.leafExtensions = value->get<std::vector<std::string>>();
  if (identity.name.empty()) reader.complain(reader.keyPath("name"), "text that is not empty");
  profile.identities.push_back(std::move(identity));
}

void readProfile(ProfileReader& reader, Profile& profile) {
  // An editor reads it.
  std::string schema;
  reader.read("$schema", schema);
  reader.read("description", profile.description);
  reader.readObject("smc", [&](ProfileReader& smc) {
    smc.read("present", profile.smcPresent);
    smc.readObject("keys", [&](ProfileReader& keys) { readKeys(keys, profile.smcKeys); });
  });
  reader.readObject("battery", [&](ProfileReader& inner) { readBattery(inner, profile.battery); });
  reader.read("lid", profile.hasLid);
  reader.read("adapterConnected", profile.adapterConnected);
  reader.read("externalDisplayConnected", profile.externalDisplayConnected);
  reader.read("idleSleepMinutes", profile.idleSleepMinutes, 0, 1440);
  reader.readList("powerSources", [&](ProfileReader& inner) { readPowerSource(inner, profile); });
  reader.readObject("powerUI", [&](ProfileReader& inner) {
    profile.powerUI.present = true;
    inner.read("present", profile.powerUI.present);
    inner.read("supported", profile.powerUI.supported);
    readOffer(inner, profile.powerUI);
    inner.read("currentLimit", profile.powerUI.currentLimit, 0, 100);
  });
  reader.readList("identities", [&](ProfileReader& inner) { readIdentity(inner, profile); });
  reader.finish();
}

}  // namespace

std::vector<std::string> builtInProfileNames() {
  std::vector<std::string> names;
  names.reserve(builtInProfiles().size());
  for (const BuiltInProfile& each : builtInProfiles()) names.emplace_back(each.name);
  std::ranges::sort(names);
  return names;
}

std::expected<Profile, std::string> parseProfile(std::string_view text, std::string_view origin) {
  ProfileReader::Complaint complaint{std::string(origin), std::nullopt};
  if (const auto defect = jsonDefect(text)) {
    return std::unexpected(complaint.origin + ": " + *defect);
  }
  const Json parsed = Json::parse(text);
  Profile profile;
  profile.name = std::filesystem::path(origin).stem().string();
  ProfileReader reader(parsed, "", complaint);
  readProfile(reader, profile);
  if (complaint.text) return std::unexpected(*complaint.text);
  return profile;
}

bool isProfileFile(std::string_view nameOrPath) {
  return nameOrPath.find('/') != std::string_view::npos || nameOrPath.ends_with(".json");
}

std::expected<std::string, std::string> profileText(std::string_view nameOrPath) {
  if (isProfileFile(nameOrPath)) return readTextFile(std::string(nameOrPath));
  for (const BuiltInProfile& each : builtInProfiles()) {
    if (each.name == nameOrPath) return std::string(each.text);
  }
  return std::unexpected(unknownWord("profile", nameOrPath, builtInProfileNames()));
}

std::expected<Profile, std::string> loadProfile(std::string_view nameOrPath) {
  const auto text = profileText(nameOrPath);
  if (!text) return std::unexpected(text.error());
  return parseProfile(*text, nameOrPath);
}

}  // namespace virtualmac
