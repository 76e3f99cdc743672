#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "Platform/Dispatch.h"
#include "VirtualMac/Schedule/Observer.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {

/// Queues, timers, groups, locks, signals and the main loop of one process in virtual time.
/// Timers and timed waits go by uptime: they stand still while the machine sleeps.
class VirtualDispatch final : public korvel::Dispatch {
 public:
  VirtualDispatch(Scheduler& baton, ThreadGroup& owner, std::shared_ptr<Lane> main,
                  const ScheduleObservers& watchers);
  ~VirtualDispatch() override;

  std::shared_ptr<korvel::WorkQueue> makeSerialQueue(std::string_view label) override;
  std::unique_ptr<korvel::TimerSource> makeTimer(
      const std::shared_ptr<korvel::WorkQueue>& queue) override;
  std::unique_ptr<korvel::SignalSource> makeSignalSource(int signalNumber) override;
  std::shared_ptr<korvel::DispatchGroup> makeGroup() override;
  std::unique_ptr<korvel::LockPrimitive> makeLock(std::string_view label) override;
  void ignoreDefaultAction(int signalNumber) override;
  [[noreturn]] void runMainLoop() override;

  /// Delivers a signal to every resumed source. False: the signal is not ignored, so its default
  /// action ends the process, even when a source has heard it.
  bool deliverSignal(int signalNumber);
  [[nodiscard]] bool ignoresDefaultAction(int signalNumber) const;
  void postToMain(korvel::Task work);

 private:
  class Signal;
  struct Signals;

  Scheduler& scheduler;
  ThreadGroup& process;
  std::shared_ptr<Lane> mainLane;
  const ScheduleObservers& observers;
  std::shared_ptr<Signals> signals;
  std::uint64_t timersMade = 0;
};

}  // namespace virtualmac
