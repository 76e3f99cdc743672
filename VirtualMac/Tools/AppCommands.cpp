#include "VirtualMac/Tools/AppCommands.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <thread>
#include <utility>

#include "HelperRecords.h"
#include "KorvelHelperProtocol.h"
#include "VirtualMac/Tools/AppConnection.h"
#include "VirtualMac/Tools/AppSession.h"
#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/HelperView.h"
#include "VirtualMac/Tools/StateText.h"

namespace virtualmac {

using korvel::PropertyValue;
namespace selector = korvel::KorvelHelperSelector;

namespace {

using nlohmann::ordered_json;

/// How soon a watcher comes back to a helper that went away.
constexpr double soonSeconds = 0.02;

struct Choices {
  std::string root;
  std::string identity = "app";
  bool asJSON = false;
  double timeoutSeconds = 5;
  std::string limit;
  std::string onOff;
  double watchSeconds = -1;  ///< Below 0: until it is ended.
  double everySeconds = 0.5;
};

int complain(const Choices& choices, const std::string& text,
             std::optional<std::int64_t> errorCode = std::nullopt) {
  return virtualmac::complain("korvel-app", choices.asJSON, text, exitFailed, errorCode);
}

int complain(const Choices& choices, const AppConnection::OpenError& error) {
  return virtualmac::complain("korvel-app", choices.asJSON, error.text,
                              error.isUsage ? exitUsage : exitFailed);
}

std::expected<AppConnection, AppConnection::OpenError> connect(const Choices& choices) {
  return AppConnection::open(RootDirectory::at(choices.root), choices.identity);
}

int printData(const Choices& choices, std::string_view name) {
  auto helper = connect(choices);
  if (!helper) return complain(choices, helper.error());
  const auto payload = dataReply(*helper, name, choices.timeoutSeconds);
  if (!payload) return complain(choices, payload.error());
  if (choices.asJSON || name == selector::getState) {
    fmt::print("{}\n", *payload);
    return exitDone;
  }
  const auto capabilities = korvel::decodeCapabilities(*payload);
  if (!capabilities) return complain(choices, capabilities.error());
  fmt::print("{}", capabilitiesText(*capabilities));
  return exitDone;
}

int ping(const Choices& choices) {
  auto helper = connect(choices);
  if (!helper) return complain(choices, helper.error());
  const auto values = helper->call(*xpcOperation(selector::ping), {}, choices.timeoutSeconds);
  if (!values) return complain(choices, values.error());
  const std::int64_t pid = std::get<PropertyValue>(values->front()).integer().value_or(0);
  if (choices.asJSON)
    fmt::print("{}\n", ordered_json{{"ok", true}, {"pid", pid}}.dump());
  else
    fmt::print("helper {}\n", pid);
  return exitDone;
}

/// The operations that succeed or fail, and the one that answers by going away.
int perform(const Choices& choices, std::string_view name,
            const std::vector<PropertyValue>& arguments) {
  auto helper = connect(choices);
  if (!helper) return complain(choices, helper.error());
  const XPCOperation& operation = *xpcOperation(name);
  if (operation.answer == XPCAnswer::None) {
    // Going away is its answer; whoever is cut off would take that for one.
    const auto alive = helper->call(*xpcOperation(selector::ping), {}, choices.timeoutSeconds);
    if (!alive) return complain(choices, alive.error());
  }
  const auto values = helper->call(operation, arguments, choices.timeoutSeconds);
  if (!values) return complain(choices, values.error());
  if (values->size() == 2 && !*std::get<PropertyValue>(values->front()).boolean()) {
    const auto* error = std::get_if<korvel::ErrorObject>(&(*values)[1]);
    if (error == nullptr) return complain(choices, "failed without an error");
    return complain(choices, error->localizedDescription(), error->code);
  }
  fmt::print("{}\n", choices.asJSON ? R"({"ok":true})" : "ok");
  return exitDone;
}

std::expected<HelperView, AppConnection::OpenError> view(const Choices& choices) {
  return HelperView::open(RootDirectory::at(choices.root), choices.identity,
                          choices.timeoutSeconds);
}

int status(const Choices& choices) {
  auto helper = view(choices);
  if (!helper) return complain(choices, helper.error());
  const auto seen = helper->look();
  if (!seen) return complain(choices, seen.error());
  if (choices.asJSON)
    fmt::print(R"({{"state":{},"capabilities":{},"enforcement":{}}})"
               "\n",
               seen->statePayload, seen->capabilitiesPayload,
               enforcementJSON(seen->told.enforcement).dump());
  else
    fmt::print("{}", stateText(seen->told));
  return exitDone;
}

void say(const std::string& line) {
  fmt::print("{}\n", line);
  flushOutput();
}

/// What a watcher has printed last.
struct Watched {
  std::string line;
  std::string loss;  ///< Empty: something was seen since.
};

/// Prints what is seen whenever it changes, and a loss once; true as long as the helper is there.
bool look(HelperView& helper, const Choices& choices, Watched& last) {
  const auto seen = helper.look();
  if (!seen) {
    if (std::exchange(last.loss, seen.error()) != seen.error())
      say(choices.asJSON ? ordered_json{{"lost", seen.error()}}.dump() : seen.error());
    return false;
  }
  last.loss.clear();
  const std::string line = choices.asJSON ? seen->statePayload : stateLine(seen->told);
  if (std::exchange(last.line, line) != line) say(line);
  return true;
}

/// Stays connected, as the application does, and comes back when the helper went away: soon, and
/// after a while when the helper gave nothing at all.
int watch(const Choices& choices) {
  using Clock = std::chrono::steady_clock;
  const auto begun = Clock::now();
  const auto over = [&] {
    return choices.watchSeconds >= 0 &&
           std::chrono::duration<double>(Clock::now() - begun).count() >= choices.watchSeconds;
  };
  Watched last;
  while (!over()) {
    auto helper = view(choices);
    if (!helper) return complain(choices, helper.error());
    double pause = choices.everySeconds;
    while (look(*helper, choices, last) && !over()) {
      pause = std::min(pause, soonSeconds);
      if (!helper->stayConnected(choices.everySeconds)) break;
    }
    if (!over()) std::this_thread::sleep_for(std::chrono::duration<double>(pause));
  }
  return exitDone;
}

/// A number as an operation's byte can carry it.
std::optional<std::int64_t> percent(const std::string& text) {
  std::uint8_t number = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// A number that the helper refuses by itself is let through: its refusal is worth a look.
CLI::Validator limitToAskFor() {
  const auto check = [](const std::string& text) -> std::string {
    return percent(text) ? "" : fmt::format("\"{}\" is not a whole number from 20 to 100", text);
  };
  return {check, "", "limit"};
}

struct Plain {
  const char* name;
  std::string_view selector;
  const char* description;
};

constexpr Plain plain[] = {
    {"clear-limit", selector::clearChargeLimit, "Remove the limit, leave charging to macOS"},
    {"top-off", selector::releaseLimitUntilFullThenRestore, "Charge to full once, then restore"},
    {"cancel-top-off", selector::cancelTopUp, "Give up a running top-off"},
    {"reset", selector::resetAllSMCKeys, "Put every charging key back to the system's default"},
    {"quit", selector::quit, "Shut the helper down"},
};

void addOperations(CLI::App& program, Choices& choices, std::function<int()>& chosen) {
  const auto add = [&](const char* name, const char* description, std::function<int()> run) {
    CLI::App* command = program.add_subcommand(name, description);
    command->callback([&chosen, run = std::move(run)] { chosen = run; });
    return command;
  };
  add("ping", "Ask whether the helper is alive", [&] { return ping(choices); });
  add("capabilities", "What this Mac lets the helper control",
      [&] { return printData(choices, selector::capabilities); });
  add("state", "The helper's record as it sends it",
      [&] { return printData(choices, selector::getState); });
  add("status", "What becomes of the limit, and why", [&] { return status(choices); });
  add("set-limit", "Hold the battery at a limit (the helper takes 20 to 100)",
      [&] {
        return perform(choices, selector::setChargeLimit, {PropertyValue(*percent(choices.limit))});
      })
      ->add_option("limit", choices.limit, "Percent")
      ->required()
      ->check(limitToAskFor());
  const auto addSwitch = [&](const char* name, std::string_view operation, const char* text) {
    add(name, text,
        [&choices, operation] {
          return perform(choices, operation, {PropertyValue(choices.onOff == "on")});
        })
        ->add_option("switch", choices.onOff, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));
  };
  addSwitch("discharge", selector::forceDischarge, "Drain the battery down to the limit");
  addSwitch("keep-awake", selector::setClamshellKeepAwake, "Stay awake with the lid closed");
  for (const Plain& each : plain)
    add(each.name, each.description,
        [&choices, name = each.selector] { return perform(choices, name, {}); });
  add("session", "Answer requests from standard input over one connection", [&] {
    return runSession(RootDirectory::at(choices.root), choices.identity, choices.timeoutSeconds);
  });
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

int runKorvelApp(int argc, char** argv) {
  CLI::App program("The application's side of the helper, on a virtual Mac.", "korvel-app");
  Choices choices;
  std::function<int()> chosen;
  program.require_subcommand(1);
  program.fallthrough();
  program.add_option("--root", choices.root, "The machine's directory, as for virtual-mac")
      ->check(notEmpty());
  program.add_option("--as", choices.identity, "Signing identity (virtual-mac identities)")
      ->capture_default_str();
  program.add_flag("--json", choices.asJSON, "Answer as JSON");
  program.add_option("--timeout", choices.timeoutSeconds, "Real seconds to wait for a reply")
      ->capture_default_str()
      ->check(numberBetween(0.001, longestWaitSeconds));
  addOperations(program, choices, chosen);
  return runCommandLine(program, {"--root", "--as", "--timeout"}, argc, argv,
                        [&] { return chosen(); });
}

}  // namespace virtualmac
