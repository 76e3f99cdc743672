#include <cerrno>
#include <csignal>

#include "Platform/KernelTypes.h"
#include "Tests/sweeps/Converge.h"
#include "Tests/sweeps/StoryTest.h"

namespace sweeps {

namespace {

using virtualmac::FaultTable;
using virtualmac::InjectedFault;
using virtualmac::SeamCall;

struct NamedFault {
  std::string name;
  InjectedFault fault;
  bool mayLast = true;  ///< False: the fault strikes once only.
};

/// Returns every failure of a call that the helper can tell apart.
std::vector<NamedFault> faultsOf(SeamCall call) {
  const auto plain = virtualmac::plainFault(call);
  if (!plain) return {};
  switch (call) {
    case SeamCall::smcCallStruct:
      return {{"refused", {korvel::ioReturnNotPrivileged, {}}},
              {"stale", {korvel::ioReturnNotOpen, {}}},
              {"gone", {korvel::ioReturnNoDevice, {}}},
              {"changed", {0, {}, true}}};
    case SeamCall::fileRead:
      return {{"plain", *plain}, {"changed", {0, {}, true}}};
    case SeamCall::fileMkdir:
      return {{"plain", *plain}, {"read-only", {EROFS, "Read-only file system"}}};
    case SeamCall::fileWrite:
      // A write that is interrupted for ever hangs; another test below covers it.
      return {{"full", {ENOSPC, "No space left on device"}},
              {"interrupted", {EINTR, "Interrupted system call"}, false}};
    default:
      return {{"plain", *plain}};
  }
}

class FaultSweep : public StoryTest {};

TEST_P(FaultSweep, ComesThroughAFaultAtEveryCall) {
  const Trace trace = traceStory(GetParam());
  Sweep sweep(GetParam(), "*FaultSweep.*");
  for (const std::uint64_t k : chosenCalls(trace.calls.size(), 30)) {
    const TracedCall& traced = trace.calls.at(k - 1);
    for (const NamedFault& each : faultsOf(traced.call)) {
      for (const bool lasting : {false, true}) {
        if (lasting && !each.mayLast) continue;
        const std::string name = each.name + (lasting ? ":forever" : ":once");
        sweep.run({k, name}, [&](Stage& stage, Findings& findings) {
          FaultTable& faults = stage.world.faults();
          faults.failFrom(traced.call, traced.occurrence, each.fault,
                          lasting ? FaultTable::forever : 1);
          findings.expect(stage.play(), "the helper died");
          findings.expect(faults.injected() > 0, "the fault did not strike");
          faults.clear();
          converge(stage, findings, excusesFor(traced.call, stage));
        });
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Stories, FaultSweep, testing::ValuesIn(stories()), storyName);

/// Here a write never returns, and work behind it never begins. The rest must go on: readers get
/// answers, the Mac sleeps, and the helper exits with 0 after half a second.
class InterruptionSweep : public StoryTest {
 protected:
  static std::vector<std::uint64_t> writesOf(const Trace& trace) {
    std::vector<std::uint64_t> numbers;
    for (std::size_t i = 0; i < trace.calls.size(); ++i) {
      if (trace.calls[i].call == SeamCall::fileWrite) numbers.push_back(i + 1);
    }
    return numbers;
  }

  static void checkReaders(Stage& stage, Findings& findings) {
    stage.join();
    findings.expect(stage.app().calls().back()->answered, "a ping is not answered");
    findings.expect(stage.state().has_value(), "the state is not told");
    findings.expect(stage.app().capabilityRecord() == trueCapabilities(stage.mac()),
                    "the capabilities are not told");
  }

  static void checkSleep(Stage& stage, Findings& findings) {
    const double asked = stage.world.now();
    stage.mac().power.requestSleep();
    stage.world.runUntil([&] { return stage.mac().power.isAsleep(); }, 20);
    if (!stage.mac().power.isAsleep()) return;  // Something keeps it awake.
    findings.expect(stage.world.now() - asked < 0.11, "sleep waits longer than 0.1 s");
    stage.mac().power.wake();
    stage.world.runFor(0.1);
  }

  static void checkExit(Stage& stage, Findings& findings) {
    stage.expectExit();
    const double asked = stage.world.now();
    stage.world.sendSignal(SIGTERM);
    stage.world.runUntil([&] { return !stage.world.helperRunning(); }, 20);
    findings.expect(stage.world.exitStatus() == 0, "the helper does not exit with status 0");
    findings.expect(stage.world.now() - asked < 0.51, "the exit waits longer than 0.5 s");
  }
};

TEST_P(InterruptionSweep, AWriteThatIsInterruptedForEverHoldsUpNobodyElse) {
  constexpr double secondsOfATry = 0.05;
  const Trace trace = traceStory(GetParam());
  const std::vector<std::uint64_t> writes = writesOf(trace);
  Sweep sweep(GetParam(), "*InterruptionSweep.*");
  for (const std::uint64_t k : writes) {
    if (selection().k && *selection().k != k) continue;
    sweep.run({k, "interrupted:forever"}, [&](Stage& stage, Findings& findings) {
      FaultTable& faults = stage.world.faults();
      faults.failFrom(SeamCall::fileWrite, trace.calls[k - 1].occurrence,
                      {EINTR, "Interrupted system call"});
      faults.setLatency(SeamCall::fileWrite, secondsOfATry);
      findings.expect(stage.play(), "the helper died");
      findings.expect(faults.injected() > 0, "the fault did not strike");
      // The wake delivers signals that came while the Mac slept.
      healMachine(stage.mac());
      stage.world.runFor(1);
      if (!stage.exited()) {
        checkReaders(stage, findings);
        checkSleep(stage, findings);
        checkExit(stage, findings);
      }
      faults.clear();
      stage.world.startHelper();
      stage.world.runFor(0.1);
      converge(stage, findings, {.failedCalls = true});
    });
  }
}

INSTANTIATE_TEST_SUITE_P(Stories, InterruptionSweep, testing::ValuesIn(stories()), storyName);

}  // namespace

}  // namespace sweeps
