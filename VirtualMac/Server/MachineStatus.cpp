#include "VirtualMac/Server/MachineStatus.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "VirtualMac/Machine/Faults.h"
#include "VirtualMac/Server/MachineServer.h"

namespace virtualmac {

namespace {

/// The meaning of some keys, with the values of those that this Mac has.
std::string withKeys(std::string_view meaning, const SMC& smc,
                     std::initializer_list<std::string_view> names) {
  std::vector<std::string> present;
  for (const std::string_view name : names) {
    if (const auto bytes = smc.value(name))
      present.push_back(fmt::format("{} {:02x}", name, fmt::join(*bytes, " ")));
  }
  if (present.empty()) present.emplace_back("no key");
  return fmt::format("{} ({})", meaning, fmt::join(present, ", "));
}

std::string chargeText(const Battery& battery) {
  if (!battery.isPresent()) return "none";
  const std::string_view doing = battery.isCharging()   ? "charging"
                                 : battery.isDraining() ? "draining"
                                 : battery.isFull()     ? "full"
                                                        : "holding";
  return fmt::format("{} %, {}, {:.1f} C", battery.percent(), doing,
                     static_cast<double>(battery.temperatureHundredths()) / 100);
}

std::string_view powerText(const Machine& machine) {
  if (machine.isOff()) return "off";
  if (machine.power.isAsleep()) return "asleep";
  return machine.power.phase() == SleepPhase::Awake ? "awake" : "falling asleep";
}

std::string lidText(const Lid& lid) {
  if (!lid.exists()) return "none";
  return lid.isClosed() ? "closed" : "open";
}

std::string helperText(MachineServer& server) {
  const auto pid = server.launchd().helper();
  const std::uint64_t starts = server.launchd().starts();
  if (!pid) return fmt::format("not running, {} start(s)", starts);
  return fmt::format("pid {}, {} start(s)", *pid, starts);
}

std::string nativeText(const PowerUI& powerUI) {
  return powerUI.currentLimit() == 0 ? "none" : fmt::format("{} %", powerUI.currentLimit());
}

nlohmann::ordered_json pageJSON(const MachineOptions& options) {
  if (options.pageLink.empty()) return nullptr;
  return {{"port", options.pagePort}, {"link", options.pageLink}};
}

}  // namespace

std::string statusText(MachineServer& server) {
  const Machine& machine = server.machine();
  const std::vector<std::string> faults = activeFaults(machine);
  const std::pair<std::string_view, std::string> rows[] = {
      {"machine",
       fmt::format("{}, {}, {:.1f} s at {:g}x", machine.profile().name, powerText(machine),
                   machine.totalSeconds(), server.timeDriver().speed())},
      {"battery", chargeText(machine.battery)},
      {"adapter", machine.adapter.isConnected() ? "connected" : "disconnected"},
      {"gate", withKeys(machine.smc.chargingInhibited() ? "charging inhibited" : "charging allowed",
                        machine.smc, {"CHTE", "CH0B", "CH0C"})},
      {"inflow", withKeys(machine.smc.inflowInhibited() ? "inhibited" : "flows", machine.smc,
                          {"CHIE", "CH0I", "CH0J"})},
      {"native limit", nativeText(machine.powerUI)},
      {"lid", lidText(machine.lid) + (machine.lid.displayConnected() ? ", external display" : "")},
      {"SleepDisabled", machine.power.sleepDisabled() ? "1" : "0"},
      {"assertions", fmt::format("{}", machine.power.assertions().size())},
      {"helper", helperText(server)},
      {"enforcement", enforcementText(server.enforcement())},
      {"faults", faults.empty() ? "none" : fmt::format("{}", fmt::join(faults, "; "))},
      {"page", server.options().pageLink.empty() ? "none" : server.options().pageLink},
  };
  std::string text;
  for (const auto& [label, value] : rows) text += fmt::format("{:<14} {}\n", label, value);
  return text;
}

std::string statusJSON(MachineServer& server) {
  const Machine& machine = server.machine();
  const auto pid = server.launchd().helper();
  const auto last = server.lastCallOfEnded();
  nlohmann::ordered_json callsUnderWay = nlohmann::ordered_json::array();
  for (const SeamCall call : server.callsUnderWay()) callsUnderWay.push_back(describe(call).id);
  nlohmann::ordered_json keys = nlohmann::ordered_json::object();
  for (const SMCKeyProfile& key : machine.profile().smcKeys) {
    if (const auto bytes = machine.smc.value(key.name)) keys[key.name] = *bytes;
  }
  const auto& information = machine.bundleInformation;
  const auto stated = information.find("CFBundleShortVersionString");
  const std::string* version = stated == information.end() ? nullptr : stated->second.text();
  nlohmann::ordered_json assertions = nlohmann::ordered_json::array();
  for (const Assertion& each : machine.power.assertions())
    assertions.push_back({{"id", each.id}, {"pid", each.owner}, {"type", each.type}});
  nlohmann::ordered_json status = {
      {"ok", true},
      {"profile", machine.profile().name},
      {"power", powerText(machine)},
      {"seconds", machine.totalSeconds()},
      {"uptimeSeconds", machine.uptimeSeconds()},
      {"clock", korvel::iso8601Text(machine.wallClock())},
      {"speed", server.timeDriver().speed()},
      {"batteryPercent", machine.battery.exactPercent()},
      {"charging", machine.battery.isCharging()},
      {"draining", machine.battery.isDraining()},
      {"temperatureCelsius", static_cast<double>(machine.battery.temperatureHundredths()) / 100},
      {"adapterConnected", machine.adapter.isConnected()},
      {"chargingInhibited", machine.smc.chargingInhibited()},
      {"inflowInhibited", machine.smc.inflowInhibited()},
      {"smcKeys", keys},
      {"smcWrites", machine.smc.totalWrites()},
      {"forbiddenWrites", machine.smc.forbiddenWrites()},
      {"nativeLimit", machine.powerUI.currentLimit()},
      {"lidClosed", machine.lid.isClosed()},
      {"displayConnected", machine.lid.displayConnected()},
      {"sleepDisabled", machine.power.sleepDisabled()},
      {"assertions", assertions},
      {"helperPid", pid ? nlohmann::ordered_json(*pid) : nlohmann::ordered_json(nullptr)},
      {"helperStarts", server.launchd().starts()},
      {"callsUnderWay", callsUnderWay},
      {"lastCallOfEndedHelper",
       last ? nlohmann::ordered_json(describe(*last).id) : nlohmann::ordered_json(nullptr)},
      {"installedVersion",
       version == nullptr ? nlohmann::ordered_json() : nlohmann::ordered_json(*version)},
      {"enforcement", enforcementJSON(server.enforcement())},
      {"faults", activeFaults(machine)},
      {"root", server.options().root.path},
      {"web", pageJSON(server.options())},
  };
  return status.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace virtualmac
