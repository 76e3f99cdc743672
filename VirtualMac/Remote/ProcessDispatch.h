#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "Platform/Dispatch.h"
#include "VirtualMac/Remote/MachineClock.h"

namespace virtualmac {

/// Queues, timers, groups, locks and the main loop with real threads.
///
/// A serial queue is a thread of its own with an Asio context, which outlives the queue until the
/// posted work is done. Timers are alarms on the machine's clock: they follow its speed, and stand
/// still while it sleeps. The main loop is an Asio context that the main thread runs; signals and
/// power messages come to it.
///
/// Group waits are the machine's time too, but real threads need real time to get anything done: a
/// wait is never shorter than 250 real milliseconds, however fast the machine's time runs. A
/// sleeping machine does not stop them.
///
/// Signals: here an ignored signal would never be delivered, so taking the default action away
/// means installing a handler that passes the signal to the main loop; there its sources hear it.
///
/// Failure: none. What the operating system refuses (a thread) ends the process.
class ProcessDispatch final : public korvel::Dispatch {
 public:
  explicit ProcessDispatch(MachineClock& machineClock);
  ~ProcessDispatch() override;

  std::shared_ptr<korvel::WorkQueue> makeSerialQueue(std::string_view label) override;
  std::unique_ptr<korvel::TimerSource> makeTimer(
      const std::shared_ptr<korvel::WorkQueue>& queue) override;
  std::unique_ptr<korvel::SignalSource> makeSignalSource(int signalNumber) override;
  std::shared_ptr<korvel::DispatchGroup> makeGroup() override;
  std::unique_ptr<korvel::LockPrimitive> makeLock(std::string_view label) override;
  void ignoreDefaultAction(int signalNumber) override;
  void runMainLoop() override;

  /// Runs `work` on the main thread, in the order posted. Any thread.
  void postToMain(std::function<void()> work);
  /// Lets runMainLoop return, also one that has yet to begin. Only tests end a loop; a process ends
  /// by exit.
  void stopMainLoop();

 private:
  struct MainLoop;
  MachineClock& clock;
  std::shared_ptr<MainLoop> main;
};

}  // namespace virtualmac
