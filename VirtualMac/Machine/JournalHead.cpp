#include "VirtualMac/Machine/JournalHead.h"

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/Faults.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;

constexpr std::string_view prefix = "# ";
constexpr int formatNumber = 1;
constexpr const char* versionKey = "CFBundleShortVersionString";

std::string lidText(const Lid& lid) {
  if (!lid.exists()) return "none";
  return lid.isClosed() ? "closed" : "open";
}

bool isText(const std::string& bytes) {
  try {
    static_cast<void>(json(bytes).dump());
  } catch (const json::type_error&) {
    return false;
  }
  return true;
}

void takeSavedState(JournalHead::Start& start, const std::optional<std::string>& saved) {
  if (!saved) return;
  if (saved->size() > bounds::longestText) {
    start.savedStateUntold = "it has more than " + std::to_string(bounds::longestText) + " bytes";
  } else if (!isText(*saved)) {
    start.savedStateUntold = "it is not UTF-8 text";
  } else {
    start.savedState = saved;
  }
}

template <class Value>
ordered_json valueOrNull(const std::optional<Value>& value) {
  return value ? ordered_json(*value) : ordered_json(nullptr);
}

ordered_json objectOf(const JournalHead::Start& start) {
  ordered_json object = ordered_json::object();
  if (start.batteryPercent) object["batteryPercent"] = *start.batteryPercent;
  object["temperatureCelsius"] = start.temperatureCelsius;
  object["ambientCelsius"] = start.ambientCelsius;
  object["adapterConnected"] = start.adapterConnected;
  object["lid"] = start.lid;
  object["displayConnected"] = start.displayConnected;
  object["sleepDisabled"] = start.sleepDisabled;
  object["idleSleepMinutes"] = start.idleSleepMinutes;
  object["nativeLimit"] = start.nativeLimit;
  object["smcKeys"] = start.smcKeys;
  object["faults"] = start.faults;
  object["savedState"] = valueOrNull(start.savedState);
  if (!start.savedStateUntold.empty()) object["savedStateUntold"] = start.savedStateUntold;
  object["helperVersion"] = valueOrNull(start.helperVersion);
  object["restartAfterCrash"] = start.restartAfterCrash;
  return object;
}

std::optional<std::string> textOrNull(const json& object, const char* key) {
  const json& value = object.at(key);
  return value.is_null() ? std::nullopt : std::optional(value.get<std::string>());
}

/// A whole number as its type holds it; the library would bend one until it fits.
template <class Number>
Number numberIn(const json& value) {
  const bool fits = value.is_number_unsigned()  ? std::in_range<Number>(value.get<std::uint64_t>())
                    : value.is_number_integer() ? std::in_range<Number>(value.get<std::int64_t>())
                                                : false;
  if (!fits) throw json::type_error::create(302, "a number of another type", &value);
  return value.get<Number>();
}

double realIn(const json& value) {
  if (!value.is_number()) throw json::type_error::create(302, "no number", &value);
  return value.get<double>();
}

std::map<std::string, std::vector<std::uint8_t>> keysIn(const json& object) {
  std::map<std::string, std::vector<std::uint8_t>> keys;
  for (const auto& [name, bytes] : object.get_ref<const json::object_t&>()) {
    std::vector<std::uint8_t>& list = keys[name];
    for (const json& byte : bytes.get_ref<const json::array_t&>())
      list.push_back(numberIn<std::uint8_t>(byte));
  }
  return keys;
}

