#include "VirtualMac/Schedule/Scheduler.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "Base/Trap.h"

namespace virtualmac {

namespace {

/// Set while this thread of the operating system carries a lane.
thread_local Lane* carriedLane = nullptr;
thread_local const Scheduler* carrierOf = nullptr;

}  // namespace

ThreadGroup::ThreadGroup(std::string processName, std::function<void()> afterEnd)
    : label(std::move(processName)), onGone(std::move(afterEnd)) {}

Lane::Lane(Scheduler& owner, std::string threadName, ThreadGroup* process)
    : label(std::move(threadName)), group(process), waking(owner.alarmClock, [this, &owner] {
        timedOut = true;
        owner.wake(*this);
      }) {
  if (group != nullptr) group->lanes.push_back(this);
}

Lane::~Lane() {
  if (group != nullptr) std::erase(group->lanes, this);
}

Scheduler::Scheduler(SchedulerClock& machineClock, Order order, std::uint64_t seed,
                     std::uint64_t mostRoundsAtOneMoment)
    : clock(machineClock),
      ordering(order),
      randomNumbers(seed),
      driverLane(std::make_shared<Lane>(*this, "test", nullptr)),
      mostRounds(mostRoundsAtOneMoment) {
  driverLane->state = Lane::State::Running;
  driverLane->carrier = &driverPass;
}

Scheduler::~Scheduler() {
  for (std::unique_ptr<Worker>& worker : workers) WorkerPool::shared().give(std::move(worker));
}

// ---- the driver's

void Scheduler::runFor(Nanoseconds duration) {
  drive(Drive{true, clock.total() + duration, nullptr, false});
}

bool Scheduler::runUntil(const std::function<bool()>& reached, Nanoseconds limit) {
  if (reached()) return true;
  drive(Drive{true, clock.total() + limit, &reached, false});
  return driving.happened;
}

void Scheduler::killAndUnwind(ThreadGroup& process) {
  end(process);
  if (process.gone()) return;
  const std::function<bool()> over = [&process] { return process.gone(); };
  drive(Drive{true, clock.total(), &over, false});
}

void Scheduler::drive(Drive task) {
  if (&current() != driverLane.get()) korvel::trap("only the thread that made a world drives it");
  driving = task;
  // Not among the ready: pick() gives the baton back by itself when the drive is over.
  driverLane->state = Lane::State::Blocked;
  giveUpBaton(*driverLane);
  driving.active = false;
  if (stuck) throw StuckError(*std::exchange(stuck, std::nullopt));
}

// ---- lanes

Lane& Scheduler::current() { return carrierOf == this ? *carriedLane : *driverLane; }

bool Scheduler::mayUnwind() const { return !reaping && std::uncaught_exceptions() == 0; }

void Scheduler::requireAlive(const ThreadGroup* process) const {
  if (process != nullptr && process->ended && mayUnwind()) throw ProcessEnded{};
}

void Scheduler::makeReady(Lane& lane) {
  lane.state = Lane::State::Ready;
  ready.push_back(lane.shared_from_this());
}

void Scheduler::post(Lane& lane, korvel::Task work) {
  if (lane.group != nullptr && lane.group->ended) return;
  lane.inbox.push_back(std::move(work));
  if (lane.state == Lane::State::Idle) {
    makeReady(lane);
  } else if (lane.state == Lane::State::Blocked && lane.wait.servesInbox) {
    wake(lane);
  }
}

void Scheduler::wake(Lane& lane) {
  if (lane.state != Lane::State::Blocked) return;
  lane.waking.disarm();
  std::erase(blocked, &lane);
  makeReady(lane);
}

bool Scheduler::block(Wait wait, std::optional<Nanoseconds> timeout) {
  Lane& self = current();
  self.wait = wait;
  self.timedOut = false;
  self.state = Lane::State::Blocked;
  blocked.push_back(&self);
  if (timeout) {
    self.waking.arm(clock.uptime() + *timeout);
  } else {
    checkForCycle(self);
  }
  giveUpBaton(self);
  if (&self == driverLane.get() && stuck) {
    throw StuckError(*std::exchange(stuck, std::nullopt));
  }
  return !self.timedOut;
}

void Scheduler::sleepUntil(Nanoseconds due, ThreadGroup* process) {
  if (!mayUnwind()) return;
  block(Wait{.what = "time", .process = process}, std::max<Nanoseconds>(due - clock.uptime(), 0));
}

void Scheduler::mayInterrupt() {
  if (ordering == Order::Fifo || !mayUnwind() || !randomNumbers.chance(1, 4)) return;
  Lane& self = current();
  makeReady(self);
  giveUpBaton(self);
  requireAlive(self.group);
}

void Scheduler::serveInbox() {
  Lane& self = current();
  for (;;) {
    requireAlive(self.group);
    if (self.inbox.empty()) {
      block(Wait{.what = "main loop", .process = self.group, .servesInbox = true});
      continue;
    }
    korvel::Task work = std::move(self.inbox.front());
    self.inbox.pop_front();
    work();
    if (!self.inbox.empty()) {
      makeReady(self);
      giveUpBaton(self);
    }
  }
}

// ---- the end of processes

void Scheduler::end(ThreadGroup& process) {
  if (process.ended) return;
  process.ended = true;
  // Work that has not begun never will; work that has begun unwinds.
  std::erase_if(ready, [&process](const std::shared_ptr<Lane>& lane) {
    const bool unbegun = lane->group == &process && lane->carrier == nullptr;
    if (unbegun) lane->state = Lane::State::Idle;
    return unbegun;
  });
  const std::vector<Lane*> waiting = blocked;
  for (Lane* lane : waiting) {
    if (lane->group == &process || lane->wait.process == &process) wake(*lane);
  }
  reapIfOver(process);
}

void Scheduler::reapIfOver(ThreadGroup& process) {
  if (!process.ended || process.reaped || process.begun > 0) return;
  process.reaped = true;
  reaping = true;
  // Dropping work may drop lanes, so the list is walked through owners.
  std::vector<std::shared_ptr<Lane>> lanes;
  for (Lane* lane : process.lanes) lanes.push_back(lane->shared_from_this());
  for (const std::shared_ptr<Lane>& lane : lanes) {
    while (!lane->inbox.empty()) {
      const korvel::Task dropped = std::move(lane->inbox.front());
      lane->inbox.pop_front();
    }
  }
  if (process.onGone) process.onGone();
  reaping = false;
}

// ---- the baton

void Scheduler::giveUpBaton(Lane& self) {
  std::shared_ptr<Lane> next = pick();
  if (next.get() != &self) {
    BatonPass& carrier = *self.carrier;
    handTo(std::move(next));
    carrier.await();
  }
  self.state = Lane::State::Running;
}

void Scheduler::handTo(std::shared_ptr<Lane> next) {
  ++switchCount;
  if (next->carrier == nullptr) {
    idleWorker().start(*this, std::move(next));
    return;
  }
  // A lane in the middle of work is kept alive by its carrier. From `give` on this thread must not
  // touch it, not even to drop a reference.
  BatonPass& carrier = *next->carrier;
  next = nullptr;
  carrier.give();
}

Worker& Scheduler::idleWorker() {
  if (idle.empty()) {
    workers.push_back(WorkerPool::shared().take());
    return *workers.back();
  }
  Worker& worker = *idle.back();
  idle.pop_back();
  return worker;
}

void Scheduler::serve(Worker& worker, std::shared_ptr<Lane> lane) {
  for (;;) {
    runNextWork(*lane, worker.pass);
    std::shared_ptr<Lane> next = pick();
    lane = nullptr;
    if (next->carrier != nullptr) {
      // The worker becomes idle before the hand-over: right afterwards it may be started again.
      idle.push_back(&worker);
      handTo(std::move(next));
      return;
    }
    lane = std::move(next);
  }
}

void Scheduler::runNextWork(Lane& lane, BatonPass& carrier) {
  carriedLane = &lane;
  carrierOf = this;
  lane.state = Lane::State::Running;
  lane.carrier = &carrier;
  if (lane.group != nullptr) ++lane.group->begun;
  try {
    korvel::Task work = std::move(lane.inbox.front());
    lane.inbox.pop_front();
    work();
  } catch (const ProcessEnded&) {
    // The thread of an ended process has unwound, as it should.
  }
  const bool ended = lane.group != nullptr && lane.group->ended;
  if (!lane.held.empty() && !ended) korvel::trap("a piece of work ended with a lock held");
  lane.held.clear();
  lane.carrier = nullptr;
  carrierOf = nullptr;
  carriedLane = nullptr;
  lane.state = Lane::State::Idle;
  if (lane.group != nullptr) {
    --lane.group->begun;
    if (ended) {
      reapIfOver(*lane.group);
      return;
    }
  }
  if (!lane.inbox.empty()) makeReady(lane);
}

// ---- who is next

std::shared_ptr<Lane> Scheduler::pick() {
  for (;;) {
    if (driving.active) {
      if (stuck) return stopDriving();
      if (driving.reached != nullptr && (*driving.reached)()) {
        driving.happened = true;
        return stopDriving();
      }
    }
    if (++roundsAtThisMoment > mostRounds) {
      roundsAtThisMoment = 0;
      reportStuck("work goes on without time passing" +
                  (ready.empty() ? std::string() : ": " + ready.front()->name()));
    }
    alarmClock.ringDue(clock.uptime());
    if (std::shared_ptr<Lane> next = pickReady()) return next;
    if (!letTimePass()) {
      if (driving.active) return stopDriving();
      reportStuck("nothing can run: " + describeWaits());
      wake(*driverLane);
    }
  }
}

std::shared_ptr<Lane> Scheduler::stopDriving() {
  driving.active = false;
  return driverLane;
}

std::shared_ptr<Lane> Scheduler::pickReady() {
  if (ready.empty()) return nullptr;
  const auto hasEnded = [](const std::shared_ptr<Lane>& lane) {
    return lane->group != nullptr && lane->group->ended;
  };
  auto chosen = std::find_if(ready.begin(), ready.end(), hasEnded);
  if (chosen == ready.end()) {
    if (clock.asleep()) {
      chosen = std::find(ready.begin(), ready.end(), driverLane);
      if (chosen == ready.end()) return nullptr;
    } else {
      const std::size_t index = ordering == Order::Fifo ? 0 : randomNumbers.below(ready.size());
      chosen = ready.begin() + static_cast<std::ptrdiff_t>(index);
    }
  }
  std::shared_ptr<Lane> lane = std::move(*chosen);
  ready.erase(chosen);
  return lane;
}

bool Scheduler::letTimePass() {
  const std::optional<Nanoseconds> event = clock.untilNextEvent();
  std::optional<Nanoseconds> step = event;
  if (!alarmClock.empty() && !clock.asleep()) {
    const Nanoseconds alarm = std::max<Nanoseconds>(alarmClock.earliest() - clock.uptime(), 0);
    step = step ? std::min(*step, alarm) : alarm;
  }
  if (driving.active) {
    if (!step && someoneWaitsForEver()) {
      reportStuck("nothing can run: " + describeWaits());
      return true;
    }
    const Nanoseconds limit = driving.until - clock.total();
    if (!step || *step > limit) {
      if (limit > 0) clock.advance(limit);
      return false;
    }
  }
  if (!step) return false;
  if (*step > 0) roundsAtThisMoment = 0;
  clock.advance(*step);
  return true;
}

// ---- nobody moves

void Scheduler::checkForCycle(const Lane& start) {
  const Lane* lane = &start;
  std::string text;
  do {
    if (lane->state != Lane::State::Blocked || lane->wait.holder == nullptr) return;
    text += (text.empty() ? "" : "; ") + lane->label + " waits for " +
            std::string(lane->wait.what) + ' ' + std::string(lane->wait.name) + " held by " +
            lane->wait.holder->label;
    lane = lane->wait.holder;
  } while (lane != &start);
  reportStuck(text);
}

void Scheduler::reportStuck(std::string text) {
  stuck = std::move(text);
  if (!driving.active) wake(*driverLane);
}

bool Scheduler::someoneWaitsForEver() const {
  // The driver may still release the locks that it holds.
  if (!driverLane->held.empty()) return false;
  // Timed waits go on after the wake, and may then end those without a time-out.
  const auto timed = [](const Lane* lane) { return lane->waking.isArmed(); };
  if (clock.asleep() && std::any_of(blocked.begin(), blocked.end(), timed)) return false;
  return std::any_of(blocked.begin(), blocked.end(), [](const Lane* lane) {
    return !lane->wait.servesInbox && !lane->waking.isArmed();
  });
}

std::string Scheduler::describeWaits() const {
  std::string text;
  for (const Lane* lane : blocked) {
    if (lane->wait.servesInbox) continue;
    if (!text.empty()) text += "; ";
    text += lane->label + " waits for " + std::string(lane->wait.what);
    if (!lane->wait.name.empty()) text += ' ' + std::string(lane->wait.name);
    if (lane->wait.holder != nullptr) text += " held by " + lane->wait.holder->label;
  }
  if (clock.asleep()) text += text.empty() ? "the machine is asleep" : "; the machine is asleep";
  return text;
}

}  // namespace virtualmac
