#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "HelperRecords.h"
#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Schedule/Lane.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {

namespace {

/// Tells whether a reset or a shutdown is under way. Only these write keys of families that the
/// helper does not use otherwise.
class ResetWatch {
 public:
  void see(const Journal::Entry& entry) {
    if (entry.tells(EffectID::helperStarted)) {
      resets = 0;
      shuttingDown = false;
    }
    if (entry.message().starts_with("resetAllSMCKeys pid=")) ++resets;
    const bool replied = entry.kind == "reply" && !entry.tells(EffectID::told);
    if (replied && entry.effect.word(0) == "resetAllSMCKeys" && resets > 0) --resets;
    if (contains(entry.message(), "shutdownGracefully — ")) shuttingDown = true;
  }
  [[nodiscard]] bool resetting() const { return resets > 0 || shuttingDown; }

 private:
  int resets = 0;
  bool shuttingDown = false;
};

class PermittedWritesOnly final : public Invariant {
 public:
  explicit PermittedWritesOnly(World& watched) : Invariant(watched, "permitted writes only") {}

  void journalled(const Journal::Entry& entry) override {
    const std::optional<KeyWrite> write = keyWriteOf(entry);
    if (!write) return;
    static const std::map<std::string, std::set<std::string>, std::less<>> permitted{
        {"CHTE", {"01 00 00 00", "00 00 00 00"}},
        {"CH0B", {"00", "02"}},
        {"CH0C", {"00", "02"}},
        {"CHIE", {"00", "08"}},
        {"CH0I", {"00", "01"}},
        {"CH0J", {"00", "01"}}};
    const auto found = permitted.find(write->key);
    if (found == permitted.end() || !padded(found->second, write->payload)) violate(entry.text);
  }

 private:
  /// A key that states a larger size gets zeros after the payload.
  static bool padded(const std::set<std::string>& payloads, std::string_view written) {
    return std::any_of(payloads.begin(), payloads.end(), [&](const std::string& payload) {
      return written.starts_with(payload) &&
             written.find_first_not_of("0 ", payload.size()) == std::string::npos;
    });
  }
};

class OneFamilyOfKeys final : public Invariant {
 public:
  explicit OneFamilyOfKeys(World& watched) : Invariant(watched, "one family of keys") {}

  void journalled(const Journal::Entry& entry) override {
    reset.see(entry);
    if (entry.tells(EffectID::helperStarted)) {
      charging.clear();
      discharging.clear();
    }
    if (reset.resetting()) return;
    if (entry.tells(EffectID::nativeLimitSet) || entry.tells(EffectID::nativeLimitRefused) ||
        entry.tells(EffectID::nativeLimitIgnored) || entry.tells(EffectID::nativeLimitByUser)) {
      use(charging, "native");
    }
    const std::optional<KeyWrite> write = keyWriteOf(entry);
    if (!write) return;
    const std::string_view key = write->key;
    if (key == "CHTE") use(charging, "CHTE");
    if (key == "CH0B" || key == "CH0C") use(charging, "CH0B and CH0C");
    if (key == "CHIE") use(discharging, "CHIE");
    if (key == "CH0I" || key == "CH0J") use(discharging, "CH0I and CH0J");
  }

 private:
  void use(std::string& inUse, const std::string& family) {
    if (inUse.empty()) inUse = family;
    if (inUse != family) violate(family + " used beside " + inUse);
  }

  ResetWatch reset;
  std::string charging;
  std::string discharging;
};

/// The last work before an exit restores the system's defaults, because nobody controls the
/// hardware afterwards. Changes after that work are no violation. Nothing is checked when the
/// hardware refused a write or the work exceeded its half second. Some things are tried only once,
/// so they are not checked if refused earlier in this life: a release, a power setting, a record.
class ExitLeavesDefaults final : public Invariant {
 public:
  explicit ExitLeavesDefaults(World& watched) : Invariant(watched, "exit leaves defaults") {}