JournalHead::Start startIn(const json& object) {
  JournalHead::Start start;
  if (object.contains("batteryPercent")) start.batteryPercent = realIn(object["batteryPercent"]);
  object.at("temperatureCelsius").get_to(start.temperatureCelsius);
  object.at("ambientCelsius").get_to(start.ambientCelsius);
  object.at("adapterConnected").get_to(start.adapterConnected);
  object.at("lid").get_to(start.lid);
  object.at("displayConnected").get_to(start.displayConnected);
  object.at("sleepDisabled").get_to(start.sleepDisabled);
  start.idleSleepMinutes = numberIn<std::int64_t>(object.at("idleSleepMinutes"));
  start.nativeLimit = numberIn<std::int64_t>(object.at("nativeLimit"));
  start.smcKeys = keysIn(object.at("smcKeys"));
  object.at("faults").get_to(start.faults);
  start.savedState = textOrNull(object, "savedState");
  start.savedStateUntold = object.value("savedStateUntold", "");
  start.helperVersion = textOrNull(object, "helperVersion");
  object.at("restartAfterCrash").get_to(start.restartAfterCrash);
  return start;
}

}  // namespace

JournalHead JournalHead::of(const Machine& machine, const JournalOrigin& origin) {
  JournalHead head;
  head.run = origin.run;
  head.profile = machine.profile().name;
  head.profileFile = origin.profileFile;
  head.clock = korvel::iso8601Text(machine.wallClock());
  head.speed = origin.speed;
  head.seed = origin.seed;
  Start& start = head.start;
  if (machine.battery.isPresent()) start.batteryPercent = machine.battery.exactPercent();
  constexpr double hundredths = 100;
  start.temperatureCelsius =
      static_cast<double>(machine.battery.temperatureHundredths()) / hundredths;
  start.ambientCelsius = machine.battery.kind().ambientCelsius;
  start.adapterConnected = machine.adapter.isConnected();
  start.lid = lidText(machine.lid);
  start.displayConnected = machine.lid.displayConnected();
  start.sleepDisabled = machine.power.sleepDisabled();
  start.idleSleepMinutes = machine.power.idleSleepMinutes();
  start.nativeLimit = machine.powerUI.currentLimit();
  for (const std::string& name : machine.smc.names())
    start.smcKeys[name] = *machine.smc.value(name);
  start.faults = activeFaults(machine);
  start.savedStateUntold = origin.savedStateUntold;
  takeSavedState(start, origin.savedState);
  const auto version = machine.bundleInformation.find(versionKey);
  if (version != machine.bundleInformation.end() && version->second.text() != nullptr)
    start.helperVersion = *version->second.text();
  start.restartAfterCrash =
      origin.restartAfterCrash.value_or(machine.launchd.job.restartAfterCrash);
  return head;
}

std::string JournalHead::line() const {
  ordered_json object{{"journal", formatNumber}};
  if (!run.empty()) object["run"] = run;
  object["profile"] = profile;
  if (!profileFile.empty()) object["profileFile"] = profileFile;
  object["clock"] = clock;
  if (speed) object["speed"] = *speed;
  if (seed) object["seed"] = *seed;
  object["start"] = objectOf(start);
  // Bytes that are not UTF-8 are replaced: a path or a profile's name may have such.
  return std::string(prefix) + object.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::optional<JournalHead> JournalHead::from(std::string_view line) {
  if (!line.starts_with(prefix)) return std::nullopt;
  line.remove_prefix(prefix.size());
  if (jsonDefect(line)) return std::nullopt;
  const json object = json::parse(line);
  if (!object.is_object() || object.value("journal", json()) != formatNumber) return std::nullopt;
  try {
    JournalHead head;
    head.run = object.value("run", "");
    object.at("profile").get_to(head.profile);
    head.profileFile = object.value("profileFile", "");
    object.at("clock").get_to(head.clock);
    if (object.contains("speed")) head.speed = realIn(object["speed"]);
    if (object.contains("seed")) head.seed = numberIn<std::uint64_t>(object["seed"]);
    head.start = startIn(object.at("start"));
    return head;
  } catch (const json::exception&) {
    return std::nullopt;
  }
}

std::string journalHead(const Machine& machine, const JournalOrigin& origin) {
  return JournalHead::of(machine, origin).line();
}

}  // namespace virtualmac
