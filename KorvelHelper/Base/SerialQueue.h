#pragma once

#include <memory>
#include <utility>

#include "Base/Annotations.h"
#include "Base/Task.h"
#include "Base/Trap.h"

namespace korvel {

/// A platform's serial queue: work runs one piece at a time, in the order posted.
/// Posted work keeps the queue alive until it has run, also when the owner has let go of it.
class WorkQueue {
 public:
  virtual ~WorkQueue() = default;
  /// Posts work and returns at once. Any thread.
  virtual void async(Task work) = 0;
  /// Posts work and waits for it. Must not be called from the queue itself.
  virtual void sync(Task work) = 0;
  /// True on the thread that is running this queue's current piece of work.
  [[nodiscard]] virtual bool isCurrent() const = 0;
};

/// A serial queue that the compiler knows as a guard: a field GUARDED_BY a queue may be touched
/// only by its work.
class CAPABILITY("serial queue") SerialQueue {
 public:
  explicit SerialQueue(std::shared_ptr<WorkQueue> platformQueue)
      : queue(std::move(platformQueue)) {}

  void async(Task body) { queue->async(std::move(body)); }
  void sync(Task body) EXCLUDES(this) { queue->sync(std::move(body)); }

  /// Traps when the caller does not run on this queue. Stands before every piece of work.
  void assertCurrent() const ASSERT_CAPABILITY(this) {
    if (!queue->isCurrent()) trap("work runs outside its serial queue");
  }

  /// The platform's queue, for making timers that fire on it.
  [[nodiscard]] const std::shared_ptr<WorkQueue>& platformQueue() const { return queue; }

 private:
  std::shared_ptr<WorkQueue> queue;
};

}  // namespace korvel
