#include <map>
#include <set>
#include <string>
#include <utility>

#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Schedule/Lane.h"
#include "VirtualMac/Schedule/Scheduler.h"
#include "VirtualMac/Schedule/VirtualLock.h"

namespace virtualmac {

namespace {

/// At most one timer of each kind runs in a process. The schedule tells the kind: polling (0 s,
/// then every 5 s), release (30 s, once), restore (5 s, then every 5 s).
class OneTimerOfEachKind final : public Invariant {
 public:
  explicit OneTimerOfEachKind(World& watched) : Invariant(watched, "one timer of each kind") {}

  void timerStarted(const TimerFacts& timer) override {
    if (++live[kindOf(timer)] > 1) {
      violate("a second timer of " + std::to_string(timer.delaySeconds) + " s");
    }
  }
  void timerCancelled(const TimerFacts& timer) override { --live[kindOf(timer)]; }

 private:
  using Kind = std::pair<const ThreadGroup*, std::pair<double, double>>;
  static Kind kindOf(const TimerFacts& timer) {
    return {timer.process, {timer.delaySeconds, timer.intervalSeconds.value_or(0)}};
  }
  std::map<Kind, int> live;
};

class CancelledTimersStayQuiet final : public Invariant {
 public:
  explicit CancelledTimersStayQuiet(World& watched)
      : Invariant(watched, "cancelled timers stay quiet") {}

  void timerCancelled(const TimerFacts& timer) override {
    cancelled.emplace(timer.process, timer.id);
  }
  void timerFires(const TimerFacts& timer) override {
    if (cancelled.contains({timer.process, timer.id})) violate("a cancelled timer's body runs");
  }

 private:
  std::set<std::pair<const ThreadGroup*, std::uint64_t>> cancelled;
};

class NoTwoLocksTogether final : public Invariant {
 public:
  explicit NoTwoLocksTogether(World& watched) : Invariant(watched, "no two locks together") {}

  void lockTaken(const Lane& lane, const VirtualLock& lock) override {
    if (lane.locksHeld().size() < 2) return;
    violate(lane.name() + " takes " + lock.name() + " holding " + lane.locksHeld()[0]->name());
  }
};

/// No platform call or reply is made under a lock. The one exception is the capabilities' lock,
/// which is held while a process's one probe asks the SMC.
class NoCallUnderLock final : public Invariant {
 public:
  explicit NoCallUnderLock(World& watched) : Invariant(watched, "no call under a lock") {}

  void lockTaken(const Lane& /*lane*/, const VirtualLock& lock) override {
    if (&lock == probing) probing = nullptr;  // Taken again: the probe is over.
  }
  void callMade(const Lane& lane, SeamCall call) override {
    if (lane.locksHeld().empty()) return;
    const VirtualLock* held = lane.locksHeld().back();
    const std::string_view asked = describe(call).interface;
    const bool ofAProbe = asked == "SMCUserClient" || asked == "UnifiedLog";
    if (held->name() == "capabilitiesLock" && ofAProbe) {
      if (probing != held && probed.insert(lane.process()).second) probing = held;
      if (probing == held) return;
    }
    violate(std::string(describe(call).id) + " under " + held->name());
  }
  void journalled(const Journal::Entry& entry) override {
    if (entry.kind != "reply") return;
    const Lane& lane = world.scheduler().current();
    if (lane.locksHeld().empty()) return;
    violate("reply under " + lane.locksHeld().back()->name());
  }

 private:
  const VirtualLock* probing = nullptr;
  std::set<const ThreadGroup*> probed;
};

}  // namespace

void addScheduleInvariants(InvariantList& list, World& world) {
  list.push_back(std::make_unique<OneTimerOfEachKind>(world));
  list.push_back(std::make_unique<CancelledTimersStayQuiet>(world));
  list.push_back(std::make_unique<NoTwoLocksTogether>(world));
  list.push_back(std::make_unique<NoCallUnderLock>(world));
}

}  // namespace virtualmac
