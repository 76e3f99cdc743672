#include "VirtualMac/Tools/MachineCommands.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <csignal>
#include <expected>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/Deeds.h"
#include "VirtualMac/Server/ControlClient.h"
#include "VirtualMac/Server/ControlCommands.h"
#include "VirtualMac/Server/RandomName.h"
#include "VirtualMac/Tools/Bundle.h"
#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/HelperProgram.h"
#include "VirtualMac/Tools/JSONLine.h"
#include "VirtualMac/Tools/JournalOption.h"
#include "VirtualMac/Tools/JournalReader.h"
#include "VirtualMac/Tools/LaunchCommand.h"
#include "VirtualMac/Tools/MachineDaemon.h"
#include "VirtualMac/Tools/Version.h"
#include "VirtualMac/Web/PageLaunch.h"
#include "VirtualMac/Web/PagePlace.h"

namespace virtualmac {

namespace {

using nlohmann::json;

/// The options of the command line.
struct MachineChoices {
  std::string root;
  bool asJSON = false;
  std::string profile = "newer-keys";
  double speed = 1;
  bool foreground = false;
  bool verbose = false;
  std::string helper;
  std::optional<int> pagePort;  ///< None: no page.
  bool tin = false;
  std::vector<std::string> words;  ///< The arguments of a forwarded command, or a program's.
  std::string identity = "app";
  JournalQuery query;
};

int complainFor(const MachineChoices& choices, const std::string& text, int exitCode) {
  return complain("virtual-mac", choices.asJSON, text, exitCode);
}

constexpr int highestPort = 65535;
/// So many make 16 digits.
constexpr std::size_t bytesOfRun = 8;

/// Opens the page of a machine that is to come up, and tells the machine of it.
std::expected<ComingPage, std::string> pageOf(MachineOptions& options, int port) {
  if (ControlClient::connect(options.root)) return std::unexpected(alreadyUpText(options.root));
  auto page = preparePage(options.root, port);
  if (!page) return page;
  options.pagePort = page->port;
  options.pageLink = page->link;
  return page;
}

void tellUp(const MachineChoices& choices, const MachineOptions& options, const std::string& note,
            pid_t pid, pid_t pagePid) {
  if (choices.asJSON) {
    nlohmann::ordered_json answer{
        {"ok", true}, {"profile", options.profile.name}, {"root", options.root.path}, {"pid", pid}};
    if (!options.pageLink.empty())
      answer["web"] = {{"port", options.pagePort}, {"link", options.pageLink}, {"pid", pagePid}};
    if (!note.empty()) answer["note"] = note;
    printJSON(answer);
  } else {
    if (!note.empty()) fmt::print(stderr, "virtual-mac: {}\n", note);
    fmt::print("{} is up at {:g}x, root {}\n", options.profile.name, options.speed,
               options.root.path);
    if (!options.pageLink.empty()) fmt::print("{}\n", options.pageLink);
  }
  std::fflush(stdout);
}

int runInForeground(const MachineChoices& choices, const MachineOptions& options,
                    const std::function<std::optional<std::string>(pid_t)>& announce) {
  bool failed = false;
  const int status = runMachine(options, [&](const std::string& problem) {
    const auto trouble = problem.empty() ? announce(::getpid()) : problem;
    if (!trouble) return;
    complainFor(choices, *trouble, exitFailed);
    failed = true;
    // Its own way to end a machine that is up.
    if (problem.empty()) ::raise(SIGTERM);
  });
  return failed ? exitFailed : status;
}

/// Keeps the profile's text beside the journal, for a bundle.
void keepProfile(const RootDirectory& root, const std::string& profile) {
  const auto text = profileText(profile);
  // A machine without it runs just as well.
  if (text) static_cast<void>(writeTextFile(profileFileOf(root), *text));
}

int up(const MachineChoices& choices) {
  auto helper = choices.helper.empty() ? helperProgram(choices.tin) : choices.helper;
  if (!helper) return complainFor(choices, helper.error(), exitFailed);
  auto profile = loadProfile(choices.profile);
  if (!profile) return complainFor(choices, profile.error(), exitUsage);
  MachineOptions options;
  options.profile = *std::move(profile);
  if (isProfileFile(choices.profile))
    options.profileFile = std::filesystem::absolute(choices.profile).lexically_normal().string();
  const auto run = randomName(bytesOfRun);
  if (!run) return complainFor(choices, "the system gives no random bytes", exitFailed);
  options.run = *run;
  options.speed = choices.speed;
  options.root = RootDirectory::at(choices.root);
  options.helperProgram = *std::move(helper);
  options.verboseHelper = choices.verbose;
  const auto made = options.root.make();
  if (!made) return complainFor(choices, made.error(), exitFailed);
  std::optional<ComingPage> page;
  if (choices.pagePort) {
    auto prepared = pageOf(options, *choices.pagePort);
    if (!prepared) return complainFor(choices, prepared.error(), exitFailed);
    page = *std::move(prepared);
  }
  // None: the machine is up, and so is its page; else its page is not.
  const auto announce = [&](pid_t pid) -> std::optional<std::string> {
    keepProfile(options.root, choices.profile);
    std::expected<pid_t, std::string> pagePid = 0;
    if (page) pagePid = startPage(options.root, *page);
    if (!pagePid) return pagePid.error();
    tellUp(choices, options, *made, pid, *pagePid);
    return std::nullopt;
  };
  if (choices.foreground) return runInForeground(choices, options, announce);
  const auto started = startMachine(options);
  if (!started) return complainFor(choices, started.error(), exitFailed);
  const auto problem = announce(*started);
  if (!problem) return exitDone;
  ::kill(*started, SIGTERM);
  return complainFor(choices, *problem, exitFailed);
}

/// The list of faults is the same for every machine, so it needs none that runs.
int listFaults(const MachineChoices& choices) {
  const ControlReply list = faultList({});
  fmt::print("{}", choices.asJSON ? list.json + '\n' : list.text);
  return exitDone;
}

/// Sends one command to the machine and prints its answer.
int ask(const MachineChoices& choices, const std::string& command) {
  auto machine = ControlClient::connect(RootDirectory::at(choices.root));
  if (!machine && command == "fault" && choices.words == std::vector<std::string>{"list"})
    return listFaults(choices);
  if (!machine) return complainFor(choices, machine.error(), exitFailed);
  machine->send({{"command", command}, {"arguments", choices.words}});
  const auto reply = machine->receive();
  if (!reply) return complainFor(choices, "the machine went down", exitFailed);
  if (!reply->value("ok", false))
    return complainFor(choices, reply->value("error", std::string("no answer")),
                       reply->value("usage", false) ? exitUsage : exitFailed);
  // Waits for the end of the machine's process, so that another can start in its place at once.
  if (command == "down")
    while (machine->receive()) {
    }
  if (!choices.asJSON) {
    fmt::print("{}", reply->value("text", std::string()));
    return exitDone;
  }
  const auto answer = reply->find("json");
  fmt::print("{}\n", answer != reply->end() && answer->is_string() ? answer->get<std::string>()
                                                                   : R"({"ok":true})");
  return exitDone;
}

int listProfiles(const MachineChoices& choices) {
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  for (const std::string& name : builtInProfileNames()) {
    const auto profile = loadProfile(name);
    if (!profile) return complainFor(choices, profile.error(), exitFailed);
    all.push_back({{"name", name}, {"description", profile->description}});
    if (!choices.asJSON) fmt::print("{:<22} {}\n", name, profile->description);
  }
  if (choices.asJSON) printJSON({{"ok", true}, {"profiles", all}});
  return exitDone;
}

void addPageOption(CLI::App& command, MachineChoices& choices) {
  const auto read = [&choices](const std::string& text) {
    int port = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port < 0 || port > highestPort)
      throw CLI::ValidationError(fmt::format(
          "--web: \"{}\" is no port: a whole number from 1024 to {}, or 0 for any that is free",
          text, highestPort));
    choices.pagePort = port;
  };
  command
      .add_option_function<std::string>(
          "--web", read,
          fmt::format("Show the machine in a browser: --web=PORT (default {}; 0: any)",
                      usualPagePort))
      ->expected(0, 1)
      ->default_str(std::to_string(usualPagePort));
}

void addUp(CLI::App& program, MachineChoices& choices, std::function<int()>& chosen) {
  CLI::App* command = program.add_subcommand("up", "Start a virtual Mac");
  command->add_option("--profile", choices.profile, "Kind of Mac, or a JSON file of one")
      ->type_name("PROFILE")
      ->capture_default_str();
  command->add_option("--speed", choices.speed, "Virtual seconds in a real one")
      ->capture_default_str()
      ->check(numberBetween(bounds::slowest, bounds::fastest));
  addPageOption(*command, choices);
  command->add_flag("--foreground", choices.foreground, "Stay in the foreground");
  command->add_flag("--verbose", choices.verbose, "The helper logs to helper.stderr too");
  CLI::Option* helper = command->add_option("--helper", choices.helper, "The helper's program")
                            ->check(CLI::ExistingFile);
  command->add_flag("--tin", choices.tin, "The helper is the Mac's own program, emulated")
      ->excludes(helper);
  command->callback([&] { chosen = [&] { return up(choices); }; });
}

void addLaunch(CLI::App& program, MachineChoices& choices, std::function<int()>& chosen) {
  CLI::App* command =
      program.add_subcommand("launch", "Run a program as a client: launch [--as IDENTITY] -- ...");
  command->add_option("--as", choices.identity, "Signing identity (virtual-mac identities)")
      ->type_name("IDENTITY")
      ->capture_default_str();
  command->add_option("program", choices.words, "The program and its arguments")
      ->required()
      ->type_name("FILE");
  command->callback([&] {
    chosen = [&] {
      return launchProgram({choices.root, choices.identity, choices.words, choices.asJSON});
    };
  });
}

void addJournal(CLI::App& program, MachineChoices& choices, std::function<int()>& chosen) {
  const auto common = [&](CLI::App* command) {
    CLI::Option* follow =
        command->add_flag("-f,--follow", choices.query.follow, "Go on as lines come");
    CLI::Option* onlyNew =
        command->add_flag("--new", choices.query.onlyNew, "Leave out the lines that are there");
    addJournalOption(*command, choices.query.file)->excludes(follow)->excludes(onlyNew);
    command->add_option("--until", choices.query.until, "Stop after a line with this text");
    command->add_option("--timeout", choices.query.timeoutSeconds, "Follow so many real seconds")
        ->needs(follow)
        ->check(numberBetween(0, longestWaitSeconds));
    return command;
  };
  const auto print = [&] {
    choices.query.asJSON = choices.asJSON;
    return printJournal(RootDirectory::at(choices.root), choices.query);
  };
  CLI::App* journal = common(program.add_subcommand("journal", "Print what happened"));
  journal
      ->add_option("--kinds", choices.query.kinds,
                   "Only these: smc,disk,log,reply,power,app,mac,proc")
      ->delimiter(',')
      ->check(CLI::IsMember({"smc", "disk", "log", "reply", "power", "app", "mac", "proc"}));
  journal->callback([&chosen, print] { chosen = print; });
  CLI::App* log = common(program.add_subcommand("log", "Print the helper's log"));
  log->add_option("--category", choices.query.category, "Only this component's lines");
  log->add_option("--level", choices.query.level, "Only lines of this level")
      ->check(CLI::IsMember({"default", "error", "fault"}));
  log->callback([&choices, &chosen, print] {
    choices.query.kinds = {"log"};
    chosen = print;
  });
}

/// The description of `set`: every deed with a value, and its values.
std::string settings() {
  std::string text = "Change what a person or the hardware changes";
  const char* joint = ": ";
  for (const Deed& deed : deedCatalogue()) {
    if (!deed.values) continue;
    text += fmt::format("{}{} ({})", joint, deed.name, deed.values->text());
    joint = ", ";
  }
  return text;
}

/// Commands that travel to the machine as they are.
void addForwarded(CLI::App& program, MachineChoices& choices, std::function<int()>& chosen) {
  const auto add = [&](const char* name, const std::string& description) {
    CLI::App* command = program.add_subcommand(name, description);
    command->callback(
        [&choices, &chosen, name] { chosen = [&choices, name] { return ask(choices, name); }; });
    return command;
  };
  const auto addWithWords = [&](const char* name, const std::string& description, const char* words,
                                const char* kind) {
    add(name, description)->add_option("arguments", choices.words, words)->type_name(kind);
  };
  add("down", "End the virtual Mac, its helper first");
  add("status", "Show the machine at one glance");
  addWithWords("set", settings(), "WHAT VALUE", "SETTING");
  addWithWords("fault", "Switch a fault: NAME [ARGUMENT...] on|off; or list", "NAME", "FAULT");
  addWithWords("kill", "Send the helper a signal: KILL (default), TERM, INT, ABRT, STOP, CONT",
               "SIGNAL", "SIGNAL");
  addWithWords("install", "Put another version in the helper's place; one that runs goes on",
               "VERSION", "TEXT");
  add("sleep", "Ask the machine to sleep");
  add("wake", "Wake the machine");
  add("touch", "Touch the keyboard");
  add("reboot", "End the helper the orderly way and start the system anew");
  add("power-loss", "Take the power away, and give it back");
  addWithWords("speed", "Let time run faster or slower", "FACTOR", "NUMBER");
  add("identities", "List the signing identities that clients may have");
}

}  // namespace

int runVirtualMac(int argc, char** argv, const std::string& commit,
                  const std::vector<AddCommand>& more) {
  CLI::App program("A virtual Mac: its charging hardware, power management and launchd.",
                   "virtual-mac");
  MachineChoices choices;
  std::function<int()> chosen;
  program.require_subcommand(1);
  program.fallthrough();
  program
      .add_option("--root", choices.root,
                  "The machine's directory (default: $VIRTUAL_MAC_ROOT, else "
                  "$XDG_RUNTIME_DIR/virtual-mac, or /tmp/virtual-mac-UID)")
      ->type_name("FOLDER")
      ->check(notEmpty());
  program.add_flag("--json", choices.asJSON, "Answer as JSON");
  addVersion(program, commit);
  addUp(program, choices, chosen);
  addForwarded(program, choices, chosen);
  addJournal(program, choices, chosen);
  addLaunch(program, choices, chosen);
  for (const AddCommand& add : more) add(program, chosen);
  program.add_subcommand("profiles", "List the kinds of Mac")->callback([&] {
    chosen = [&] { return listProfiles(choices); };
  });
  return runCommandLine(program, {"--root", "--as"}, argc, argv, [&] { return chosen(); });
}

}  // namespace virtualmac
