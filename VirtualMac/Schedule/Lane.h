#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Base/Task.h"
#include "VirtualMac/Schedule/Alarm.h"
#include "VirtualMac/Schedule/Worker.h"

namespace virtualmac {

class Lane;
class Scheduler;
class VirtualLock;

/// Unwinds a thread of a process that has ended. Not an std::exception: nothing but the scheduler
/// (and a test that calls into a dead process on its own thread) catches it.
struct ProcessEnded {};

/// The threads of one process, which die together.
class ThreadGroup {
 public:
  /// `afterEnd` runs once, when the process has ended and its last thread has unwound.
  ThreadGroup(std::string processName, std::function<void()> afterEnd);

  [[nodiscard]] const std::string& name() const { return label; }
  [[nodiscard]] bool alive() const { return !ended; }
  /// The process has ended and unwound, and its pending work was dropped.
  [[nodiscard]] bool gone() const { return reaped; }

 private:
  friend class Lane;
  friend class Scheduler;
  std::string label;
  std::function<void()> onGone;
  std::vector<Lane*> lanes;
  std::size_t begun = 0;  ///< Lanes in the middle of a piece of work.
  bool ended = false;
  bool reaped = false;
};

/// The wait of a blocked lane.
struct Wait {
  std::string_view what;           ///< "lock", "sync", "group", "time", "main loop".
  std::string_view name = {};      ///< Of the lock or queue; lives as long as the wait.
  const Lane* holder = nullptr;    ///< The lane that must move first, if one is known.
  ThreadGroup* process = nullptr;  ///< Its end ends the wait, as that of the lane's own does.
  bool servesInbox = false;        ///< New work ends the wait.
};

/// One thread of a process, as its program sees it: a serial queue, the main thread, a connection's
/// thread. Work runs one piece at a time, in the order posted. A lane needs a thread of the
/// operating system only from the start of a piece of work to its end; the next piece may use
/// another.
class Lane : public std::enable_shared_from_this<Lane> {
 public:
  enum class State : std::uint8_t { Idle, Ready, Running, Blocked };

  /// `process` is null for the thread that drives.
  Lane(Scheduler& owner, std::string threadName, ThreadGroup* process);
  ~Lane();
  Lane(const Lane&) = delete;
  Lane& operator=(const Lane&) = delete;

  [[nodiscard]] const std::string& name() const { return label; }
  [[nodiscard]] ThreadGroup* process() const { return group; }
  /// The locks that it holds, in the order taken.
  [[nodiscard]] const std::vector<const VirtualLock*>& locksHeld() const { return held; }

 private:
  friend class Scheduler;
  friend class VirtualLock;
  std::string label;
  ThreadGroup* group;
  std::deque<korvel::Task> inbox;
  State state = State::Idle;
  BatonPass* carrier = nullptr;  ///< The thread that carries it, while in the middle of work.
  Wait wait;
  bool timedOut = false;
  Alarm waking;
  std::vector<const VirtualLock*> held;
};

}  // namespace virtualmac
