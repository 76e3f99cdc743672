#pragma once

#include <deque>
#include <string>

#include "Base/Lock.h"
#include "VirtualMac/Schedule/Observer.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {

/// A plain lock under the baton, handed to the lane that waited longest. Taking it twice is a
/// deadlock, and is reported as one.
class VirtualLock final : public korvel::LockPrimitive {
 public:
  VirtualLock(Scheduler& baton, ThreadGroup& owner, const ScheduleObservers& watchers,
              std::string lockName);

  void lock() override;
  void unlock() override;

  [[nodiscard]] const std::string& name() const { return label; }

 private:
  void waitForTurn(Lane& lane);

  Scheduler& scheduler;
  ThreadGroup& process;
  const ScheduleObservers& observers;
  std::string label;
  Lane* holder = nullptr;
  std::deque<Lane*> waiting;
};

}  // namespace virtualmac
