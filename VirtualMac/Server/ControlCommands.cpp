#include "VirtualMac/Server/ControlCommands.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "VirtualMac/Machine/FaultNames.h"
#include "VirtualMac/Machine/Nearest.h"
#include "VirtualMac/Server/MachineServer.h"
#include "VirtualMac/Server/MachineStatus.h"

namespace virtualmac {

namespace {

using Words = std::vector<std::string>;
using Outcome = ControlReply::Outcome;

ControlReply done(std::string text) { return {Outcome::Done, std::move(text), {}}; }
ControlReply failed(std::string text) { return {Outcome::Failed, std::move(text), {}}; }
ControlReply usage(std::string text) { return {Outcome::Usage, std::move(text), {}}; }

std::optional<double> numberIn(const std::string& word, double low, double high) {
  char* end = nullptr;
  const double value = std::strtod(word.c_str(), &end);
  const bool within = value >= low && value <= high;
  if (word.empty() || *end != '\0' || !within) return std::nullopt;
  return value;
}

/// Makes a change. Text: why this Mac cannot; empty: done.
using Apply = std::string (*)(Machine&, const std::string& word, double number);

/// One thing that `set` sets: its words, or numbers in a range.
struct Setting {
  std::string_view name;
  Words allowed;  ///< Words; empty: a number only.
  double low = 0;
  double high = -1;  ///< Below `low`: no number.
  bool whole = false;
  Apply apply = nullptr;
};

std::string setBattery(Machine& mac, const std::string&, double percent) {
  if (!mac.battery.isPresent()) return "this Mac has no battery";
  mac.battery.setPercent(percent);
  return "";
}

std::string setAdapter(Machine& mac, const std::string& word, double) {
  if (word == "renegotiate" && !mac.adapter.isConnected()) return "no adapter is connected";
  if (word == "on") mac.adapter.connect();
  if (word == "off") mac.adapter.disconnect();
  if (word == "renegotiate") mac.adapter.renegotiate();
  return "";
}

std::string setLid(Machine& mac, const std::string& word, double) {
  if (!mac.lid.exists()) return "this Mac has no lid";
  word == "open" ? mac.lid.open() : mac.lid.close();
  return "";
}

std::string setDisplay(Machine& mac, const std::string& word, double) {
  word == "on" ? mac.lid.connectDisplay() : mac.lid.disconnectDisplay();
  return "";
}

std::string setTemperature(Machine& mac, const std::string& word, double celsius) {
  if (!mac.battery.isPresent()) return "this Mac has no battery";
  mac.battery.setTemperatureCelsius(word == "free" ? std::nullopt : std::optional(celsius));
  return "";
}

std::string setAmbient(Machine& mac, const std::string&, double celsius) {
  mac.battery.setAmbientCelsius(celsius);
  return "";
}

std::string setNativeLimit(Machine& mac, const std::string&, double percent) {
  if (!mac.profile().powerUI.present) return "this Mac's system has no charge limit";
  mac.powerUI.setLimitByUser(static_cast<std::uint8_t>(percent));
  return "";
}

std::string setSleepDisabled(Machine& mac, const std::string& word, double) {
  mac.power.setSleepDisabledExternally(word == "on");
  return "";
}

std::string setIdleSleep(Machine& mac, const std::string&, double minutes) {
  mac.power.setIdleSleepMinutes(static_cast<std::int64_t>(minutes));
  return "";
}

const std::vector<Setting>& settings() {
  static const std::vector<Setting> all = {
      {"battery", {}, 0, 100, false, setBattery},
      {"adapter", {"on", "off", "renegotiate"}, 0, -1, false, setAdapter},
      {"lid", {"open", "closed"}, 0, -1, false, setLid},
      {"display", {"on", "off"}, 0, -1, false, setDisplay},
      {"temperature", {"free"}, lowestCelsius, highestCelsius, false, setTemperature},
      {"ambient", {}, lowestCelsius, highestCelsius, false, setAmbient},
      {"native-limit", {}, 0, 100, true, setNativeLimit},
      {"sleep-disabled", {"on", "off"}, 0, -1, false, setSleepDisabled},
      {"idle-sleep", {}, 0, 1440, true, setIdleSleep},
  };
  return all;
}

std::string allowedValues(const Setting& setting) {
  std::string text;
  for (const std::string& word : setting.allowed) text += (text.empty() ? "" : ", ") + word;
  if (setting.high < setting.low) return text;
  return fmt::format("{}{}{}{:g} to {:g}", text, text.empty() ? "" : ", ",
                     setting.whole ? "whole numbers from " : "", setting.low, setting.high);
}

ControlReply set(MachineServer& server, const Words& words) {
  Words names;
  for (const Setting& each : settings()) names.emplace_back(each.name);
  if (words.size() != 2) return usage("set takes what to set and a value");
  for (const Setting& setting : settings()) {
    if (setting.name != words[0]) continue;
    std::optional<double> number = numberIn(words[1], setting.low, setting.high);
    if (setting.whole && number && *number != std::floor(*number)) number.reset();
    const bool known = std::find(setting.allowed.begin(), setting.allowed.end(), words[1]) !=
                       setting.allowed.end();
    if (!known && !number && setting.high < setting.low)
      return usage(unknownWord(words[0], words[1], setting.allowed));
    if (!known && !number)
      return usage(fmt::format("{} \"{}\" is not allowed (allowed: {})", words[0], words[1],
                               allowedValues(setting)));
    const std::string problem = server.change(
        [&](Machine& mac) { return setting.apply(mac, words[1], number.value_or(0)); });
    return problem.empty() ? done("") : failed(problem);
  }
  return usage(unknownWord("setting", words[0], names));
}

}  // namespace

ControlReply faultList(const Words& active) {
  ControlReply reply;
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  for (const FaultDescription& fault : faultCatalogue()) {
    const std::string use = std::string(fault.name) + (fault.arguments.empty() ? "" : " ") +
                            std::string(fault.arguments);
    reply.text += fmt::format("{:<36} {}\n", use, fault.text);
    all.push_back({{"name", fault.name}, {"arguments", fault.arguments}, {"text", fault.text}});
  }
  for (const std::string& line : active) reply.text += "on: " + line + '\n';
  reply.json = nlohmann::ordered_json{{"faults", all}, {"on", active}}.dump();
  return reply;
}

namespace {

ControlReply fault(MachineServer& server, const Words& words) {
  if (words == Words{"list"}) return faultList(activeFaults(server.machine()));
  if (words.size() < 2 || (words.back() != "on" && words.back() != "off"))
    return usage("fault takes a name, its arguments, and on or off; or list");
  const std::span<const std::string> arguments(words.data() + 1, words.size() - 2);
  const auto set = server.change(
      [&](Machine& mac) { return setFault(mac, words.front(), arguments, words.back() == "on"); });
  return set ? done("") : usage(set.error());
}

ControlReply killHelper(MachineServer& server, const Words& words) {
  static const std::map<std::string, int, std::less<>> signals = {
      {"KILL", SIGKILL}, {"TERM", SIGTERM}, {"INT", SIGINT},
      {"ABRT", SIGABRT}, {"STOP", SIGSTOP}, {"CONT", SIGCONT}};
  if (words.size() > 1)
    return usage(fmt::format("kill takes one signal, not also \"{}\"", words[1]));
  const std::string name = words.empty() ? "KILL" : words.front();
  const auto found = signals.find(name);
  if (found == signals.end()) {
    Words names;
    for (const auto& [each, number] : signals) names.push_back(each);
    return usage(unknownWord("signal", name, names));
  }
  const auto pid = server.launchd().helper();
  if (!pid || !server.signalHelper(found->second)) return failed("the helper is not running");
  return done(fmt::format("{} to helper {}\n", name, *pid));
}

ControlReply speed(MachineServer& server, const Words& words) {
  if (words.size() != 1) return usage("speed takes one number from 0.01 to 10000");
  const std::optional<double> factor = numberIn(words.front(), 0.01, 10000);
  if (!factor)
    return usage(
        fmt::format("speed \"{}\" is not allowed (allowed: 0.01 to 10000)", words.front()));
  server.timeDriver().setSpeed(*factor);
  server.machine().tell(fmt::format("speed {:g}", *factor));
  return done("");
}

ControlReply identities(MachineServer& server, const Words&) {
  ControlReply reply;
  for (const std::string& name : server.machine().signatures.names()) reply.text += name + '\n';
  reply.json = nlohmann::json(server.machine().signatures.names()).dump();
  return reply;
}

ControlReply status(MachineServer& server, const Words&) {
  server.change([](Machine&) {});
  return {Outcome::Done, statusText(server), statusJSON(server)};
}

ControlReply sleepMachine(MachineServer& server, const Words&) {
  server.change([](Machine& mac) { mac.power.requestSleep(); });
  return done("");
}

ControlReply wakeMachine(MachineServer& server, const Words&) {
  server.change([](Machine& mac) { mac.power.wake(); });
  return done("");
}

ControlReply losePower(MachineServer& server, const Words&) {
  server.powerLoss();
  return done("");
}

using Simple = ControlReply (*)(MachineServer&, const Words&);
const std::map<std::string, Simple, std::less<>>& simpleCommands() {
  static const std::map<std::string, Simple, std::less<>> all = {
      {"fault", fault},     {"identities", identities},
      {"kill", killHelper}, {"power-loss", losePower},
      {"set", set},         {"sleep", sleepMachine},
      {"speed", speed},     {"status", status},
      {"wake", wakeMachine}};
  return all;
}

}  // namespace

void runControlCommand(MachineServer& server, const std::string& command, const Words& arguments,
                       const ControlAnswer& answer) {
  if (command == "reboot") return server.reboot([answer] { answer(done("")); });
  const auto found = simpleCommands().find(command);
  if (found != simpleCommands().end()) return answer(found->second(server, arguments));
  Words names{"reboot"};
  for (const auto& [name, function] : simpleCommands()) names.push_back(name);
  answer(usage(unknownWord("command", command, names)));
}

}  // namespace virtualmac