  void journalled(const Journal::Entry& entry) override {
    if (entry.tells(EffectID::helperStarted)) {
      releaseRefused = false;
      shuttingDown.clear();
      lastWork.clear();
      // A claim that the life before failed to record is unknown to this one too.
      claimLost = claimLost && keptAwake;
    }
    seeLog(entry.message());
    const std::optional<KeyWrite> write = keyWriteOf(entry);
    if (write && !write->obeyed) excused = true;
    switch (entry.effect.id) {
      case EffectID::nativeLimitRefused:
        excused = true;
        break;
      case EffectID::settingRefused:
        excused = true;
        keptAwake = false;
        break;
      case EffectID::settingByOther:
      case EffectID::settingRemovedByOther:
      case EffectID::powerLost:
      case EffectID::batteryRanOut:
      case EffectID::poweredOn:
        keptAwake = false;
        break;
      case EffectID::settingWritten:
        keptAwake = entry.effect.number(1) == 1;
        break;
      default:
        break;
    }
    if (!entry.tells(EffectID::helperExited) || entry.effect.number(1) != 0) return;
    if (!restored) check();
    // After the exit nobody owns the setting, even if it is still on.
    keptAwake = false;
  }

  void workPosted(const Lane& from, const Lane& to, std::uint64_t number) override {
    if (shuttingDown.erase(&from) > 0) lastWork.emplace(&to, number);
  }
  void workEnds(const Lane& lane, std::uint64_t number) override {
    if (lastWork.erase({&lane, number}) == 0) return;
    restored = true;
    check();
  }
  void waited(const Lane& /*lane*/, std::string_view what, double seconds) override {
    if (what == "group" && seconds >= shutdownWaitSeconds) excused = true;
  }

 private:
  static constexpr double shutdownWaitSeconds = 0.4999;

  void seeLog(std::string_view text) {
    if (contains(text, "IOPMAssertionRelease(")) releaseRefused = true;
    if (contains(text, "persistence.write failed")) claimLost = true;
    if (contains(text, "IOPMSetSystemPowerSetting(")) claimLost = true;
    if (!contains(text, "shutdownGracefully — ")) return;
    excused = false;
    restored = false;
    faultsBefore = world.faults().injected();
    shuttingDown.insert(&world.scheduler().current());
  }

  void check() {
    Machine& mac = world.machine();
    if (excused || world.faults().injected() != faultsBefore || !mac.activeFaultLines.empty()) {
      return;
    }
    if (!mac.smc.servicePresent || mac.smc.openRefusal) return;
    for (const korvel::ResetWrite& reset : korvel::resetWrites()) {
      const auto value = mac.smc.value(reset.key);
      if (value && *value != reset.bytes)
        violate(std::string(reset.key) + " is not at its default");
    }
    if (mac.powerUI.currentLimit() != 0) violate("a native limit is left");
    if (!releaseRefused && !mac.power.assertions().empty()) violate("an assertion is still held");
    if (claimLost) return;
    if (keptAwake) violate("SleepDisabled is still set");
    const auto record = recordOnDisk(mac);
    if (!record) return;
    if (record->sleepDisabledByKorvel) violate("SleepDisabled is still owned");
    if (record->forceDischargeActive) violate("a discharge is still recorded");
  }

  using Work = std::pair<const Lane*, std::uint64_t>;

  std::set<const Lane*> shuttingDown;  ///< About to post the last work.
  std::set<Work> lastWork;
  bool restored = false;  ///< The last work is done, and was judged.
  bool excused = false;
  bool releaseRefused = false;
  bool claimLost = false;
  bool keptAwake = false;  ///< The helper set it, and nobody has written it since.
  std::uint64_t faultsBefore = 0;
};

}  // namespace

void addHardwareInvariants(InvariantList& list, World& world) {
  list.push_back(std::make_unique<PermittedWritesOnly>(world));
  list.push_back(std::make_unique<OneFamilyOfKeys>(world));
  list.push_back(std::make_unique<ExitLeavesDefaults>(world));
}

}  // namespace virtualmac
