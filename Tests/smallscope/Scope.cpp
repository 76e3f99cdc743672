#include "Tests/smallscope/Scope.h"

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

#include "HelperPersistence.h"
#include "Tests/sweeps/CurrentCase.h"
#include "VirtualMac/Machine/Faults.h"

namespace smallscope {

namespace {

using sweeps::Findings;

std::string again(const Case& subject) {
  std::string command = "KORVEL_SEQUENCE=" + textOf(subject.sequence);
  if (subject.killAt > 0) command += " KORVEL_K=" + std::to_string(subject.killAt);
  const std::string test =
      subject.killAt > 0 ? "ComesRightAfterAKillAtAnyCall" : "ComesRightAfterAnySequence";
  return command + " korvel_smallscope_tests --gtest_filter='*SmallScope." + test + "/" +
         testNameOf(subject.profile) + "'";
}

/// The helper's directory is there from an earlier run: a power loss may take a new one away.
void prepare(virtualmac::Machine& mac) {
  mac.disk.makeDirectory(korvel::HelperPersistence::directory, 0700);
  mac.battery.setPercent(85);
}

}  // namespace

std::string testNameOf(std::string_view profile) {
  std::string name(profile);
  std::ranges::replace(name, '-', '_');
  return name;
}

Scope::Scope(const Case& given)
    : subject(given), story{"small scope", given.profile, prepare, {}}, stage(story) {
  virtualmac::LaunchdJob& job = world().launchd().job;
  job.startAtBoot = true;
  job.startOnDemand = true;
  job.restartAfterCrash = true;
}

void Scope::play(Findings& findings) {
  world().startHelper();
  world().runFor(0.1);
  client();
  world().runFor(0.1);
  for (std::size_t i = 0; i < subject.sequence.size() && findings.empty(); ++i) {
    const Stimulus& stimulus = stimuli()[subject.sequence[i]];
    const bool last = i + 1 == subject.sequence.size();
    const std::uint64_t before = world().faults().counts().total;
    if (last && subject.killAt > 0) {
      killInLastStep(stimulus, findings);
    } else {
      step(stimulus, findings);
    }
    callsOfLastStep = world().faults().counts().total - before;
  }
}

void Scope::step(const Stimulus& stimulus, Findings& findings) {
  stimulus.act(*this);
  world().runFor(stimulus.seconds);
  sweeps::checkConduct(findings, world(), stage.invariants);
  sweeps::checkAssertions(findings, world());
  sweeps::checkStateFile(findings, mac());
  const auto status = world().exitStatus();
  findings.expect(!status || *status == 0, "the helper ended with another status than 0");
}

void Scope::killInLastStep(const Stimulus& stimulus, Findings& findings) {
  virtualmac::FaultTable& faults = world().faults();
  const std::uint64_t call = faults.counts().total + subject.killAt;
  bool reached = false;
  faults.killAtCall(call);
  faults.observe([&](virtualmac::SeamCall) {
    if (faults.counts().total < call) return;
    reached = true;
    stopRestarts();
  });
  stimulus.act(*this);
  world().runUntil([&] { return reached && !world().helperRunning(); }, stimulus.seconds);
  faults.observe({});
  faults.clear();
  findings.expect(reached, "the last step has no such call");
  // A release does not end its process, and there may be no later call that does.
  stopRestarts();
  if (world().helperRunning()) world().killHelper();
  // Clients learn of it.
  world().runFor(0.1);
  findings.expect(mac().power.assertions().empty(), "an assertion is left without a helper");
}

bool Scope::has(std::string_view stimulus) const {
  return std::ranges::any_of(
      subject.sequence, [stimulus](std::size_t each) { return stimuli()[each].name == stimulus; });
}

bool Scope::hasEnd() const {
  constexpr std::array ends{"quit", "crash", "terminate", "power-loss"};
  return subject.killAt > 0 || std::ranges::any_of(ends, [this](auto end) { return has(end); });
}

void Scope::endFaults(Findings& findings) {
  for (const std::string& fault : std::exchange(faultsOn, {})) {
    const auto done = virtualmac::setFault(mac(), fault, false);
    if (!done) findings.note("a fault does not end: " + done.error());
  }
}

void Scope::stopRestarts() {
  world().launchd().job.startOnDemand = false;
  world().launchd().job.restartAfterCrash = false;
}

std::string Scope::journal() {
  std::string text;
  for (const auto& entry : world().journal().entries()) {
    text += "  " + virtualmac::journalLine(entry) + '\n';
  }
  return text;
}

virtualmac::AppClient& Scope::client() {
  if (stage.clients.empty() || !stage.app().connected()) {
    stage.clients.push_back(world().connectApp());
    // A connection is made with its first message.
    stage.app().ping();
  }
  return stage.app();
}

void Scope::leave() {
  for (const auto& client : stage.clients) client->disconnect();
}

void Scope::toggle(std::string_view fault) {
  const auto found = std::ranges::find(faultsOn, fault);
  const bool on = found == faultsOn.end();
  if (!virtualmac::setFault(mac(), fault, on)) return;
  if (on) {
    faultsOn.emplace_back(fault);
  } else {
    faultsOn.erase(found);
  }
}

Outcome run(const Case& subject, const std::function<void(virtualmac::Machine&)>& mistake) {
  const std::string command = again(subject);
  const sweeps::CurrentCase announced(command);
  Findings findings;
  Scope scope(subject);
  scope.spoil = mistake;
  try {
    scope.play(findings);
    if (findings.empty()) scope.judge(findings);
  } catch (const std::exception& problem) {
    findings.note(std::string("exception: ") + problem.what());
  }
  if (findings.empty()) return {"", "", scope.lastCalls()};
  std::string report = "profile " + subject.profile + ", sequence " + textOf(subject.sequence);
  if (subject.killAt > 0) {
    report += ", killed at call " + std::to_string(subject.killAt) + " of its last step";
  }
  report += ":\n" + findings.text() + "journal:\n" + scope.journal() + "again: " + command;
  return {findings.text(), report, scope.lastCalls()};
}

}  // namespace smallscope
