#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

class Lane;
class ThreadGroup;
class VirtualLock;

/// A timer as it was scheduled.
struct TimerFacts {
  std::uint64_t id = 0;
  double delaySeconds = 0;
  std::optional<double> intervalSeconds;
  const ThreadGroup* process = nullptr;
};

/// Sees events that the journal does not show: locks, timers, waits, calls, and which lane posts
/// work to which.
class ScheduleObserver {
 public:
  virtual ~ScheduleObserver() = default;
  /// `lane` has just taken `lock`, which is now the last of the locks that it holds.
  virtual void lockTaken(const Lane& /*lane*/, const VirtualLock& /*lock*/) {}
  /// `lane` makes a platform call.
  virtual void callMade(const Lane& /*lane*/, SeamCall /*call*/) {}
  /// The call has its effect now; `fails`: a fault takes its place.
  virtual void callTakesEffect(const Lane& /*lane*/, SeamCall /*call*/, bool /*fails*/) {}
  /// `from` has put a piece of work into the queue of `to`: its `number`th, from 1.
  virtual void workPosted(const Lane& /*from*/, const Lane& /*to*/, std::uint64_t /*number*/) {}
  /// `lane` begins a piece of work of its queue, and has ended it without unwinding.
  virtual void workBegins(const Lane& /*lane*/, std::uint64_t /*number*/) {}
  virtual void workEnds(const Lane& /*lane*/, std::uint64_t /*number*/) {}
  /// `lane` begins to deliver a client's message ("setChargeLimit:reply:"), and has delivered it.
  virtual void messageBegins(const Lane& /*lane*/, std::string_view /*selector*/) {}
  virtual void messageEnds(const Lane& /*lane*/) {}
  /// A new connection of `client`, a process, is offered to the delegate of `process`, which has
  /// then accepted it or not.
  virtual void connectionOffered(const ThreadGroup& /*process*/, std::int32_t /*client*/) {}
  virtual void connectionDecided(const ThreadGroup& /*process*/, bool /*accepted*/) {}
  /// The invalidation handler of an ended connection is about to run, and has returned. This may
  /// come before the decision.
  virtual void connectionEnding(const ThreadGroup& /*process*/) {}
  virtual void connectionEnded(const ThreadGroup& /*process*/) {}
  /// The interruption handler of a connection is about to run, and has returned.
  virtual void connectionBreaking(const ThreadGroup& /*process*/) {}
  virtual void connectionBroken(const ThreadGroup& /*process*/) {}
  virtual void timerStarted(const TimerFacts& /*timer*/) {}
  virtual void timerCancelled(const TimerFacts& /*timer*/) {}
  /// The body is about to run.
  virtual void timerFires(const TimerFacts& /*timer*/) {}
  /// The body has returned.
  virtual void timerDone(const TimerFacts& /*timer*/) {}
  /// `lane` was blocked for `seconds` in a wait: "group", "sync" or "lock".
  virtual void waited(const Lane& /*lane*/, std::string_view /*what*/, double /*seconds*/) {}
};

/// Tells each event to every observer, in the order in which they were added.
class ScheduleObservers {
 public:
  void add(ScheduleObserver& observer) { observers.push_back(&observer); }
  void remove(ScheduleObserver& observer) { std::erase(observers, &observer); }
  template <class Method, class... Arguments>
  void tell(Method method, const Arguments&... arguments) const {
    for (ScheduleObserver* observer : observers) (observer->*method)(arguments...);
  }
  [[nodiscard]] bool empty() const { return observers.empty(); }

 private:
  std::vector<ScheduleObserver*> observers;
};

}  // namespace virtualmac
