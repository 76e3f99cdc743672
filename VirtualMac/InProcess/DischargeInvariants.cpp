#include <map>
#include <optional>
#include <string>
#include <utility>

#include "VirtualMac/InProcess/DischargeRule.h"
#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Schedule/Lane.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {

namespace {

constexpr std::int64_t openFloor = 20;
constexpr std::int64_t closedFloor = 30;
constexpr std::uint64_t reboundMargin = 3;
constexpr std::int64_t thermalCapCelsius = 45;
constexpr double heatSoakSeconds = 3600;
constexpr double tickSeconds = 5;
constexpr double unreadableSeconds = 3 * tickSeconds;

/// The rise is computed unsigned, which fits the difference of any two readings.
bool hasRebounded(std::int64_t lowest, std::int64_t capacity) {
  return capacity > lowest &&
         static_cast<std::uint64_t>(capacity) - static_cast<std::uint64_t>(lowest) >= reboundMargin;
}

/// A start is judged by the helper's own readings: the last of each sort that its thread took in
/// this piece of work. A failed reading counts as none; a lid that could not be read counts as
/// open. Where the thread took no reading, the machine's present state decides.
class DischargeStartsLawfully final : public DischargeRule {
 public:
  explicit DischargeStartsLawfully(World& watched)
      : DischargeRule(watched, "discharge starts lawfully") {}

  void workBegins(const Lane& lane, std::uint64_t number) override {
    DischargeRule::workBegins(lane, number);
    seen.erase(&lane);
  }
  void timerFires(const TimerFacts& /*timer*/) override {
    seen.erase(&world.scheduler().current());
  }
  void callTakesEffect(const Lane& lane, SeamCall call, bool fails) override {
    switch (call) {
      case SeamCall::registryGetMatchingService:
      case SeamCall::registryCreateProperty:
        seen[&lane].lidClosed = !fails && readings.lidClosed();
        break;
      case SeamCall::powerSourcesCopyInfo:
        seen[&lane].capacity = Capacity{fails ? std::nullopt : readings.capacity()};
        break;
      case SeamCall::powerSourcesCopyList:
        if (fails) seen[&lane].capacity = Capacity{};
        break;
      default:
        break;
    }
  }

 protected:
  void happened(const Journal::Entry& /*entry*/, const Lane& lane, bool begins) override {
    if (!begins) return;
    const Seen& known = seen[&lane];
    const bool lidClosed = known.lidClosed.value_or(readings.lidClosed());
    const Capacity capacity = known.capacity.value_or(Capacity{readings.capacity()});
    if (lidClosed && !armed) violate("started under a closed lid without keep-awake");
    if (!capacity.percent) {
      violate("started without a capacity reading");
      return;
    }
    const std::int64_t floor = lidClosed ? closedFloor : openFloor;
    if (*capacity.percent <= floor) violate("started at or below the floor");
    if (*capacity.percent <= limit()) violate("started at or below the limit");
  }

 private:
  struct Capacity {
    std::optional<std::int64_t> percent;
  };
  struct Seen {
    std::optional<bool> lidClosed;
    std::optional<Capacity> capacity;
  };
  std::map<const Lane*, Seen> seen;
};

/// When a rule that ends a discharge becomes true, the discharge ends within one tick, plus some
/// slack for the calls. Where the helper may go by either of two limits, the lower one counts.
/// Every injected fault restarts the time, because the helper may not have seen the facts.
class DischargeEndsInTime final : public DischargeRule {
 public:
  explicit DischargeEndsInTime(World& watched) : DischargeRule(watched, "discharge ends in time") {}

  void callMade(const Lane& /*lane*/, SeamCall /*call*/) override { look(); }
  void timerFires(const TimerFacts& timer) override {
    // The helper reads the level once a tick, so its lowest level is one of those readings.
    if (!active || timer.delaySeconds != 0) return;
    const auto capacity = readings.capacity();
    if (capacity && (!lowest || *capacity < *lowest)) lowest = capacity;
  }
  void finished() override { look(); }

 protected:
  void happened(const Journal::Entry& entry, const Lane& /*lane*/, bool begins) override {
    if (begins) {
      lowest.reset();
      closedSince.reset();
      dueSince.reset();
      lookedAt.reset();
      told = false;
    }
    // Arming again starts the lid's clock again.
    if (contains(entry.message(), "keep-awake ARMED")) closedSince.reset();
    if (wasArmed != armed) closedSince.reset();
    wasArmed = armed;
    // The helper measures it by the calendar.
    if (entry.tells(EffectID::clockSet)) closedSince.reset();
    look();
  }

 private:
  /// Added to the tick for the calls of a slow machine.
  static constexpr double slackSeconds = 2;

