#include "VirtualMac/Tools/AppCommands.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <thread>
#include <utility>

#include "HelperRecords.h"
#include "Operations.h"
#include "VirtualMac/Remote/RequestWords.h"
#include "VirtualMac/Tools/AppAnswer.h"
#include "VirtualMac/Tools/AppConnection.h"
#include "VirtualMac/Tools/AppSession.h"
#include "VirtualMac/Tools/Colour.h"
#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/CompletionCommand.h"
#include "VirtualMac/Tools/Doctor.h"
#include "VirtualMac/Tools/HelperView.h"
#include "VirtualMac/Tools/JSONLine.h"
#include "VirtualMac/Tools/StateText.h"
#include "VirtualMac/Tools/Version.h"

namespace virtualmac {

using korvel::Operation;
using korvel::OperationAnswer;
using korvel::OperationArgument;
using korvel::PropertyValue;

namespace {

using nlohmann::ordered_json;

/// How soon a watcher comes back to a helper that went away.
constexpr double soonSeconds = 0.02;

struct AppChoices {
  std::string root;
  std::string identity = "app";
  bool asJSON = false;
  double timeoutSeconds = 5;
  std::string argument;      ///< Of the operation that was chosen.
  double watchSeconds = -1;  ///< Below 0: until it is ended.
  double everySeconds = 0.5;
  std::string reconnect = reconnectWords().front();
};

int complainFor(const AppChoices& choices, const std::string& text,
                std::optional<std::int64_t> errorCode = std::nullopt) {
  return complain("korvel-app", choices.asJSON, text, exitFailed, errorCode);
}

int complainFor(const AppChoices& choices, const AppConnection::OpenError& error) {
  return complain("korvel-app", choices.asJSON, error.text, error.isUsage ? exitUsage : exitFailed);
}

int printPid(const PropertyValue& value) {
  fmt::print("helper {}\n", value.integer().value_or(0));
  return exitDone;
}

int printData(const AppChoices& choices, const Operation& operation, const PropertyValue& value) {
  const std::string payload(value.data()->begin(), value.data()->end());
  if (operation.word != korvel::operation::capabilities.word) {
    fmt::print("{}\n", payload);
    return exitDone;
  }
  const auto capabilities = korvel::decodeCapabilities(payload);
  if (!capabilities) return complainFor(choices, capabilities.error());
  fmt::print("{}", capabilitiesText(*capabilities));
  return exitDone;
}

int printOutcome(const AppChoices& choices, const std::vector<XPCValue>& values) {
  if (values.size() == 2 && !*std::get<PropertyValue>(values.front()).boolean()) {
    const auto* error = std::get_if<korvel::ErrorObject>(&values[1]);
    if (error == nullptr) return complainFor(choices, "failed without an error");
    return complainFor(choices, error->localizedDescription(), error->code);
  }
  fmt::print("ok\n");
  return exitDone;
}

int printAnswer(const AppChoices& choices, const Operation& operation,
                const std::vector<XPCValue>& values) {
  if (choices.asJSON) {
    const ordered_json answer = answerJSON(operation, values);
    printJSON(answer);
    return answer.at("ok").get<bool>() ? exitDone : exitFailed;
  }
  if (operation.answer == OperationAnswer::Pid)
    return printPid(std::get<PropertyValue>(values.front()));
  if (operation.answer == OperationAnswer::Data)
    return printData(choices, operation, std::get<PropertyValue>(values.front()));
  return printOutcome(choices, values);
}

int perform(const AppChoices& choices, const Operation& operation) {
  auto helper = AppConnection::open(RootDirectory::at(choices.root), choices.identity);
  if (!helper) return complainFor(choices, helper.error());
  if (operation.answer == OperationAnswer::None) {
    // The closed connection stands for the reply. A ping first: a refused client's cut-off is not
    // to be taken for success.
    const auto alive = helper->call(korvel::operation::ping, 0, choices.timeoutSeconds);
    if (!alive) return complainFor(choices, alive.error());
  }
  const auto argument = argumentFrom(operation, choices.argument);
  if (!argument) return complainFor(choices, argument.error());
  const auto values = helper->call(operation, *argument, choices.timeoutSeconds);
  if (!values) return complainFor(choices, values.error());
  return printAnswer(choices, operation, *values);
}

std::expected<HelperView, AppConnection::OpenError> view(const AppChoices& choices) {
  return HelperView::open(RootDirectory::at(choices.root), choices.identity,
                          choices.timeoutSeconds);
}

int status(const AppChoices& choices) {
  auto helper = view(choices);
  if (!helper) return complainFor(choices, helper.error());
  const auto seen = helper->look();
  if (!seen) return complainFor(choices, seen.error());
  if (choices.asJSON)
    printJSON({{"ok", true},
               {"state", valueOf(seen->statePayload)},
               {"capabilities", valueOf(seen->capabilitiesPayload)},
               {"enforcement", enforcementJSON(seen->told.enforcement)}});
  else
    fmt::print("{}", stateText(seen->told));
  return exitDone;
}

/// One line, or one object, on standard output, whatever the state is.
int doctor(const AppChoices& choices) {
  const auto found =
      examine(RootDirectory::at(choices.root), choices.identity, choices.timeoutSeconds);
  if (!found) return complain("korvel-app", choices.asJSON, found.error(), exitUsage);
  const Diagnosis diagnosis = diagnosisOf(*found);
  const bool isInOrder = diagnosis.state == DoctorState::inOrder;
  if (choices.asJSON)
    printJSON(diagnosisJSON(diagnosis));
  else
    fmt::print("{}",
               toned(isInOrder ? Tone::Plain : Tone::Error, diagnosisText(diagnosis), stdout));
  return isInOrder ? exitDone : exitFailed;
}

/// Prints a line, or with --json the object in its place.
void say(const AppChoices& choices, const std::string& line, const ordered_json& object) {
  if (choices.asJSON)
    printJSON(object);
  else
    fmt::print("{}\n", line);
  flushOutput();
}

/// The last lines that a watcher has printed.
struct Watched {
  std::string line;
  std::string loss;  ///< Empty: something was seen since.
};

/// Prints what is seen whenever it changes, and a loss once; true as long as the helper is there.
bool look(HelperView& helper, const AppChoices& choices, Watched& last) {
  const auto seen = helper.look();
  if (!seen) {
    if (std::exchange(last.loss, seen.error()) != seen.error())
      say(choices, toned(Tone::Error, seen.error(), stdout), lostJSON(seen.error()));
    return false;
  }
  last.loss.clear();
  const std::string line = choices.asJSON ? seen->statePayload : stateLine(seen->told);
  if (std::exchange(last.line, line) != line)
    say(choices, line, {{"ok", true}, {"state", valueOf(seen->statePayload)}});
  return true;
}

/// Stays connected, as the application does, and comes back when the helper went away: soon, and
/// after a while when the helper gave nothing at all.
int watch(const AppChoices& choices) {
  using Clock = std::chrono::steady_clock;
  const auto begun = Clock::now();
  const auto over = [&] {
    return choices.watchSeconds >= 0 &&
           std::chrono::duration<double>(Clock::now() - begun).count() >= choices.watchSeconds;
  };
  Watched last;
  while (!over()) {
    auto helper = view(choices);
    if (!helper) return complainFor(choices, helper.error());
    double pause = choices.everySeconds;
    while (look(*helper, choices, last) && !over()) {
      pause = std::min(pause, soonSeconds);
      if (!helper->stayConnected(choices.everySeconds)) break;
    }
    if (!over()) std::this_thread::sleep_for(std::chrono::duration<double>(pause));
  }
  return exitDone;
}

/// A limit that the helper refuses by itself is let through: its refusal is worth a look.
CLI::Validator argumentFor(const Operation& operation) {
  const auto check = [&operation](const std::string& text) -> std::string {
    const auto given = argumentFrom(operation, text);
    if (given) return "";
    if (operation.argument == OperationArgument::Boolean) return given.error();
    return fmt::format("\"{}\" is not a whole number from 20 to 100", text);
  };
  return {check, "", "argument"};
}

struct Described {
  const Operation& operation;
  const char* description;
  const char* argument = nullptr;  ///< Its name in the help; null: it takes none.
};

constexpr Described described[] = {
    {korvel::operation::ping, "Ask whether the helper is alive"},
    {korvel::operation::capabilities, "What this Mac lets the helper control"},
    {korvel::operation::getState, "The helper's record as it sends it"},
    {korvel::operation::setChargeLimit, "Hold the battery at a limit (the helper takes 20 to 100)",
     "limit"},
    {korvel::operation::clearChargeLimit, "Remove the limit, leave charging to macOS"},
    {korvel::operation::forceDischarge, "Drain the battery down to the limit", "switch"},
    {korvel::operation::setClamshellKeepAwake, "Stay awake with the lid closed", "switch"},
    {korvel::operation::releaseLimitUntilFullThenRestore, "Charge to full once, then restore"},
    {korvel::operation::cancelTopUp, "Give up a running top-off"},
    {korvel::operation::resetAllSMCKeys, "Put every charging key back to the system's default"},
    {korvel::operation::quit, "Shut the helper down"},
};
static_assert(std::size(described) == korvel::operations.size());

void addOperations(CLI::App& program, AppChoices& choices, std::function<int()>& chosen) {
  for (const auto& [operation, description, argument] : described) {
    CLI::App* command = program.add_subcommand(std::string(operation.word), description);
    command->callback([&choices, &chosen, &asked = operation] {
      chosen = [&choices, &asked] { return perform(choices, asked); };
    });
    if (argument == nullptr) continue;
    const bool isSwitch = operation.argument == OperationArgument::Boolean;
    command->add_option(argument, choices.argument, isSwitch ? "on or off" : "Percent")
        ->required()
        ->type_name(isSwitch ? "SWITCH" : "PERCENT")
        ->check(argumentFor(operation));
  }
}

void addOtherCommands(CLI::App& program, AppChoices& choices, std::function<int()>& chosen) {
  const auto add = [&](const char* name, const char* description, std::function<int()> run) {
    CLI::App* command = program.add_subcommand(name, description);
    command->callback([&chosen, run = std::move(run)] { chosen = run; });
    return command;
  };
  add("status", "What becomes of the limit, and why", [&] { return status(choices); });
  add("doctor", "Name the one state that keeps the limit from being held, and its remedy",
      [&] { return doctor(choices); });
  CLI::App* session = add(
      "session", "For programs: answer requests from standard input, a JSON object a line", [&] {
        const auto when = std::ranges::find(reconnectWords(), choices.reconnect);
        return runSession(RootDirectory::at(choices.root),
                          {choices.identity, choices.timeoutSeconds,
                           static_cast<Reconnect>(std::distance(reconnectWords().begin(), when))});
      });
  session
      ->add_option("--reconnect", choices.reconnect, "When to connect again once the helper went")
      ->capture_default_str()
      ->check(CLI::IsMember(reconnectWords()));
  session->footer(
      "A line of input is a request in the words of the other commands: set-limit 80, state.\n"
      "A line of output with \"ok\" answers it; one with \"event\" tells that the session has\n"
      "connected or was disconnected. docs/client.md has all of them.");
  CLI::App* watching =
      add("watch", "Stay connected and say what becomes of the limit when it changes",
          [&] { return watch(choices); });
  watching->add_option("--for", choices.watchSeconds, "Real seconds; default: until ended")
      ->check(numberBetween(0, longestWaitSeconds));
  watching->add_option("--every", choices.everySeconds, "Real seconds between two looks")
      ->capture_default_str()
      ->check(numberBetween(0.01, 3600));
}

}  // namespace

int runKorvelApp(int argc, char** argv, const std::string& commit) {
  CLI::App program("The application's side of the helper, on a virtual Mac.", "korvel-app");
  AppChoices choices;
  std::function<int()> chosen;
  program.require_subcommand(1);
  program.fallthrough();
  program
      .add_option("--root", choices.root,
                  "The machine's directory (default: $VIRTUAL_MAC_ROOT, else as for virtual-mac)")
      ->type_name("FOLDER")
      ->check(notEmpty());
  program.add_option("--as", choices.identity, "Signing identity (virtual-mac identities)")
      ->type_name("IDENTITY")
      ->capture_default_str();
  program.add_flag("--json", choices.asJSON, "Answer as JSON");
  program.add_option("--timeout", choices.timeoutSeconds, "Real seconds to wait for a reply")
      ->capture_default_str()
      ->check(numberBetween(0.001, longestWaitSeconds));
  addVersion(program, commit);
  addOperations(program, choices, chosen);
  addOtherCommands(program, choices, chosen);
  addCompletion(program, chosen);
  return runCommandLine(program, {"--root", "--as", "--timeout"}, argc, argv,
                        [&] { return chosen(); });
}

}  // namespace virtualmac
