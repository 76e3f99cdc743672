#include "VirtualMac/Tools/Doctor.h"

#include <fmt/format.h>

#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string_view>
#include <thread>
#include <utility>

#include "VirtualMac/Schedule/Journal.h"
#include "VirtualMac/Tools/Explain.h"

namespace virtualmac {

namespace {

using Clock = std::chrono::steady_clock;
using Loop = Enforcement::Loop;

/// A loop that was just armed writes at once, unless there is nothing to write.
constexpr double firstTickSeconds = 1;
constexpr double journalSeconds = 2;
constexpr std::chrono::milliseconds shortWhile{20};

Clock::time_point deadlineIn(double seconds) {
  return Clock::now() +
         std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

struct StateWords {
  std::string_view name, sentence, remedy;
};
constexpr StateWords words[] = {
#define DOCTOR_STATE(id, name, sentence, remedy) {name, sentence, remedy},
#include "VirtualMac/Tools/DoctorStates.def"
#undef DOCTOR_STATE
};

const StateWords& wordsOf(DoctorState state) { return words[static_cast<std::size_t>(state)]; }

std::string filled(std::string_view text, const std::string& found) {
  const std::size_t place = text.find("{}");
  if (place == std::string_view::npos) return std::string(text);
  return std::string(text.substr(0, place)) + found + std::string(text.substr(place + 2));
}

Diagnosis made(DoctorState state, const std::string& found = {}, const std::string& remedy = {}) {
  return {state, filled(wordsOf(state).sentence, found), filled(wordsOf(state).remedy, remedy)};
}

/// The log's line about a limit that is not applied, with the remedy of what stands last in it.
Diagnosis notApplied(const std::string& line) {
  const auto explained = explain(line);
  if (!explained)
    return made(DoctorState::notApplied, line, "Read the helper's log; restart the helper.");
  if (explained->parts.empty())
    return made(DoctorState::notApplied, line, explained->message->remedy);
  const ExplainedPart& last = explained->parts.back();
  return made(DoctorState::notApplied, fmt::format("{} ({})", line, last.meaning), last.remedy);
}

/// Nothing was seen of the helper.
Diagnosis withoutLook(const ClientFindings& found) {
  if (!found.machineIsUp) return made(DoctorState::noMachine, found.problem);
  if (!found.helperHasTeam) return made(DoctorState::noTeam);
  if (!found.helperRuns) return made(DoctorState::notStarted, found.problem);
  if (found.problem == AppConnection::cutOff) return made(DoctorState::refused);
  return made(DoctorState::noAnswer, found.problem);
}

std::string lastErrorOf(const Enforcement& now) {
  return now.lastError ? now.lastError->text : "the last write did not take hold";
}

/// By the log of the start of this helper; none: the journal does not tell of it yet.
std::optional<bool> startHadTeam(const RootDirectory& root, std::int64_t pid) {
  constexpr std::string_view noTeam = " team=";
  const std::string start = fmt::format("KorvelHelper starting pid={} ", pid);
  std::optional<bool> had;
  std::ifstream journal(root.journal());
  for (std::string line; std::getline(journal, line);) {
    const auto entry = journalEntryFrom(line);
    if (entry && entry->message().starts_with(start)) had = !entry->message().ends_with(noTeam);
  }
  return had;
}

/// The same, once the journal tells: a log line comes there on a way of its own.
bool hasTeam(const RootDirectory& root, std::int64_t pid) {
  const auto deadline = deadlineIn(journalSeconds);
  for (;;) {
    const auto had = startHadTeam(root, pid);
    if (had || Clock::now() >= deadline) return had.value_or(true);
    std::this_thread::sleep_for(shortWhile);
  }
}

/// Looks until an armed loop has told an outcome, or has had the time to.
std::expected<HelperView::Look, std::string> lookFor(HelperView& helper) {
  const auto deadline = deadlineIn(firstTickSeconds);
  for (;;) {
    auto seen = helper.look();
    if (!seen || seen->told.enforcement.loop != Loop::Running || seen->told.enforcement.outcome ||
        !seen->told.capabilities.canControlCharging() || Clock::now() >= deadline)
      return seen;
    std::this_thread::sleep_for(shortWhile);
  }
}

/// Takes what the machine tells of its helper.
void askMachine(const RootDirectory& root, ClientFindings& found) {
  auto machine = ControlClient::connect(root);
  if (!machine) {
    found.problem = machine.error();
    return;
  }
  machine->send({{"command", "status"}});
  const auto reply = machine->receive();
  if (!reply) return;
  const auto status = nlohmann::json::parse(reply->value("json", std::string()), nullptr, false);
  if (!status.is_object()) return;
  found.machineIsUp = true;
  const auto pid = status.find("helperPid");
  found.helperRuns = pid != status.end() && pid->is_number();
  if (found.helperRuns && !found.told)
    found.helperHasTeam = hasTeam(root, pid->get<std::int64_t>());
  if (const auto version = status.find("installedVersion");
      version != status.end() && version->is_string())
    found.installedVersion = version->get<std::string>();
}

}  // namespace

Diagnosis diagnosisOf(const ClientFindings& found) {
  if (!found.told) return withoutLook(found);
  const auto& [state, capabilities, now, before] = *found.told;
  if (found.installedVersion && state.helperVersion != found.installedVersion)
    return made(DoctorState::otherVersion,
                fmt::format("helper {} runs, and {} is installed",
                            state.helperVersion.value_or("of an unknown version"),
                            *found.installedVersion));
  if (!capabilities.canControlCharging()) return made(DoctorState::noCapability);
  if (now.failing && now.outcome)
    return notApplied(
        fmt::format("charge enforcement {} — limit is NOT being applied", *now.outcome));
  if (!state.lastWriteVerified) return notApplied(lastErrorOf(now));
  return made(DoctorState::inOrder, stateLine(*found.told));
}

std::expected<ClientFindings, std::string> examine(const RootDirectory& root,
                                                   const std::string& identity,
                                                   double timeoutSeconds) {
  ClientFindings found;
  auto helper = HelperView::open(root, identity, timeoutSeconds);
  if (!helper && helper.error().isUsage) return std::unexpected(helper.error().text);
  if (!helper) {
    found.problem = helper.error().text;
  } else if (auto seen = lookFor(*helper)) {
    found.told = std::move(seen->told);
  } else {
    found.problem = seen.error();
  }
  askMachine(root, found);
  return found;
}

std::string diagnosisText(const Diagnosis& diagnosis) {
  std::string line = fmt::format("{}: {}", wordsOf(diagnosis.state).name, diagnosis.text);
  if (diagnosis.state == DoctorState::inOrder) return line + '\n';
  return fmt::format("{}. What to do: {}\n", line, diagnosis.remedy);
}

nlohmann::ordered_json diagnosisJSON(const Diagnosis& diagnosis) {
  const bool isInOrder = diagnosis.state == DoctorState::inOrder;
  nlohmann::ordered_json made{{"ok", isInOrder}, {"state", wordsOf(diagnosis.state).name}};
  if (!isInOrder) made["error"] = diagnosis.text;
  made["text"] = diagnosis.text;
  made["remedy"] = diagnosis.remedy;
  return made;
}

}  // namespace virtualmac
