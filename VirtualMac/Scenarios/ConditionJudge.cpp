// Judges conditions by the facts, and words the actual state.
#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Scenarios/Condition.h"

namespace virtualmac {

namespace {

using Json = nlohmann::json;
using Subject = Condition::Subject;
using Term = Condition::Term;

/// The value of a record's field, as a condition writes it; none: no such field, or no record.
std::optional<std::string> field(const std::optional<std::string>& record,
                                 const std::string& name) {
  if (!record) return std::nullopt;
  if (jsonDefect(*record)) return std::nullopt;
  const Json parsed = Json::parse(*record);
  if (!parsed.is_object() || !parsed.contains(name)) return std::nullopt;
  const Json& value = parsed[name];
  return value.is_string() ? value.get<std::string>() : value.dump();
}

bool gatePaused(Machine& machine) {
  return machine.smc.chargingInhibited() || machine.battery.heldByNativeLimit();
}

/// The present number of a term's quantity.
double quantity(const Term& term, const Facts& facts) {
  switch (term.subject) {
    case Subject::Battery:
      return facts.machine.battery.percent();
    case Subject::Temperature:
      return static_cast<double>(facts.machine.battery.temperatureHundredths()) / 100;
    case Subject::Assertions:
      return static_cast<double>(facts.machine.power.assertions().size());
    case Subject::NativeLimit:
      return facts.machine.powerUI.currentLimit();
    case Subject::KeyWrites:
      return static_cast<double>(facts.machine.smc.writeCount(term.name));
    case Subject::HelperExited:
      return facts.helperExitStatus.value_or(-1);
    default:
      return 0;
  }
}

/// Whether the first of a subject's two states is the case.
bool isOn(const Term& term, const Facts& facts) {
  switch (term.subject) {
    case Subject::Gate:
      return gatePaused(facts.machine);
    case Subject::Inflow:
      return facts.machine.smc.inflowInhibited();
    case Subject::Adapter:
      return facts.machine.adapter.isConnected();
    case Subject::Lid:
      return facts.machine.lid.isClosed();
    case Subject::Display:
      return facts.machine.lid.displayConnected();
    case Subject::Charging:
      return facts.machine.battery.isCharging();
    case Subject::Draining:
      return facts.machine.battery.isDraining();
    case Subject::Asleep:
      return facts.machine.power.isAsleep();
    case Subject::SleepDisabled:
      return facts.machine.power.sleepDisabled();
    case Subject::HelperRunning:
      return facts.helperRunning;
    case Subject::SavedNothing:
      return !facts.savedState().has_value();
    default:
      return term.heard;
  }
}

bool isNumeric(Subject subject) {
  return subject == Subject::Battery || subject == Subject::Temperature ||
         subject == Subject::Assertions || subject == Subject::NativeLimit ||
         subject == Subject::KeyWrites || subject == Subject::HelperExited;
}

bool termHolds(const Term& term, const Facts& facts) {
  if (isNumeric(term.subject)) {
    const double value = quantity(term, facts);
    return value >= term.least && value <= term.most;
  }
  if (term.subject == Subject::KeyValue) {
    const auto bytes = facts.machine.smc.value(term.name);
    return bytes && bytes->size() >= term.bytes.size() &&
           std::equal(term.bytes.begin(), term.bytes.end(), bytes->begin());
  }
  if (term.subject == Subject::Saved) return field(facts.savedState(), term.name) == term.value;
  if (term.subject == Subject::Reported) {
    const std::optional<std::string> record = facts.reportedState();
    return record && field(record, term.name) == term.value;
  }
  return isOn(term, facts) == term.on;
}

std::string fieldText(std::string_view where, const std::optional<std::string>& record,
                      const std::string& name) {
  if (!record) return fmt::format("nothing is {}", where);
  const std::optional<std::string> value = field(record, name);
  return value ? fmt::format("{} {} is {}", where, name, *value)
               : fmt::format("{} {} is absent", where, name);
}

std::string keyText(const Term& term, const Facts& facts) {
  const auto bytes = facts.machine.smc.value(term.name);
  if (!bytes) return fmt::format("there is no key {}", term.name);
  std::string text = term.name + " is";
  for (const std::uint8_t byte : *bytes) text += fmt::format(" {:02x}", byte);
  return text;
}

std::string termText(const Term& term, const Facts& facts) {
  const bool on = isNumeric(term.subject) || isOn(term, facts);
  switch (term.subject) {
    case Subject::Gate:
      return on ? "the gate is paused" : "the gate is charging";
    case Subject::Inflow:
      return on ? "the inflow is inhibited" : "the inflow is on";
    case Subject::Adapter:
      return on ? "the adapter is connected" : "the adapter is disconnected";
    case Subject::Lid:
      return on ? "the lid is closed" : "the lid is open";
    case Subject::Display:
      return on ? "the display is connected" : "the display is disconnected";
    case Subject::Charging:
      return on ? "the battery is charging" : "the battery is not charging";
    case Subject::Draining:
      return on ? "the battery is draining" : "the battery is not draining";
    case Subject::Asleep:
      return on ? "the machine is asleep" : "the machine is awake";
    case Subject::SleepDisabled:
      return on ? "SleepDisabled is on" : "SleepDisabled is off";
    case Subject::HelperRunning:
      return on ? "the helper is running" : "the helper is not running";
    case Subject::Battery:
      return fmt::format("the battery is at {} %", quantity(term, facts));
    case Subject::Temperature:
      return fmt::format("it has {:.2f} °C", quantity(term, facts));
    case Subject::Assertions:
      return fmt::format("{} assertions are held", quantity(term, facts));
    case Subject::NativeLimit:
      return fmt::format("the native limit is {}", quantity(term, facts));
    case Subject::KeyWrites:
      return fmt::format("{} was written {} times", term.name, quantity(term, facts));
    case Subject::HelperExited:
      return facts.helperExitStatus ? fmt::format("it exited {}", *facts.helperExitStatus)
                                    : "it did not exit by itself";
    case Subject::KeyValue:
      return keyText(term, facts);
    case Subject::Saved:
      return fieldText("saved", facts.savedState(), term.name);
    case Subject::SavedNothing:
      return on ? "nothing is saved" : "a state is saved";
    case Subject::Reported:
      return fieldText("reported", facts.reportedState(), term.name);
    case Subject::Log:
    case Subject::Journal:
      return on ? "it was said" : "nothing of the kind was said";
  }
  return {};
}

}  // namespace

bool Condition::holds(const Facts& facts) const {
  return std::all_of(terms.begin(), terms.end(),
                     [&](const Term& term) { return termHolds(term, facts) != term.negated; });
}

std::string Condition::actual(const Facts& facts) const {
  const bool all = holds(facts);
  std::string text;
  for (const Term& term : terms) {
    if (!all && termHolds(term, facts) != term.negated) continue;
    text += (text.empty() ? "" : ", ") + termText(term, facts);
  }
  return text;
}

}  // namespace virtualmac