  void look() {
    if (!active || looking) return;
    if (lookedAt == world.uptime() && world.machine().battery.percent() == shownPercent) return;
    looking = true;
    lookedAt = world.uptime();
    shownPercent = world.machine().battery.percent();
    consider();
    looking = false;
  }

  void consider() {
    const double now = world.uptime();
    if (world.faults().injected() != faultsSeen) {
      faultsSeen = world.faults().injected();
      lowest.reset();
      closedSince.reset();
      dueSince.reset();
    }
    const std::string due = ruleThatHolds(now);
    if (due.empty()) {
      dueSince.reset();
      return;
    }
    if (!dueSince) dueSince = now;
    if (now - *dueSince <= tickSeconds + slackSeconds || told) return;
    told = true;
    violate("still running long after: " + due);
  }

  std::string ruleThatHolds(double now) {
    const auto capacity = readings.capacity();
    if (!capacity) {
      if (!unreadableSince) unreadableSince = now;
      return now - *unreadableSince >= unreadableSeconds ? "capacity unreadable" : "";
    }
    unreadableSince.reset();
    const bool lidClosed = readings.lidClosed();
    if (lidClosed && !armed) return "lid closed";
    if (!lidClosed) closedSince.reset();
    if (lidClosed && !closedSince) closedSince = now;
    if (closedSince && now - *closedSince >= heatSoakSeconds + tickSeconds) return "heat soak";
    if (lidClosed && readings.celsius().value_or(0) >= thermalCapCelsius) return "overheated";
    if (lowest && hasRebounded(*lowest, *capacity)) return "rebound";
    if (*capacity <= (lidClosed ? closedFloor : openFloor)) return "floor";
    if (*capacity <= lowestTarget()) return "target";
    return "";
  }

  bool wasArmed = false;
  std::optional<std::int64_t> lowest;
  std::optional<double> closedSince;
  std::optional<double> unreadableSince;
  std::optional<double> dueSince;
  std::optional<double> lookedAt;
  int shownPercent = 0;
  std::uint64_t faultsSeen = 0;
  bool looking = false;
  bool told = false;
};

/// When the helper has acknowledged the sleep, and its work before sleep did not exceed the 100 ms,
/// no discharge runs as the machine falls asleep. A discharge that begins after that work is
/// allowed.
class NoDischargeIntoSleep final : public DischargeRule {
 public:
  explicit NoDischargeIntoSleep(World& watched)
      : DischargeRule(watched, "no discharge into sleep") {}

  void workPosted(const Lane& from, const Lane& to, std::uint64_t number) override {
    DischargeRule::workPosted(from, to, number);
    if (&from != flushing) return;
    flushing = nullptr;
    lastWork = {&to, number};
  }
  void workEnds(const Lane& lane, std::uint64_t number) override {
    DischargeRule::workEnds(lane, number);
    if (!active) survived = false;
    if (lastWork != Work{&lane, number}) return;
    lastWorkDone = true;
    survived = active;
  }
  void waited(const Lane& /*lane*/, std::string_view what, double seconds) override {
    if (what == "group" && seconds >= preSleepWaitSeconds) late = true;
  }

 protected:
  void happened(const Journal::Entry& entry, const Lane& lane, bool /*begins*/) override {
    if (!active) survived = false;
    if (entry.message().starts_with("kIOMessageSystemWillSleep — ")) flushing = &lane;
    if (entry.tells(EffectID::messageSent) && entry.effect.word(0) == willSleep) {
      late = false;
      acknowledged = false;
      lastWorkDone = false;
      survived = false;
    }
    if (entry.tells(EffectID::messageAcknowledged)) acknowledged = true;
    const bool running = lastWorkDone ? survived : active;
    if (entry.tells(EffectID::fellAsleep) && running && acknowledged && !late) {
      violate("asleep while discharging");
    }
  }

 private:
  static constexpr double preSleepWaitSeconds = 0.0999;
  static constexpr std::string_view willSleep = "0xe0000280";
  using Work = std::pair<const Lane*, std::uint64_t>;

  const Lane* flushing = nullptr;  ///< About to post the work before sleep.
  Work lastWork;
  bool lastWorkDone = false;
  bool survived = false;  ///< A discharge outlived that work and still runs.
  bool late = false;
  bool acknowledged = false;
};

}  // namespace

void addDischargeInvariants(InvariantList& list, World& world) {
  list.push_back(std::make_unique<DischargeStartsLawfully>(world));
  list.push_back(std::make_unique<DischargeEndsInTime>(world));
  list.push_back(std::make_unique<NoDischargeIntoSleep>(world));
}

}  // namespace virtualmac
