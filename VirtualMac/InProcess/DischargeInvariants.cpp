#include <algorithm>
#include <optional>
#include <string>

#include "BatteryRegistryReader.h"
#include "HelperRecords.h"
#include "Platform/IORegistry.h"
#include "VirtualMac/InProcess/GatedHardware.h"
#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

namespace {

constexpr std::int64_t openFloor = 20;
constexpr std::int64_t closedFloor = 30;
constexpr std::int64_t reboundMargin = 3;
constexpr std::int64_t thermalCapCelsius = 45;
constexpr double heatSoakSeconds = 3600;
constexpr double tickSeconds = 5;
constexpr double unreadableSeconds = 3 * tickSeconds;

/// A gate that lets everything through: for looking on.
class OpenGate final : public CallGate {
 public:
  std::optional<InjectedFault> enter(SeamCall /*call*/) override { return std::nullopt; }
};

/// The readings that a helper would get now from a machine whose platform calls do not fail.
class Readings {
 public:
  explicit Readings(Machine& observed) : machine(observed), eye(observed, 0), registry(gate, eye) {}

  std::optional<std::int64_t> capacity() {
    const PowerSourceList& sources = machine.powerSources;
    if (sources.snapshotFails || sources.listFails || sources.listIsNotArray || sources.listEmpty) {
      return std::nullopt;
    }
    for (const korvel::PropertyValue& each : *machine.powerSources.current()) {
      const std::string* type = each["Type"].text();
      if (type == nullptr || *type != "InternalBattery") continue;
      if (const auto percent = each["Current Capacity"].integer()) return percent;
    }
    return std::nullopt;
  }

  bool lidClosed() {
    const Registry::EntryID root = machine.registry.matching("IOPMrootDomain");
    if (root == Registry::noEntry) return false;
    return machine.registry.property(root, "AppleClamshellState").boolean().value_or(false);
  }

  std::optional<std::int64_t> celsius() {
    const korvel::ObjectRef battery = registry.getMatchingService("AppleSmartBattery");
    if (battery == 0) return std::nullopt;
    const auto properties = korvel::BatteryRegistryReader::properties(registry, battery);
    registry.objectRelease(battery);
    if (!properties || !properties->contains("Temperature")) return std::nullopt;
    const auto hundredths = properties->at("Temperature").integer();
    return hundredths ? std::optional(*hundredths / 100) : std::nullopt;
  }

 private:
  Machine& machine;
  OpenGate gate;
  HelperProcess eye;
  GatedIORegistry registry;
};

/// What the journal tells of discharging: whether one runs, whether keep-awake is armed, and which
/// limits the helper may have in mind (the one on disk and the one last asked for).
class DischargeView {
 public:
  explicit DischargeView(const Machine& observed) : machine(observed) {}

  /// True: a discharge has just begun.
  bool see(const Journal::Entry& entry) {
    if (entry.kind == "proc" && !contains(entry.text, "signal ")) forget();
    if (entry.kind == "proc" && contains(entry.text, "killed")) forget();
    if (entry.kind == "log") seeLog(entry.text);
    if (entry.kind == "disk" && contains(entry.text, "forceDischargeActive=false")) active = false;
    if (entry.kind != "smc") return false;
    const JournalledWrite write = journalledWrite(entry.text);
    if (write.key != "CHIE" && write.key != "CH0I" && write.key != "CH0J") return false;
    if (write.isZero()) {
      active = false;
      return false;
    }
    const bool begins = !active && write.obeyed;
    if (begins) active = true;
    return begins;
  }

  bool active = false;
  bool armed = false;

  /// The limit that a discharge may have for certain; 0: none is known.
  [[nodiscard]] std::int64_t lowestLimit() const {
    const auto file = machine.disk.content(statePath);
    const auto record = file ? korvel::decodeStateFile(*file) : std::unexpected(std::string());
    if (!record) return 0;
    return std::min(record->chargeLimit, limitAsked.value_or(record->chargeLimit));
  }

 private:
  static constexpr std::string_view statePath =
      "/Library/Application Support/com.korvel.app.helper/state.json";

  void forget() {
    active = false;
    armed = false;
    limitAsked.reset();
  }
  void seeLog(const std::string& text) {
    if (contains(text, "clamshell keep-awake ARMED")) armed = true;
    if (contains(text, "clamshell keep-awake DISARMED")) armed = false;
    if (contains(text, "force-discharge auto-stopped")) active = false;
    const auto asked = numberAfter(text, "\"setChargeLimit(");
    if (asked && *asked >= 20 && *asked <= 100) limitAsked = asked;
  }

