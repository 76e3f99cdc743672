#pragma once

#include <functional>

#include "VirtualMac/Schedule/FaultTable.h"
#include "VirtualMac/Schedule/Observer.h"
#include "VirtualMac/Schedule/Scheduler.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

class Machine;

/// The gate under the baton. A call takes its latency (the fault table's and the machine's) first
/// and has its effect at the end of it, so a process that is killed meanwhile has none. For a dead
/// process every call unwinds its caller, but those that give something back: they are answered
/// with a fault, which tells the adapter to leave the machine alone.
class BatonGate final : public CallGate {
 public:
  BatonGate(Scheduler& baton, ThreadGroup& owner, FaultTable& faultTable, const Machine& mac,
            const ScheduleObservers& watchers, std::function<void()> killProcess);

  std::optional<InjectedFault> enter(SeamCall call) override;

 private:
  Scheduler& scheduler;
  ThreadGroup& process;
  FaultTable& faults;
  const Machine& machine;
  const ScheduleObservers& observers;
  std::function<void()> kill;
};

}  // namespace virtualmac
