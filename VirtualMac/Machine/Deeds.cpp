#include "VirtualMac/Machine/Deeds.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Machine/Nearest.h"

namespace virtualmac {

namespace {

using Value = GivenValue;

const char* needsBattery(const Machine& mac, const Value&) {
  return mac.battery.isPresent() ? nullptr : "this Mac has no battery";
}

const char* needsLid(const Machine& mac, const Value&) {
  return mac.lid.exists() ? nullptr : "this Mac has no lid";
}

const char* needsAdapter(const Machine& mac, const Value& value) {
  const bool missing = value.word == "renegotiate" && !mac.adapter.isConnected();
  return missing ? "no adapter is connected" : nullptr;
}

const char* needsSystemLimit(const Machine& mac, const Value&) {
  return mac.profile().powerUI.present ? nullptr : "this Mac's system has no charge limit";
}

void setAdapter(Machine& mac, const Value& value) {
  if (value.word == "on") mac.adapter.connect();
  if (value.word == "off") mac.adapter.disconnect();
  if (value.word == "renegotiate") mac.adapter.renegotiate();
}

void setLid(Machine& mac, const Value& value) {
  value.word == "open" ? mac.lid.open() : mac.lid.close();
}

void setDisplay(Machine& mac, const Value& value) {
  value.word == "on" ? mac.lid.connectDisplay() : mac.lid.disconnectDisplay();
}

void setTemperature(Machine& mac, const Value& value) {
  mac.battery.setTemperatureCelsius(value.word == "free" ? std::nullopt
                                                         : std::optional(value.number));
}

}  // namespace

std::span<const Deed> deedCatalogue() {
  static const std::vector<Deed> all = {
      {"battery", AllowedValues{.high = 100},
       [](Machine& mac, const Value& value) { mac.battery.setPercent(value.number); },
       needsBattery},
      {"adapter", AllowedValues{{"on", "off", "renegotiate"}}, setAdapter, needsAdapter},
      {"lid", AllowedValues{{"open", "closed"}}, setLid, needsLid},
      {"display", onOrOff, setDisplay},
      {"temperature", AllowedValues{{"free"}, lowestCelsius, highestCelsius}, setTemperature,
       needsBattery},
      {"ambient", AllowedValues{{}, lowestCelsius, highestCelsius},
       [](Machine& mac, const Value& value) { mac.battery.setAmbientCelsius(value.number); }},
      {"native-limit", AllowedValues{.high = 100, .whole = true},
       [](Machine& mac, const Value& value) {
         mac.powerUI.setLimitByUser(static_cast<std::uint8_t>(value.number));
       },
       needsSystemLimit},
      {"sleep-disabled", onOrOff,
       [](Machine& mac, const Value& value) {
         mac.power.setSleepDisabledExternally(value.word == "on");
       }},
      {"idle-sleep", AllowedValues{.high = 1440, .whole = true},
       [](Machine& mac, const Value& value) {
         mac.power.setIdleSleepMinutes(static_cast<std::int64_t>(value.number));
       }},
      {"sleep", std::nullopt, [](Machine& mac, const Value&) { mac.power.requestSleep(); }},
      {"wake", std::nullopt, [](Machine& mac, const Value&) { mac.power.wake(); }},
      {"touch", std::nullopt, [](Machine& mac, const Value&) { mac.power.userActivity(); }},
  };
  return all;
}

std::string Deed::perform(Machine& machine, const GivenValue& value) const {
  const char* lack = needs == nullptr ? nullptr : needs(machine, value);
  if (lack != nullptr) return lack;
  apply(machine, value);
  return "";
}

const Deed* deedNamed(std::string_view name) {
  const auto all = deedCatalogue();
  const auto found = std::ranges::find(all, name, &Deed::name);
  return found == all.end() ? nullptr : &*found;
}

std::vector<std::string_view> deedNames(bool withValue) {
  std::vector<std::string_view> names;
  for (const Deed& deed : deedCatalogue()) {
    if (deed.values.has_value() == withValue) names.push_back(deed.name);
  }
  return names;
}

std::expected<GivenValue, std::string> AllowedValues::read(std::string_view what,
                                                           const std::string& word) const {
  if (std::ranges::find(words, word) != words.end()) return GivenValue{.word = word};
  if (!takesNumbers()) return std::unexpected(unknownWord(what, word, words));
  // strtod alone takes more than people write: spaces, exponents, hexadecimal digits, infinity.
  const bool plain =
      word.find_first_not_of(whole ? "-0123456789" : "-.0123456789") == std::string::npos;
  char* end = nullptr;
  const double number = std::strtod(word.c_str(), &end);
  if (plain && !word.empty() && *end == '\0' && number >= low && number <= high)
    return GivenValue{word, number};
  return std::unexpected(std::string(what) + " \"" + word +
                         "\" is not allowed (allowed: " + text() + ")");
}

std::string AllowedValues::text() const {
  std::string all;
  for (const std::string& word : words) all += (all.empty() ? "" : ", ") + word;
  if (!takesNumbers()) return all;
  char range[64];
  std::snprintf(range, sizeof range, "%s%.10g to %.10g", whole ? "whole numbers from " : "", low,
                high);
  return all + (all.empty() ? "" : ", ") + range;
}

}  // namespace virtualmac