  const Machine& machine;
  std::optional<std::int64_t> limitAsked;
};

class DischargeStartsLawfully final : public Invariant {
 public:
  explicit DischargeStartsLawfully(World& watched)
      : Invariant(watched, "discharge starts lawfully"),
        view(watched.machine()),
        readings(watched.machine()) {}

  void journalled(const Journal::Entry& entry) override {
    if (!view.see(entry)) return;
    const bool lidClosed = readings.lidClosed();
    if (lidClosed && !view.armed) violate("started under a closed lid without keep-awake");
    const auto capacity = readings.capacity();
    if (!capacity) {
      violate("started without a capacity reading");
      return;
    }
    const std::int64_t floor = lidClosed ? closedFloor : openFloor;
    if (*capacity <= floor) violate("started at or below the floor");
    if (*capacity <= view.lowestLimit()) violate("started at or below the limit");
  }

 private:
  DischargeView view;
  Readings readings;
};

/// Each rule that ends a discharge ends it within one tick of becoming true, and a moment for the
/// calls themselves to take. Limits are taken in the discharge's favour where two may be meant.
/// While platform calls fail, nobody knows what the helper could see: the time counts anew.
class DischargeEndsInTime final : public Invariant {
 public:
  explicit DischargeEndsInTime(World& watched)
      : Invariant(watched, "discharge ends in time"),
        view(watched.machine()),
        readings(watched.machine()) {}

  void journalled(const Journal::Entry& entry) override {
    const bool wasArmed = view.armed;
    if (view.see(entry)) {
      lowest.reset();
      closedSince.reset();
      dueSince.reset();
      lookedAt.reset();
      told = false;
    }
    // Arming again starts the lid's clock again.
    if (entry.kind == "log" && contains(entry.text, "keep-awake ARMED")) closedSince.reset();
    if (wasArmed != view.armed) closedSince.reset();
    // The helper measures it by the calendar.
    if (entry.kind == "mac" && contains(entry.text, "clock set")) closedSince.reset();
    look();
  }
  void callMade(const Lane& /*lane*/, SeamCall /*call*/) override { look(); }
  void timerFires(const TimerFacts& timer) override {
    // The helper knows the level only tick by tick, and its lowest is of those.
    if (!view.active || timer.delaySeconds != 0) return;
    const auto capacity = readings.capacity();
    if (capacity && (!lowest || *capacity < *lowest)) lowest = capacity;
  }
  void finished() override { look(); }

 private:
  /// Beside the tick: calls of a slow machine take their time.
  static constexpr double slackSeconds = 2;

  void look() {
    if (!view.active || looking) return;
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
    if (lidClosed && !view.armed) return "lid closed";
    if (!lidClosed) closedSince.reset();
    if (lidClosed && !closedSince) closedSince = now;
    if (closedSince && now - *closedSince >= heatSoakSeconds + tickSeconds) return "heat soak";
    if (lidClosed && readings.celsius().value_or(0) >= thermalCapCelsius) return "overheated";
    if (lowest && *capacity >= *lowest + reboundMargin) return "rebound";
    if (*capacity <= (lidClosed ? closedFloor : openFloor)) return "floor";
    if (*capacity <= view.lowestLimit()) return "target";
    return "";
  }

  DischargeView view;
  Readings readings;
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

/// Sleep comes only after the helper's word, or without it when it is late; a discharge that the
/// helper could have stopped in its 100 ms is stopped by then.
class NoDischargeIntoSleep final : public Invariant {
 public:
  explicit NoDischargeIntoSleep(World& watched)
      : Invariant(watched, "no discharge into sleep"), view(watched.machine()) {}

  void journalled(const Journal::Entry& entry) override {
    view.see(entry);
    if (entry.kind != "power") return;
    if (contains(entry.text, "message 0xe0000280")) {
      late = false;
      acknowledged = false;
    }
    if (contains(entry.text, "message acknowledged by")) acknowledged = true;
    if (entry.text == "asleep" && view.active && acknowledged && !late) {
      violate("asleep while discharging");
    }
  }
  void waited(const Lane& /*lane*/, std::string_view what, double seconds) override {
    if (what == "group" && seconds >= preSleepWaitSeconds) late = true;
  }

 private:
  static constexpr double preSleepWaitSeconds = 0.0999;

  DischargeView view;
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
