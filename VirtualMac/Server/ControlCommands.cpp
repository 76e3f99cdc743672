#include "VirtualMac/Server/ControlCommands.h"

#include <fmt/format.h>

#include <csignal>
#include <map>
#include <nlohmann/json.hpp>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/Deeds.h"
#include "VirtualMac/Machine/Faults.h"
#include "VirtualMac/Machine/Nearest.h"
#include "VirtualMac/Server/MachineServer.h"
#include "VirtualMac/Server/MachineStatus.h"
#include "VirtualMac/Server/Vocabulary.h"

namespace virtualmac {

namespace {

using Words = std::vector<std::string>;
using Outcome = ControlReply::Outcome;

ControlReply done(std::string text) { return {Outcome::Done, std::move(text), {}}; }
ControlReply failed(std::string text) { return {Outcome::Failed, std::move(text), {}}; }
ControlReply usage(std::string text) { return {Outcome::Usage, std::move(text), {}}; }

ControlReply perform(MachineServer& server, const Deed& deed, const GivenValue& value) {
  const std::string problem = server.change([&](Machine& mac) { return deed.perform(mac, value); });
  return problem.empty() ? done("") : failed(problem);
}

ControlReply set(MachineServer& server, const Words& words) {
  if (words.size() != 2) return usage("set takes what to set and a value");
  const Deed* deed = deedNamed(words[0]);
  if (deed == nullptr || !deed->values)
    return usage(unknownWord("setting", words[0], deedNames(true)));
  const auto value = deed->values->read(words[0], words[1]);
  return value ? perform(server, *deed, *value) : usage(value.error());
}

ControlReply fault(MachineServer& server, const Words& words) {
  if (words == Words{"list"}) return faultList(activeFaults(server.machine()));
  if (const auto defect = faultDefect(words)) return usage(*defect);
  const auto set = server.change([&](Machine& mac) { return switchFault(mac, words); });
  return set ? done("") : usage(set.error());
}

const std::map<std::string, int, std::less<>>& signals() {
  static const std::map<std::string, int, std::less<>> all = {{"KILL", SIGKILL}, {"TERM", SIGTERM},
                                                              {"INT", SIGINT},   {"ABRT", SIGABRT},
                                                              {"STOP", SIGSTOP}, {"CONT", SIGCONT}};
  return all;
}

ControlReply killHelper(MachineServer& server, const Words& words) {
  if (words.size() > 1)
    return usage(fmt::format("kill takes one signal, not also \"{}\"", words[1]));
  const std::string name = words.empty() ? "KILL" : words.front();
  const auto found = signals().find(name);
  if (found == signals().end()) return usage(unknownWord("signal", name, signalNames()));
  const auto pid = server.launchd().helper();
  if (!pid || !server.signalHelper(found->second)) return failed("the helper is not running");
  return done(fmt::format("{} to helper {}\n", name, *pid));
}

ControlReply speed(MachineServer& server, const Words& words) {
  if (words.size() != 1) return usage("speed takes one number from 0.01 to 10000");
  const auto factor =
      AllowedValues{{}, bounds::slowest, bounds::fastest}.read("speed", words.front());
  if (!factor) return usage(factor.error());
  server.timeDriver().setSpeed(factor->number);
  server.machine().tell(fmt::format("speed {:g}", factor->number));
  return done("");
}

/// Puts another program in the helper's place. One that runs goes on as it is, as on a Mac.
ControlReply install(MachineServer& server, const Words& words) {
  if (words.size() != 1 || words.front().empty()) return usage("install takes one version");
  server.change([&](Machine& mac) { mac.installHelper(words.front()); });
  return done("");
}

ControlReply identities(MachineServer& server, const Words&) {
  ControlReply reply;
  for (const std::string& name : server.machine().signatures.names()) reply.text += name + '\n';
  reply.json =
      nlohmann::ordered_json{{"ok", true}, {"identities", server.machine().signatures.names()}}
          .dump();
  return reply;
}

ControlReply status(MachineServer& server, const Words&) {
  server.change([](Machine&) {});
  return {Outcome::Done, statusText(server), statusJSON(server)};
}

ControlReply losePower(MachineServer& server, const Words&) {
  server.powerLoss();
  return done("");
}

constexpr std::string_view rebootWord = "reboot";
constexpr std::string_view powerLossWord = "power-loss";

ControlReply vocabulary(MachineServer& server, const Words&) {
  return {Outcome::Done,
          {},
          vocabularyJSON(server.machine(), signalNames(), {rebootWord, powerLossWord})};
}

using Simple = ControlReply (*)(MachineServer&, const Words&);
const std::map<std::string, Simple, std::less<>>& simpleCommands() {
  static const std::map<std::string, Simple, std::less<>> all = {
      {"fault", fault},
      {"identities", identities},
      {"install", install},
      {"kill", killHelper},
      {std::string(powerLossWord), losePower},
      {"set", set},
      {"speed", speed},
      {"status", status},
      {"vocabulary", vocabulary}};
  return all;
}

}  // namespace

std::vector<std::string> signalNames() {
  Words names;
  for (const auto& [name, number] : signals()) names.push_back(name);
  return names;
}

nlohmann::ordered_json faultsJSON() {
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  for (const Fault& fault : faultCatalogue())
    all.push_back({{"name", fault.name}, {"arguments", fault.arguments}, {"text", fault.text}});
  return all;
}

ControlReply faultList(const Words& active) {
  ControlReply reply;
  for (const Fault& fault : faultCatalogue()) {
    const std::string use = std::string(fault.name) + (fault.arguments.empty() ? "" : " ") +
                            std::string(fault.arguments);
    reply.text += fmt::format("{:<36} {}\n", use, fault.text);
  }
  for (const std::string& line : active) reply.text += "on: " + line + '\n';
  reply.json =
      nlohmann::ordered_json{{"ok", true}, {"faults", faultsJSON()}, {"on", active}}.dump();
  return reply;
}

void runControlCommand(MachineServer& server, const std::string& command, const Words& arguments,
                       const ControlAnswer& answer) {
  if (command == rebootWord) return server.reboot([answer] { answer(done("")); });
  const auto found = simpleCommands().find(command);
  if (found != simpleCommands().end()) return answer(found->second(server, arguments));
  const Deed* deed = deedNamed(command);
  if (deed != nullptr && !deed->values) return answer(perform(server, *deed, {}));
  Words names{std::string(rebootWord)};
  for (const auto& [name, function] : simpleCommands()) names.push_back(name);
  for (const std::string_view name : deedNames(false)) names.emplace_back(name);
  answer(usage(unknownWord("command", command, names)));
}

}  // namespace virtualmac
