#include "VirtualMac/Schedule/VirtualLock.h"

#include <utility>

#include "Base/Trap.h"

namespace virtualmac {

VirtualLock::VirtualLock(Scheduler& baton, ThreadGroup& owner, const ScheduleObservers& watchers,
                         std::string lockName)
    : scheduler(baton), process(owner), observers(watchers), label(std::move(lockName)) {}

void VirtualLock::lock() {
  scheduler.requireAlive(&process);
  if (!process.alive()) return;
  scheduler.mayInterrupt();
  Lane& lane = scheduler.current();
  if (holder == nullptr) {
    holder = &lane;
  } else {
    waitForTurn(lane);
  }
  lane.held.push_back(this);
  observers.tell(&ScheduleObserver::lockTaken, lane, *this);
}

void VirtualLock::waitForTurn(Lane& lane) {
  const bool taken = holder == &lane;
  const Nanoseconds since = scheduler.time().uptime();
  // Leaves the line even when the wait ends by an exception.
  struct Place {
    VirtualLock& lock;
    Lane& lane;
    ~Place() { std::erase(lock.waiting, &lane); }
  } place{*this, lane};
  waiting.push_back(&lane);
  do {
    scheduler.block(Wait{.what = "lock", .name = label, .holder = holder, .process = &process});
    scheduler.requireAlive(&process);
  } while (taken || holder != &lane);
  observers.tell(&ScheduleObserver::waited, lane, std::string_view("lock"),
                 toSeconds(scheduler.time().uptime() - since));
}

void VirtualLock::unlock() {
  Lane& lane = scheduler.current();
  if (holder != &lane) {
    if (!process.alive()) return;
    korvel::trap("a lock was given back by a thread that does not hold it");
  }
  std::erase(lane.held, this);
  if (waiting.empty()) {
    holder = nullptr;
    return;
  }
  holder = waiting.front();
  waiting.pop_front();
  for (Lane* other : waiting) other->wait.holder = holder;
  scheduler.wake(*holder);
}

}  // namespace virtualmac
