#include "VirtualMac/Tools/ProfileImport.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <optional>

#include "VirtualMac/Machine/Battery.h"
#include "VirtualMac/Machine/Profile.h"

namespace virtualmac {

namespace {

using korvel::PropertyValue;
using Dictionary = PropertyValue::Dictionary;
using Json = nlohmann::ordered_json;

constexpr std::int64_t largestCapacity = 100'000;
constexpr double fastestPercentPerHour = 1000;

double rounded(double number, double parts) { return std::round(number * parts) / parts; }

std::string_view kindOf(const PropertyValue& value) {
  if (value.boolean()) return "true or false";
  if (value.integer()) return "a whole number";
  if (value.real()) return "a fraction";
  if (value.text() != nullptr) return "text";
  if (value.data() != nullptr) return "bytes";
  if (value.array() != nullptr) return "a list";
  return "a dictionary";
}

class Import {
 public:
  Import(const BatteryDump& source, Json base, const BatteryProfile& known)
      : dump(source), flat(source.merged()), start(known) {
    made.profile = std::move(base);
  }

  ImportedProfile run() {
    if (dump.moreServices > 0)
      made.odd.push_back(
          fmt::format("{} more AppleSmartBattery: the helper reads the first", dump.moreServices));
    takePlaces();
    takeCharge();
    takeCapacities();
    takeAdapter();
    takeFlow();
    takeTemperature();
    describe();
    return std::move(made);
  }

 private:
  /// A value of the flat dictionary; absent: it is not there, or null.
  [[nodiscard]] const PropertyValue& value(std::string_view key) const {
    static const PropertyValue none;
    const auto found = flat.find(key);
    return found == flat.end() ? none : found->second;
  }

  std::optional<std::int64_t> whole(std::string_view key, std::int64_t low, std::int64_t high) {
    const PropertyValue& found = value(key);
    if (found.isAbsent()) return std::nullopt;
    const auto number = found.integer();
    if (number && *number >= low && *number <= high) return number;
    made.odd.push_back(
        number ? fmt::format("{} is {}, which is not from {} to {}", key, *number, low, high)
               : fmt::format("{} is {} in place of a whole number", key, kindOf(found)));
    return std::nullopt;
  }

  std::optional<bool> flag(std::string_view key) {
    const PropertyValue& found = value(key);
    if (found.isAbsent()) return std::nullopt;
    if (!found.boolean())
      made.odd.push_back(fmt::format("{} is {} in place of true or false", key, kindOf(found)));
    return found.boolean();
  }

  template <class Number>
  void take(const char* field, const std::optional<Number>& number) {
    if (!number) return made.kept.emplace_back(field), void();
    made.profile["battery"][field] = *number;
    made.taken[field] = *number;
  }

  void takePlaces();
  void takeCharge();
  void takeCapacities();
  void takeAdapter();
  void takeFlow();
  void takeTemperature();
  void describe();

