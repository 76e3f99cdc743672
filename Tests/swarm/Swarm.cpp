#include "Tests/swarm/Swarm.h"

#include <algorithm>
#include <array>

#include "Tests/swarm/Deeds.h"
#include "VirtualMac/Machine/Faults.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace swarm {

namespace {

using sweeps::Findings;
using virtualmac::FaultTable;
using virtualmac::SeamCall;

SeamCall callNamed(std::string_view id) {
  const auto& all = virtualmac::seamCalls;
  const auto found = std::ranges::find(all, id, &virtualmac::SeamCallDescription::id);
  return static_cast<SeamCall>(found - all.begin());
}

constexpr std::size_t mostClients = 4;
/// Several calls in a row take less time than this.
constexpr double quietSeconds = 120;
/// Each queued quit ends one start, and no run queues as many as this.
constexpr std::size_t mostLateQuits = 100;

}  // namespace

Swarm::Swarm(const SwarmPlan& given)
    : random(given.seed),
      plan(given),
      story{"swarm", given.profile, {}, {}},
      stage(story, given.seed, virtualmac::Scheduling::Seeded) {
  world().launchd().job.startOnDemand = true;
  world().launchd().job.restartAfterCrash = plan.restartAfterCrash;
  mac().battery.setPercent(static_cast<double>(random.between(5, 100)));
}

void Swarm::rage(Findings& findings) {
  world().startHelper();
  for (std::uint64_t i = 0; i < plan.steps && findings.empty(); ++i) {
    step();
    letTimePass();
    checkStep(findings);
  }
}

void Swarm::step() {
  if (!plan.machineFaults.empty() && random.chance(1, 5)) return toggleMachineFault();
  if (!plan.callFaults.empty() && random.chance(1, 5)) return toggleCallFault();
  if (plan.deeds.empty()) return;
  const std::string& wanted = plan.deeds[random.below(plan.deeds.size())];
  std::ranges::find(deeds(), wanted, &Deed::name)->act(*this);
}

void Swarm::letTimePass() {
  constexpr std::array seconds{0.0, 0.0, 0.02, 0.3, 2.0, 5.0, 12.0, 31.0, 90.0, 600.0};
  const double most = seconds.at(random.below(seconds.size()));
  world().runFor(most * random.unit());
}

void Swarm::toggleMachineFault() {
  const std::string line = plan.machineFaults[random.below(plan.machineFaults.size())];
  const auto found = std::ranges::find(faultsOn, line);
  const bool on = found == faultsOn.end();
  // A machine that lacks the fault's key cannot have the fault.
  if (!virtualmac::setFault(mac(), line, on)) return;
  if (on) {
    faultsOn.push_back(line);
  } else {
    faultsOn.erase(found);
  }
}

void Swarm::toggleCallFault() {
  const std::string& id = plan.callFaults[random.below(plan.callFaults.size())];
  const auto found =
      std::ranges::find(rules, id, &std::pair<std::string, FaultTable::RuleId>::first);
  if (found != rules.end()) {
    world().faults().remove(found->second);
    rules.erase(found);
    return;
  }
  const SeamCall call = callNamed(id);
  const std::uint64_t every = 1 + random.below(4);
  const auto fault = virtualmac::plainFault(call).value_or(virtualmac::InjectedFault{});
  rules.emplace_back(id, world().faults().failWhen(
                             call, [this, every] { return random.chance(1, every); }, fault));
}

void Swarm::checkStep(Findings& findings) {
  sweeps::checkConduct(findings, world(), stage.invariants);
  sweeps::checkAssertions(findings, world());
  sweeps::checkStateFile(findings, mac());
  const auto status = world().exitStatus();
  findings.expect(!status || *status == 0, "the helper ended with another status than 0");
}

sweeps::Excuses Swarm::excuses() const {
  sweeps::Excuses found;
  // The next run does not know of a state that could not be recorded or read again.
  const bool recordFails = plan.hasFault("file") || plan.hasFault("disk");
  found.assertions = plan.hasFault("assertion-release") || plan.hasFault("assertionRelease");
  found.sleepDisabled =
      recordFails || plan.hasFault("settings") || plan.has("anotherProgramTurnsSleepOff");
  found.claim = recordFails;
  found.gateByItself = recordFails;
  found.failedCalls = true;
  // When the probe misses a key, a run uses the other family.
  found.otherFamily = plan.hasFault("smc");
  found.restart = plan.hasFault("smc-size");
  return found;
}

void Swarm::healAndConverge(Findings& findings) {
  world().faults().clear();
  // Keys come back first, because the faults of a key can end only while the key exists.
  std::ranges::partition(
      faultsOn, [](const std::string& line) { return line.starts_with("smc-key-missing"); });
  for (const std::string& line : faultsOn) {
    const auto done = virtualmac::setFault(mac(), line, false);
    if (!done) findings.note("a fault does not end: " + done.error());
  }
  mac().power.setIdleSleepMinutes(0);
  sweeps::healMachine(mac());
  if (mac().battery.percent() < 25) mac().battery.setPercent(25);
  for (const auto& client : stage.clients) client->disconnect();
  world().launchd().job.startOnDemand = false;
  world().launchd().job.restartAfterCrash = false;
  // Queued messages reach the next helper, so every queued quit must be played out.
  world().runFor(quietSeconds);
  for (std::size_t starts = 0; !world().helperRunning() && starts < mostLateQuits; ++starts) {
    world().startHelper();
    world().runFor(quietSeconds);
  }
  sweeps::converge(stage, findings, excuses());
  stage.invariants.finish();
  if (findings.empty()) sweeps::checkConduct(findings, world(), stage.invariants);
}

std::string Swarm::journalTail() {
  constexpr std::size_t lines = 80;
  const auto& entries = world().journal().entries();
  std::string tail;
  for (std::size_t i = entries.size() - std::min(lines, entries.size()); i < entries.size(); ++i) {
    tail += virtualmac::journalLine(entries[i]) + '\n';
  }
  return tail;
}

virtualmac::AppClient* Swarm::someClient() {
  if (stage.clients.empty()) return nullptr;
  return stage.clients[random.below(stage.clients.size())].get();
}

void Swarm::connect(std::string_view identity) {
  if (stage.clients.size() >= mostClients) return;
  stage.clients.push_back(world().connectApp(identity));
  // A connection is made with its first message.
  stage.clients.back()->ping();
}

void Swarm::comeAndGo() {
  const auto client = world().connectApp();
  if (random.chance(1, 2)) client->ping();
  if (random.chance(1, 2)) world().runUntil([this] { return random.chance(1, 8); }, 0.1);
}

void Swarm::forgetClient(const virtualmac::AppClient& client) {
  std::erase_if(stage.clients, [&client](const auto& each) { return each.get() == &client; });
}

}  // namespace swarm
