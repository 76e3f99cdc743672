#include <cerrno>

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
  bool mayLast = true;  ///< False: strikes once only.
};

/// Every way in which a call can fail that the helper could tell apart.
std::vector<NamedFault> faultsOf(SeamCall call) {
  const auto plain = virtualmac::plainFault(call);
  if (!plain) return {};
  switch (call) {
    case SeamCall::smcCallStruct:
      return {{"refused", {korvel::ioReturnNotPrivileged, {}}},
              {"stale", {korvel::ioReturnNotOpen, {}}},
              {"gone", {korvel::ioReturnNoDevice, {}}}};
    case SeamCall::fileMkdir:
      return {{"plain", *plain}, {"read-only", {EROFS, "Read-only file system"}}};
    case SeamCall::fileWrite:
      // Interrupted for ever would be a call that hangs.
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
  for (const std::uint64_t k : chosenCalls(trace.calls.size(), 60)) {
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

}  // namespace

}  // namespace sweeps
