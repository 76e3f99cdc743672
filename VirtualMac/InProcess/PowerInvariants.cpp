#include <cstdint>
#include <string>

#include "HelperRecords.h"
#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Schedule/Lane.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {

namespace {

/// The flag reaches the disk before the setting is written, so that the next start undoes it after
/// a crash. Not checked when the disk refused a record in the same piece of work: the helper then
/// writes the setting all the same.
class SleepDisabledOnlyWhenOwned final : public Invariant {
 public:
  explicit SleepDisabledOnlyWhenOwned(World& watched)
      : Invariant(watched, "SleepDisabled only when owned") {}

  void workBegins(const Lane& lane, std::uint64_t /*number*/) override {
    if (&lane == refusing) refusing = nullptr;
  }
  void journalled(const Journal::Entry& entry) override {
    const Lane* lane = &world.scheduler().current();
    if (contains(entry.message(), "persistence.write failed")) refusing = lane;
    if (!entry.tells(EffectID::settingWritten) || entry.effect.number(1) != 1) return;
    if (refusing == lane) return;
    const auto record = recordOnDisk(world.machine());
    if (!record || !record->sleepDisabledByKorvel) violate("set without the flag on disk");
  }

 private:
  const Lane* refusing = nullptr;  ///< The disk refused a record in its present work.
};

/// Every assertion that the helper releases is one that it holds. No violation: the assertion timed
/// out first, or the platform refused the release.
class AssertionsReleasedOnce final : public Invariant {
 public:
  explicit AssertionsReleasedOnce(World& watched)
      : Invariant(watched, "assertions released once") {}

  void callMade(const Lane& lane, SeamCall call) override {
    // At the thread's next call its release has been answered.
    if (&lane == releasing) settle();
    if (call != SeamCall::assertionRelease) return;
    releasing = &lane;
    faultsBefore = world.faults().injected();
  }
  void journalled(const Journal::Entry& entry) override {
    if (entry.kind == "proc") {
      releasing = nullptr;
      timedOut = 0;
    }
    if (entry.tells(EffectID::assertionTimedOut)) ++timedOut;
    if (entry.tells(EffectID::assertionReleased)) releasing = nullptr;
  }
  void finished() override { settle(); }

 private:
  void settle() {
    if (releasing == nullptr) return;
    releasing = nullptr;
    if (world.faults().injected() != faultsBefore) return;
    if (world.machine().power.assertionReleaseRefusal) return;
    if (timedOut > 0) {
      --timedOut;
      return;
    }
    violate("released what it did not hold");
  }

  const Lane* releasing = nullptr;
  int timedOut = 0;
  std::uint64_t faultsBefore = 0;
};

/// The main thread hears signals and power messages, so it never waits long.
class MainThreadStaysFree final : public Invariant {
 public:
  explicit MainThreadStaysFree(World& watched) : Invariant(watched, "main thread stays free") {}

  void journalled(const Journal::Entry& entry) override {
    if (entry.tells(EffectID::helperStarted)) {
      shuttingDown = false;
      syncs = 0;
    }
    if (contains(entry.message(), "shutdownGracefully — ")) shuttingDown = true;
  }
  void waited(const Lane& lane, std::string_view what, double seconds) override {
    if (lane.name() != "main") return;
    const double limit = what != "group" ? 0 : shuttingDown ? shutdownSeconds : sleepSeconds;
    // The probe at boot is the one piece of work that it waits for without a limit.
    if (what == "sync" && ++syncs == 1) return;
    if (seconds > limit + toleranceSeconds) {
      violate("blocked in a " + std::string(what) + " for " + std::to_string(seconds) + " s");
    }
  }

 private:
  static constexpr double sleepSeconds = 0.1;
  static constexpr double shutdownSeconds = 0.5;
  static constexpr double toleranceSeconds = 1e-6;

  bool shuttingDown = false;
  int syncs = 0;
};

}  // namespace

void addPowerInvariants(InvariantList& list, World& world) {
  list.push_back(std::make_unique<SleepDisabledOnlyWhenOwned>(world));
  list.push_back(std::make_unique<AssertionsReleasedOnce>(world));
  list.push_back(std::make_unique<MainThreadStaysFree>(world));
}

}  // namespace virtualmac
