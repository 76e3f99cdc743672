#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "Base/Lock.h"
#include "Base/SerialQueue.h"

namespace korvel {

inline constexpr int signalInterrupt = 2;   ///< SIGINT
inline constexpr int signalAbort = 6;       ///< SIGABRT
inline constexpr int signalTerminate = 15;  ///< SIGTERM

/// A timer on a queue, stopped while the machine sleeps. Made suspended; destroying it cancels it.
/// Cancelled from its own queue, it never fires again, a firing already queued included.
class TimerSource {
 public:
  virtual ~TimerSource() = default;
  virtual void setEventHandler(std::function<void()> handler) = 0;
  /// First firing `delaySeconds` from now, then every `intervalSeconds`; none fires once. Firings
  /// that were missed come as one.
  virtual void schedule(double delaySeconds, std::optional<double> intervalSeconds,
                        std::uint64_t leewayNanoseconds) = 0;
  virtual void resume() = 0;
  virtual void cancel() = 0;
};

/// A signal as an event on the main queue. Made suspended; destroying it cancels it.
class SignalSource {
 public:
  virtual ~SignalSource() = default;
  virtual void setEventHandler(std::function<void()> handler) = 0;
  virtual void resume() = 0;
};

/// Counts pieces of work and lets a thread wait for them. Shared by the waiter and the work, since
/// the work may outlive the wait.
class DispatchGroup {
 public:
  virtual ~DispatchGroup() = default;
  virtual void enter() = 0;
  virtual void leave() = 0;
  /// Blocks until every enter was left, `timeoutSeconds` at most. False: timed out.
  virtual bool wait(double timeoutSeconds) = 0;
};

/// Queues, timers, groups, locks and the main loop. Any thread.
class Dispatch {
 public:
  virtual ~Dispatch() = default;
  /// A serial queue of quality of service "utility", no target queue.
  virtual std::shared_ptr<WorkQueue> makeSerialQueue(std::string_view label) = 0;
  virtual std::unique_ptr<TimerSource> makeTimer(const std::shared_ptr<WorkQueue>& queue) = 0;
  virtual std::unique_ptr<SignalSource> makeSignalSource(int signalNumber) = 0;
  virtual std::shared_ptr<DispatchGroup> makeGroup() = 0;
  /// `label` tells locks apart in reports; a platform's lock may have no place for it.
  virtual std::unique_ptr<LockPrimitive> makeLock(std::string_view label) = 0;
  /// Takes the signal's default action away; its signal source still hears it.
  virtual void ignoreDefaultAction(int signalNumber) = 0;
  /// Runs the calling thread's (the main thread's) loop, for the rest of the process's life.
  virtual void runMainLoop() = 0;
};

}  // namespace korvel
