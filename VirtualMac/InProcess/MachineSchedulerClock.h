#pragma once

#include <optional>

#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Schedule/VirtualTime.h"

namespace virtualmac {

/// A machine's clocks as the scheduler moves them.
class MachineSchedulerClock final : public SchedulerClock {
 public:
  explicit MachineSchedulerClock(Machine& owner) : machine(owner) {}

  Nanoseconds total() override { return machine.totalNanoseconds(); }
  Nanoseconds uptime() override { return machine.uptimeNanoseconds(); }
  bool asleep() override { return machine.power.isAsleep() || machine.isOff(); }
  std::optional<Nanoseconds> untilNextEvent() override { return machine.nextEventNanoseconds(); }
  void advance(Nanoseconds duration) override { machine.advanceNanoseconds(duration); }

 private:
  Machine& machine;
};

}  // namespace virtualmac
