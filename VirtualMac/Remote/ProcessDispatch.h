#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "Platform/Dispatch.h"
#include "VirtualMac/Remote/MachineClock.h"

namespace virtualmac {

/// Queues, timers, groups, locks and the main loop with real threads.
///
/// A serial queue is a ProcessQueue. Timers are alarms on the machine's clock: they follow its
/// speed, and stand still while it sleeps. The main loop is an Asio context that the main thread
/// runs; signals and power messages come to it.
///
/// Group waits follow the machine's time too, but last at least 250 real milliseconds, however fast
/// that time runs: real threads need real time. A sleeping machine does not stop them.
///
/// Signals: an ignored signal would never be delivered, so ignoreDefaultAction installs a handler
/// that passes the signal to the main loop, where its sources hear it.
///
/// Failure: none. The process ends when the operating system refuses a thread.
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
  /// Runs the main loop for so many real seconds; 0: what is ready now. Main thread.
  void runMainLoopFor(double seconds);

  /// Runs `work` on the main thread, in the order posted. Any thread.
  void postToMain(std::function<void()> work);
  /// Makes runMainLoop return, even if it is called later. For tests only: a process ends by exit.
  void stopMainLoop();

 private:
  struct MainLoop;
  MachineClock& clock;
  std::shared_ptr<MainLoop> main;
};

}  // namespace virtualmac
