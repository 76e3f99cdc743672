#include "VirtualMac/Scenarios/InProcessStage.h"

#include <csignal>
#include <stdexcept>
#include <utility>

#include "HelperPersistence.h"
#include "Operations.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Machine/Nearest.h"

namespace virtualmac {

namespace {

constexpr double reportSeconds = 2;

/// A record or a number has no outcome: it succeeds when it comes.
bool hasOutcome(const korvel::Operation& operation) {
  return operation.answer == korvel::OperationAnswer::Outcome;
}

Answer answerOf(const AppCall& call) {
  if (call.failed) return {Answer::Kind::Lost, std::nullopt};
  const auto* operation = korvel::operationWith(&korvel::Operation::selector, call.selector);
  const bool good = call.success || (operation != nullptr && !hasOutcome(*operation));
  return {good ? Answer::Kind::Ok : Answer::Kind::Failed, call.error};
}

WorldOptions optionsOf(const Scenario& scenario) {
  WorldOptions options;
  options.profile = scenario.profile;
  options.seed = scenario.seed;
  options.helperVersion = scenario.helperVersion;
  options.keepJournal = false;
  return options;
}

}  // namespace

InProcessStage::InProcessStage(const Scenario& scenario) : bench(optionsOf(scenario)) {
  bench.launchd().unload();
  bench.launchd().job = LaunchdJob();
}
InProcessStage::~InProcessStage() = default;

Machine& InProcessStage::machine() { return bench.machine(); }
Journal& InProcessStage::journal() { return bench.journal(); }
double InProcessStage::now() { return bench.now(); }

void InProcessStage::runUntil(double moment, const std::function<bool()>& afterEach) {
  const auto check = [&] {
    tellAnswers();
    return afterEach();
  };
  const double left = moment - bench.now();
  if (left > 0) {
    bench.runUntil(check, left);
  } else {
    bench.runUntilIdle();
  }
  check();
}

void InProcessStage::connect(const std::string& client, const std::string& identity) {
  if (apps.contains(client)) throw std::runtime_error("\"" + client + "\" is connected already");
  const CodeSignatures& signatures = machine().signatures;
  if (signatures.identity(identity) == nullptr)
    throw std::runtime_error(unknownWord("identity", identity, signatures.names()));
  apps[client] = bench.connectApp(identity);
}

void InProcessStage::disconnect(const std::string& client) {
  named(client).disconnect();
  tellAnswers();
  apps.erase(client);
}

void InProcessStage::killClient(const std::string& client) {
  named(client).kill();
  tellAnswers();
  apps.erase(client);
}

void InProcessStage::request(const std::string& client, const korvel::Operation& what,
                             std::uint8_t argument, std::function<void(Answer)> answered) {
  pending.push_back({named(client).send(what.selector, argument), std::move(answered)});
}

std::optional<std::string> InProcessStage::reportedState() {
  if (apps.empty()) return std::nullopt;
  AppClient& app = *apps.begin()->second;
  const AppCall& call = app.await(app.getState(), reportSeconds);
  if (!call.answered) return std::nullopt;
  return call.data;
}

void InProcessStage::startHelper() {
  if (bench.helperRunning()) throw std::runtime_error(helperRunsText);
  bench.startHelper();
}

void InProcessStage::signalHelper(int number) {
  if (!bench.helperRunning()) throw std::runtime_error(noHelperText);
  if (number == SIGKILL) {
    bench.killHelper();
  } else {
    bench.sendSignal(number);
  }
}

bool InProcessStage::helperRunning() { return bench.helperRunning(); }
std::optional<int> InProcessStage::helperExitStatus() { return bench.exitStatus(); }

void InProcessStage::powerLoss() {
  killClients();
  bench.powerLoss();
}

void InProcessStage::reboot() {
  killClients();
  Launchd& launchd = bench.launchd();
  launchd.unload();
  if (bench.helperRunning())
    bench.runUntil([this] { return !bench.helperRunning(); }, launchd.job.exitTimeoutSeconds);
  machine().reboot();
}

std::vector<std::string> InProcessStage::violations() {
  rules.finish();
  return rules.violations();
}

std::optional<std::string> InProcessStage::savedState() {
  return machine().disk.content(korvel::HelperPersistence::statePath);
}

void InProcessStage::setSavedState(const std::string& content) {
  machine().disk.writeFile(korvel::HelperPersistence::statePath, content, 0600);
}

AppClient& InProcessStage::named(const std::string& client) {
  const auto found = apps.find(client);
  if (found == apps.end()) throw std::runtime_error("\"" + client + "\" is not connected");
  return *found->second;
}

void InProcessStage::tellAnswers() {
  for (Pending& each : std::exchange(pending, {})) {
    if (each.call->over()) {
      each.answered(answerOf(*each.call));
    } else {
      pending.push_back(std::move(each));
    }
  }
}

void InProcessStage::killClients() {
  for (auto& [name, app] : apps) app->kill();
  tellAnswers();
  apps.clear();
}

}  // namespace virtualmac
