#pragma once

#include <functional>

#include "VirtualMac/Schedule/FaultTable.h"
#include "VirtualMac/Schedule/Observer.h"
#include "VirtualMac/Schedule/Scheduler.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

class Machine;

/// The gate under the baton. A call has its effect after its latency (the fault table's and the
/// machine's), so it has none when the process is killed meanwhile. The calls of a dead process
/// unwind their caller. Those of kind Release get a fault instead, which keeps them from the model.
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
