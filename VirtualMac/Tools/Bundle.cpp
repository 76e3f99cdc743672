#include "VirtualMac/Tools/Bundle.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/Date.h"
#include "HelperRecords.h"
#include "Operations.h"
#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Schedule/Journal.h"
#include "VirtualMac/Server/ControlClient.h"
#include "VirtualMac/Tools/AppConnection.h"

namespace virtualmac {

namespace {

using nlohmann::ordered_json;

constexpr std::size_t lastLogLines = 500;
constexpr std::size_t lastJournalLines = 2000;
constexpr std::size_t lastErrorLines = 100;

ordered_json unavailable(const std::string& why) { return {{"problem", why}}; }

ordered_json parsed(const std::string& text) {
  if (jsonDefect(text)) return text;
  return ordered_json::parse(text);
}

/// The last lines of a file that satisfy `wanted`.
template <class Wanted>
ordered_json lastLines(const std::string& path, std::size_t most, const Wanted& wanted) {
  std::ifstream file(path);
  if (!file.is_open()) return unavailable("there is no such file");
  std::deque<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    if (!wanted(line)) continue;
    lines.push_back(std::move(line));
    if (lines.size() > most) lines.pop_front();
  }
  return ordered_json(lines);
}

bool any(const std::string&) { return true; }

bool isLog(const std::string& line) {
  const auto entry = journalEntryFrom(line);
  return entry && entry->tells(EffectID::logged);
}

/// The answer of the machine to a command, as JSON.
ordered_json askMachine(ControlClient& machine, const char* command) {
  machine.send({{"command", command}});
  const auto reply = machine.receive();
  if (!reply || !reply->value("ok", false)) return unavailable("the machine does not answer");
  const auto json = reply->find("json");
  if (json == reply->end() || !json->is_string()) return unavailable("the machine does not know");
  return parsed(json->get<std::string>());
}

ordered_json askHelper(AppConnection& helper, const korvel::Operation& operation,
                       double timeoutSeconds) {
  const auto values = helper.call(operation, 0, timeoutSeconds);
  if (!values) return unavailable(values.error());
  const auto* bytes = std::get<korvel::PropertyValue>(values->front()).data();
  return parsed(std::string(bytes->begin(), bytes->end()));
}

ordered_json helperPart(const BundleRequest& request) {
  if (!request.asks) return unavailable("it was not asked");
  auto helper = AppConnection::open(request.root, "app");
  if (!helper) return unavailable(helper.error().text);
  ordered_json part;
  part["capabilities"] =
      askHelper(*helper, korvel::operation::capabilities, request.timeoutSeconds);
  // A helper that never answers is not waited for a second time.
  part["state"] = part["capabilities"].contains("problem")
                      ? part["capabilities"]
                      : askHelper(*helper, korvel::operation::getState, request.timeoutSeconds);
  return part;
}

void replaceAll(std::string& text, const std::string& what, std::string_view by) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
    text.replace(at, what.size(), by);
    at += by.size();
  }
}

/// Takes the names of places out of every text.
void redact(ordered_json& value, const std::vector<std::pair<std::string, std::string>>& places) {
  if (value.is_string()) {
    for (const auto& [path, name] : places)
      replaceAll(value.get_ref<ordered_json::string_t&>(), path, name);
  }
  if (!value.is_structured()) return;
  for (auto& each : value) redact(each, places);
}

std::vector<std::pair<std::string, std::string>> privatePlaces(const RootDirectory& root) {
  std::vector<std::pair<std::string, std::string>> places{{root.path, "ROOT"}};
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  const char* home = std::getenv("HOME");
  if (home != nullptr && std::string_view(home).size() > 1) places.emplace_back(home, "HOME");
  return places;
}

ordered_json moment() {
  const std::chrono::duration<double> since = std::chrono::system_clock::now().time_since_epoch();
  return korvel::iso8601Text(korvel::Date{since.count() - korvel::unixToReferenceSeconds});
}

ordered_json versionsOf(const ordered_json& machine, const ordered_json& helper) {
  const auto at = [](const ordered_json& object, const char* key) {
    return object.is_object() && object.contains(key) ? object[key] : ordered_json();
  };
  return {{"installed", at(machine, "installedVersion")},
          {"running", at(at(helper, "state"), "helperVersion")}};
}

}  // namespace

std::expected<ordered_json, std::string> bundleOf(const BundleRequest& request) {
  const RootDirectory& root = request.root;
  if (auto distrust = root.distrust()) return std::unexpected(*std::move(distrust));
  auto machine = ControlClient::connect(root);
  if (!machine && !std::ifstream(root.journal()).is_open())
    return std::unexpected(machine.error() + ", and there is no journal of one");

  ordered_json bundle{{"made", moment()}, {"versions", nullptr}};
  bundle["machine"] = machine ? askMachine(*machine, "status") : unavailable(machine.error());
  const auto profile = readTextFile(profileFileOf(root));
  bundle["profile"] = profile ? parsed(*profile) : unavailable(profile.error());
  const auto stateFile =
      readTextFile(root.applicationSupport() + "/com.korvel.app.helper/state.json");
  bundle["stateFile"] = stateFile ? ordered_json(*stateFile) : unavailable(stateFile.error());
  bundle["log"] = lastLines(root.journal(), lastLogLines, isLog);
  bundle["journal"] = lastLines(root.journal(), lastJournalLines, any);
  bundle["helperErrors"] = lastLines(root.helperErrors(), lastErrorLines, any);
  bundle["machineErrors"] = lastLines(root.machineErrors(), lastErrorLines, any);
  bundle["helper"] = machine ? helperPart(request) : unavailable(machine.error());
  bundle["versions"] = versionsOf(bundle["machine"], bundle["helper"]);
  redact(bundle, privatePlaces(root));
  return bundle;
}

}  // namespace virtualmac
