#include "VirtualMac/Scenarios/ProcessStage.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "HelperPersistence.h"
#include "Operations.h"
#include "VirtualMac/Remote/HostSystem.h"
#include "VirtualMac/Remote/RequestWords.h"
#include "VirtualMac/Server/ProgramBeside.h"

namespace virtualmac {

namespace {

constexpr double nearSeconds = 30;  // virtual: an event is near within this time
// The helper's slowness divides the first of these figures and multiplies the others.
constexpr double slowestNeeded = 30;       // virtual seconds in a real one, while an event is near
constexpr double graceRealSeconds = 0.5;   // real processes may be late by this
constexpr double quietRealSeconds = 0.02;  // work due at a moment has come by then
constexpr double longestRealSeconds = 10;  // until a process starts, ends or answers
constexpr double busyRealSeconds = 0.04;   // an effect of the helper's work has others follow it
constexpr std::chrono::milliseconds lookEvery{2};

MachineOptions optionsOf(const Scenario& scenario, const std::string& helper,
                         const std::string& root) {
  auto profile = loadProfile(scenario.profile);
  if (!profile) throw std::runtime_error(profile.error());
  MachineOptions options;
  options.profile = *std::move(profile);
  options.root = RootDirectory{root};
  options.helperProgram = helper;
  return options;
}

std::string requestLine(const korvel::Operation& what, std::uint8_t argument) {
  std::string line(what.word);
  if (what.argument == korvel::OperationArgument::UInt8) line += ' ' + std::to_string(argument);
  if (what.argument == korvel::OperationArgument::Boolean) line += argument != 0 ? " on" : " off";
  if (what.word == foreignCallWord) line += ' ' + std::string(what.selector);
  return line;
}

Answer answerIn(const std::string& line) {
  const auto said = nlohmann::json::parse(line, nullptr, false);
  if (!said.is_object() || said.value("lost", false)) return {Answer::Kind::Lost, std::nullopt};
  if (said.value("ok", false)) return {Answer::Kind::Ok, std::nullopt};
  Answer answer{Answer::Kind::Failed, std::nullopt};
  if (said.contains("code")) {
    korvel::ErrorObject error{"KorvelHelperError", said.value("code", std::int64_t{0}), {}};
    error.userInfo.insert_or_assign(korvel::localizedDescriptionKey,
                                    said.value("error", std::string()));
    answer.error = std::move(error);
  }
  return answer;
}

/// The reason that a session gives when it cannot connect, as ": reason"; empty: it gave none.
std::string reasonIn(const std::string& line) {
  const auto said = nlohmann::json::parse(line, nullptr, false);
  const std::string reason = said.is_object() ? said.value("error", std::string()) : line;
  return reason.empty() ? reason : ": " + reason;
}

}  // namespace

ProcessStage::TemporaryDirectory::TemporaryDirectory() {
  std::string name = (std::filesystem::temp_directory_path() / "virtual-mac-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("no temporary directory: " + std::system_category().message(errno));
  }
  path = name;
}

ProcessStage::TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

ProcessStage::ProcessStage(const Scenario& scenario, const StagedHelper& helper, double fastest,
                           std::function<bool()> stopped)
    : slowness(helper.slowness),
      fastSpeed(fastest),
      slowSpeed(std::min(fastest, slowestNeeded / slowness)),
      isStopped(std::move(stopped)) {
  ::signal(SIGPIPE, SIG_IGN);
  server =
      std::make_unique<MachineServer>(context, optionsOf(scenario, helper.program, directory.path));
  control = std::make_unique<ControlServer>(*server, [this] { context.stop(); });
  std::optional<std::string> problem = server->start();
  if (!problem) problem = control->listen();
  if (problem) throw std::runtime_error(*problem);
  server->journal().addListener([this](const Journal::Entry& entry) { hear(entry); });
  auto& information = server->machine().bundleInformation;
  information.erase("CFBundleShortVersionString");
  if (scenario.helperVersion) information["CFBundleShortVersionString"] = *scenario.helperVersion;
}

ProcessStage::~ProcessStage() {
  // A stopped run too waits for its processes to end.
  isStopped = [] { return false; };
  killClients();
  // Shared, because the call may come after the end of this function.
  const auto down = std::make_shared<bool>(false);
  server->shutDown([down] { *down = true; });
  serve([&down] { return *down; });
  // The last journal lines of both are heard here.
  control.reset();
  server.reset();
}

Machine& ProcessStage::machine() {
  server->timeDriver().catchUp();
  return server->machine();
}

Journal& ProcessStage::journal() { return server->journal(); }

double ProcessStage::now() {
  server->timeDriver().catchUp();
  return server->machine().totalSeconds();
}

double ProcessStage::graceSeconds() {
  return graceRealSeconds * slowness * server->timeDriver().speed();
}

void ProcessStage::runUntil(double moment, const std::function<bool()>& afterEach) {
  server->change([](Machine&) {});
  const auto quietSince = Clock::now();
  const std::chrono::duration<double> quiet(quietRealSeconds * slowness);
  while (!afterEach()) {
    const double left = moment - now();
    if (left <= 0 && Clock::now() - quietSince >= quiet) {
      return;
    }
    const bool isQuiet = left > nearSeconds && Clock::now() >= busyUntil;
    setSpeed(isQuiet ? fastSpeed : slowSpeed);
    context.run_one_for(lookEvery);
  }
}

bool ProcessStage::serve(const std::function<bool()>& reached) {
  const auto deadline = Clock::now() + std::chrono::duration<double>(longestRealSeconds * slowness);
  while (!reached()) {
    if (isStopped() || Clock::now() >= deadline) return false;
    context.run_one_for(lookEvery);
  }
  return true;
}

void ProcessStage::setSpeed(double speed) {
  if (server->timeDriver().speed() != speed) server->timeDriver().setSpeed(speed);
}

void ProcessStage::connect(const std::string& client, const std::string& identity) {
  if (apps.contains(client)) throw std::runtime_error("\"" + client + "\" is connected already");
  auto app = std::make_unique<ClientProcess>(context, programBeside("korvel-app"),
                                             RootDirectory{directory.path}, identity,
                                             longestRealSeconds * slowness);
  if (!serve([&app] { return app->isConnected() || app->isOver(); }) || !app->isConnected()) {
    throw std::runtime_error("the application could not connect" + reasonIn(app->firstLine()));
  }
  apps[client] = std::move(app);
}

void ProcessStage::disconnect(const std::string& client) {
  named(client);
  apps.erase(client);
}

void ProcessStage::killClient(const std::string& client) {
  named(client).kill();
  apps.erase(client);
}

void ProcessStage::request(const std::string& client, const korvel::Operation& what,
                           std::uint8_t argument, std::function<void(Answer)> answered) {
  named(client).send(requestLine(what, argument),
                     [told = std::move(answered)](const std::string& line) {
                       if (told) told(answerIn(line));
                     });
}

std::optional<std::string> ProcessStage::reportedState() {
  if (apps.empty()) return std::nullopt;
  // Shared, because the answer may come after the end of this function.
  const auto answer = std::make_shared<std::optional<std::string>>();
  apps.begin()->second->send(std::string(korvel::operation::getState.word),
                             [answer](const std::string& line) { *answer = line; });
  if (!serve([&answer] { return answer->has_value(); })) {
    throw std::runtime_error("nobody answers for the helper's state");
  }
  const auto said = nlohmann::json::parse(**answer, nullptr, false);
  const std::string name(korvel::operation::getState.word);
  if (!said.is_object() || !said.contains(name)) return std::nullopt;
  return said[name].dump();
}

void ProcessStage::startHelper() {
  if (helperRunning()) throw std::runtime_error(helperRunsText);
  server->change([](Machine& mac) { mac.launchd.startByHand(); });
}

void ProcessStage::signalHelper(int number) {
  const std::optional<pid_t> before = server->launchd().helper();
  if (!server->signalHelper(number)) throw std::runtime_error(noHelperText);
  if (number != SIGKILL) return;
  serve([&] { return server->launchd().helper() != before; });
}

bool ProcessStage::helperRunning() { return server->launchd().helper().has_value(); }
std::optional<int> ProcessStage::helperExitStatus() { return exitStatus; }

void ProcessStage::powerLoss() {
  killClients();
  server->powerLoss();
}

void ProcessStage::reboot() {
  killClients();
  const auto up = std::make_shared<bool>(false);
  server->reboot([up] { *up = true; });
  if (!serve([&up] { return *up; })) throw std::runtime_error("it hangs");
}

std::vector<std::string> ProcessStage::violations() { return broken; }

std::optional<std::string> ProcessStage::savedState() {
  std::ifstream stream(statePath(), std::ios::binary);
  if (!stream) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

void ProcessStage::setSavedState(const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(statePath()).parent_path());
  std::ofstream(statePath(), std::ios::binary) << content;
  server->takeDiskAsFound();
}

std::string ProcessStage::statePath() const {
  return RootDirectory{directory.path}.disk() + std::string(korvel::HelperPersistence::statePath);
}

void ProcessStage::hear(const Journal::Entry& entry) {
  const std::chrono::duration<double> busy(busyRealSeconds * slowness);
  if (entry.kind != "mac")
    busyUntil = Clock::now() + std::chrono::duration_cast<Clock::duration>(busy);
  if (entry.tells(EffectID::helperExited)) exitStatus = static_cast<int>(entry.effect.number(1));
  if (entry.tells(EffectID::helperStarted) || entry.tells(EffectID::helperKilled)) {
    exitStatus.reset();
  }
  if (entry.tells(EffectID::helperCutOff)) broken.push_back(entry.text);
}

ClientProcess& ProcessStage::named(const std::string& client) {
  const auto found = apps.find(client);
  if (found == apps.end()) throw std::runtime_error("\"" + client + "\" is not connected");
  return *found->second;
}

void ProcessStage::killClients() {
  for (auto& [name, app] : apps) app->kill();
  apps.clear();
}

}  // namespace virtualmac