  const BatteryDump& dump;
  Dictionary flat;
  BatteryProfile start;  ///< The base's.
  ImportedProfile made;
  std::optional<std::int64_t> capacity;  ///< Of the full battery, in mAh.
  std::optional<bool> connected, charging;
};

/// The figures are where the service itself lacks one that the helper reads and the pack has it.
void Import::takePlaces() {
  constexpr std::array<std::string_view, 4> figures = {
      "AppleRawCurrentCapacity", "AppleRawMaxCapacity", "DesignCapacity", "Temperature"};
  const bool onPack = !dump.pack.empty() && std::ranges::any_of(figures, [&](auto key) {
    return !dump.service.contains(key) && flat.contains(key);
  });
  take<bool>("present", flag("BatteryInstalled").value_or(true));
  take<std::string>("layout", onPack ? "pack" : "root");
  take<std::size_t>("banks", std::min<std::size_t>(dump.banks.size(), 16));
}

/// A percentage where the greatest is 100, as on Apple silicon; else of the same unit as that.
void Import::takeCharge() {
  const auto most = whole("MaxCapacity", 1, largestCapacity);
  const auto now = whole("CurrentCapacity", 0, largestCapacity);
  std::optional<double> percent;
  if (now && most.value_or(100) >= *now)
    percent =
        rounded(100 * static_cast<double>(*now) / static_cast<double>(most.value_or(100)), 10);
  take("startPercent", percent);
}

void Import::takeCapacities() {
  take("designCapacityMilliampHours", whole("DesignCapacity", 1, largestCapacity));
  capacity = whole("AppleRawMaxCapacity", 1, largestCapacity);
  if (!capacity) capacity = whole("NominalChargeCapacity", 1, largestCapacity);
  take("fullCapacityMilliampHours", capacity);
}

void Import::takeAdapter() {
  connected = flag("ExternalConnected");
  charging = flag("IsCharging");
  if (!connected) return made.kept.emplace_back("adapterConnected"), void();
  made.profile["adapterConnected"] = *connected;
  made.taken["adapterConnected"] = *connected;
}

/// The current of the dump's moment, as the rate of the state that the Mac was in; the others are
/// the base's.
void Import::takeFlow() {
  constexpr std::int64_t most = 50'000;
  const auto milliamps = whole("Amperage", -most, most);
  std::optional<double> rate;
  if (milliamps && capacity && *milliamps != 0)
    rate = rounded(
        100 * std::fabs(static_cast<double>(*milliamps)) / static_cast<double>(*capacity), 100);
  if (rate && *rate > fastestPercentPerHour) rate.reset();
  const bool fills = milliamps.value_or(0) > 0;
  const auto only = [&](bool applies) { return applies ? rate : std::nullopt; };
  take("chargePercentPerHour", only(fills && charging == true));
  take("activeDrainPercentPerHour", only(!fills && connected == false));
  take("heldDrainPercentPerHour", only(!fills && connected == true && charging == false));
}

/// The battery's temperature less the heat that the base gives it in the dump's state.
void Import::takeTemperature() {
  constexpr double parts = 100;
  const auto hundredths = whole("Temperature", static_cast<std::int64_t>(lowestCelsius * parts),
                                static_cast<std::int64_t>(highestCelsius * parts));
  std::optional<double> ambient;
  if (hundredths) {
    double heat = 0;
    if (charging == true) heat = start.chargingHeatCelsius;
    if (connected == false) heat = start.dischargingHeatCelsius;
    ambient =
        std::max(lowestCelsius, rounded(static_cast<double>(*hundredths) / parts - heat, parts));
  }
  take("ambientCelsius", ambient);
}

void Import::describe() {
  std::string text = "A real Mac's battery";
  if (const auto design = made.taken.find("designCapacityMilliampHours");
      design != made.taken.end())
    text += fmt::format(", {} mAh by design", design->get<std::int64_t>());
  if (capacity) text += fmt::format(", {} mAh when full", *capacity);
  if (const auto cycles = whole("CycleCount", 0, largestCapacity))
    text += fmt::format(", after {} cycles", *cycles);
  made.profile["description"] = text + ".";
}

}  // namespace

std::expected<ImportedProfile, std::string> importProfile(const BatteryDump& dump,
                                                          std::string_view base) {
  const auto known = parseProfile(base, "the base");
  if (!known) return std::unexpected(known.error());
  ImportedProfile made = Import(dump, Json::parse(base), known->battery).run();
  constexpr std::array<const char*, 3> figures = {"startPercent", "designCapacityMilliampHours",
                                                  "fullCapacityMilliampHours"};
  if (std::ranges::none_of(figures, [&](auto key) { return made.taken.contains(key); }))
    return std::unexpected(
        "has an AppleSmartBattery without a figure that is read: CurrentCapacity, DesignCapacity, "
        "AppleRawMaxCapacity, NominalChargeCapacity");
  const auto readBack = parseProfile(made.profile.dump(), "the profile made of it");
  if (!readBack) return std::unexpected(readBack.error());
  return made;
}

}  // namespace virtualmac
