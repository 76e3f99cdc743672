#include "VirtualMac/Schedule/VirtualQueue.h"

#include <utility>

#include "Base/Trap.h"

namespace virtualmac {

// ---- queue

VirtualQueue::VirtualQueue(Scheduler& baton, std::shared_ptr<Lane> thread,
                           const ScheduleObservers& watchers)
    : scheduler(baton), own(std::move(thread)), observers(watchers) {}

void VirtualQueue::async(korvel::Task work) {
  scheduler.requireAlive(own->process());
  scheduler.post(*own, observed(std::move(work)));
  scheduler.mayInterrupt();
}

korvel::Task VirtualQueue::observed(korvel::Task work) {
  const std::uint64_t number = ++posted;
  observers.tell(&ScheduleObserver::workPosted, scheduler.current(), *own, number);
  // The queue itself may be gone by the time its lane runs the work.
  return [&watchers = observers, &lane = *own, number, body = std::move(work)]() mutable {
    watchers.tell(&ScheduleObserver::workBegins, lane, number);
    body();
    watchers.tell(&ScheduleObserver::workEnds, lane, number);
  };
}

namespace {

/// The two ends of one sync call.
struct Rendezvous {
  Lane* waiter = nullptr;
  bool begun = false;
  bool over = false;
};

/// Lets the waiter go at the end of the work, also when the work unwinds.
class Completion {
 public:
  Completion(Scheduler& baton, Rendezvous& both) : scheduler(baton), meeting(both) {}
  ~Completion() {
    meeting.over = true;
    scheduler.wake(*meeting.waiter);
  }
  Completion(const Completion&) = delete;
  Completion& operator=(const Completion&) = delete;

 private:
  Scheduler& scheduler;
  Rendezvous& meeting;
};

}  // namespace

void VirtualQueue::sync(korvel::Task work) {
  ThreadGroup* process = own->process();
  scheduler.requireAlive(process);
  if (!process->alive()) return;
  Lane& caller = scheduler.current();
  const Nanoseconds since = scheduler.time().uptime();
  const auto meeting = std::make_shared<Rendezvous>();
  meeting->waiter = &caller;
  scheduler.post(*own, observed([this, meeting, work = std::move(work)]() mutable {
    meeting->begun = true;
    const Completion completion(scheduler, *meeting);
    work();
  }));
  while (!meeting->over) {
    scheduler.block(
        Wait{.what = "sync", .name = own->name(), .holder = own.get(), .process = process});
    // Work that has begun refers to the caller's stack: the caller must not unwind before its end.
    if (!meeting->begun) scheduler.requireAlive(process);
  }
  scheduler.requireAlive(process);
  observers.tell(&ScheduleObserver::waited, caller, std::string_view("sync"),
                 toSeconds(scheduler.time().uptime() - since));
}

bool VirtualQueue::isCurrent() const { return &scheduler.current() == own.get(); }

// ---- timer

TimerCore::TimerCore(Scheduler& baton, std::shared_ptr<Lane> thread,
                     const ScheduleObservers& watchers, std::uint64_t id)
    : scheduler(baton),
      lane(std::move(thread)),
      observers(watchers),
      alarm(baton.alarms(), [this] { ring(); }) {
  facts.id = id;
  facts.process = lane->process();
}

void TimerCore::schedule(double delaySeconds, std::optional<double> intervalSeconds) {
  if (intervalSeconds && *intervalSeconds <= 0) korvel::trap("a timer without an interval");
  facts.delaySeconds = delaySeconds;
  facts.intervalSeconds = intervalSeconds;
  next = scheduler.time().uptime() + fromSeconds(delaySeconds);
  interval = intervalSeconds ? fromSeconds(*intervalSeconds) : 0;
  scheduled = true;
  if (resumed && !cancelled) alarm.arm(next);
}

void TimerCore::resume() {
  if (resumed) korvel::trap("a timer was resumed twice");
  resumed = true;
  if (cancelled) return;
  if (scheduled) alarm.arm(next);
  observers.tell(&ScheduleObserver::timerStarted, facts);
}

void TimerCore::cancel() {
  if (cancelled) return;
  cancelled = true;
  alarm.disarm();
  if (resumed) observers.tell(&ScheduleObserver::timerCancelled, facts);
}

void TimerCore::ring() {
  if (!lane->process()->alive()) return;
  if (interval > 0) {
    const Nanoseconds late = scheduler.time().uptime() - next;
    next += (late / interval + 1) * interval;
    alarm.arm(next);
  }
  if (pending) return;
  pending = true;
  scheduler.post(*lane, [core = shared_from_this()] { core->fire(); });
}

void TimerCore::fire() {
  pending = false;
  if (cancelled) return;
  observers.tell(&ScheduleObserver::timerFires, facts);
  if (handler) handler();
  observers.tell(&ScheduleObserver::timerDone, facts);
}

// ---- group

VirtualGroup::VirtualGroup(Scheduler& baton, ThreadGroup& owner, const ScheduleObservers& watchers)
    : scheduler(baton), process(owner), observers(watchers) {}

void VirtualGroup::leave() {
  if (entered == 0) korvel::trap("a group was left more often than entered");
  if (--entered > 0) return;
  for (Lane* lane : std::exchange(waiting, {})) scheduler.wake(*lane);
}

bool VirtualGroup::wait(double timeoutSeconds) {
  scheduler.requireAlive(&process);
  if (!process.alive()) return entered == 0;
  scheduler.mayInterrupt();
  if (entered == 0) return true;
  Lane& lane = scheduler.current();
  const Nanoseconds since = scheduler.time().uptime();
  waiting.push_back(&lane);
  scheduler.block(Wait{.what = "group", .process = &process}, fromSeconds(timeoutSeconds));
  std::erase(waiting, &lane);
  scheduler.requireAlive(&process);
  observers.tell(&ScheduleObserver::waited, lane, std::string_view("group"),
                 toSeconds(scheduler.time().uptime() - since));
  return entered == 0;
}

}  // namespace virtualmac
