#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "HelperRecords.h"
#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"

namespace korvel::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using virtualmac::AppCall;
using virtualmac::AppCallRef;
using virtualmac::AppClient;
using virtualmac::SeamCall;
using virtualmac::World;
using virtualmac::WorldOptions;
using Lines = std::vector<std::string>;

/// A virtual Mac with a helper and one application, and short forms for common steps.
///
/// The charge is overridden with the value that a test sets, so passing time does not change it.
/// The adapter is connected at first, as in the profiles. Every test also checks the invariants of
/// every run.
class Bench {
 public:
  explicit Bench(std::string_view profile = "newer-keys");
  ~Bench();

  /// Puts a record on the disk, as if an earlier helper had left it there.
  void saveState(const HelperState& record);
  /// Starts the helper, connects the application, waits until all is idle, and marks.
  void boot();
  /// Does the same at a charge of `percent`.
  void bootAt(std::int64_t percent);
  /// Boots with an enforced limit and a charge one below it, so that the gate is still untouched,
  /// and marks. The charge is `percent` from then on, when that is given.
  void bootWithLimit(std::uint8_t limit, std::optional<std::int64_t> percent = std::nullopt);
  /// Boots with a record of a limit of 50 and of a heat pause, at a charge of 49.
  void bootHeatPaused();
  /// Sets a limit of 50 at a charge of `percent`, starts a discharge, and marks.
  void bootDischarging(std::int64_t percent = 70);
  /// Does the same with keep-awake armed first.
  void bootArmedDischarge(std::int64_t percent = 70);
  /// Does the same with a display, which holds off the lid's sleep once keep-awake ends.
  void bootDockedDischarge(std::int64_t percent = 70);
  /// Boots with an enforced limit, marks, and starts a top-off at a charge of `percent`.
  void bootToppingOff(std::uint8_t limit, std::optional<std::int64_t> percent = std::nullopt);
  /// Starts the helper and waits until all is idle; nobody connects.
  void startHelper();

  /// Sets the charge that the next readings give.
  void charge(std::int64_t percent);
  void chargeUnreadable();
  void adapterUnknown();
  void temperature(std::optional<double> celsius);

  /// Awaits the answer, then runs until nothing more happens without time passing.
  const AppCall& call(const AppCallRef& made);
  /// Does the same and gives the outcome, as `outcome` describes it.
  std::string ask(const AppCallRef& made);
  void run(double seconds) { world.runFor(seconds); }
  /// Sets the charge and runs for the five seconds of a tick.
  void tickAt(std::int64_t percent);
  /// Runs and counts the helper's platform calls meanwhile.
  virtualmac::CallCounts callsDuring(double seconds);
  /// Collects from now on the times at which the charge is read, which every tick does once.
  const std::vector<double>& noteTicks();
  /// Connects one more application and waits until all is idle.
  std::unique_ptr<AppClient> connectAnother();
  /// Has the application end the helper.
  void quit();
  /// Asks the Mac to sleep and gives it a second to do so.
  void sleepNow();

  /// Gives the journal since the last mark, only these kinds ("smc log"), as "kind text".
  [[nodiscard]] Lines since(std::string_view kinds);
  /// Gives the same with the time in front.
  [[nodiscard]] Lines timed(std::string_view kinds);
  /// Gives the log lines of one category since the last mark, as "default text".
  [[nodiscard]] Lines logs(std::string_view category = "HelperImpl") const;
  /// Gives a command's audit line for the application: "default setChargeLimit(80) pid=…".
  [[nodiscard]] std::string audit(std::string_view command) const;
  void mark();
  /// Reads the record on disk; fails the test when there is none.
  [[nodiscard]] HelperState onDisk();
  /// Reads the state from the helper's reply; fails the test when there is none.
  [[nodiscard]] HelperState state() const;
  /// Gives a key's bytes as text: "01 00 00 00", or "absent" when there is no such key.
  [[nodiscard]] std::string key(std::string_view name);
  /// Ignores an invariant that the test's set-up cannot keep. Say why at the call.
  void excuse(std::string rule) { excused.push_back(std::move(rule)); }
  [[nodiscard]] virtualmac::Machine& mac() { return world.machine(); }

  World world;
  virtualmac::InvariantSet invariants{world};
  std::unique_ptr<AppClient> app;

 private:
  std::size_t marked = 0;
  std::size_t markedLogs = 0;
  std::vector<double> readTimes;
  Lines excused;
};

/// A test on the usual bench. One that needs another kind of Mac makes a Bench of its own.
class OnBench : public testing::Test, public Bench {};

/// The rule about replies on the wire; calls that a test makes itself have none.
inline constexpr const char* replyRule = "one audit line and one reply each";

/// Describes a call: "ok", "failed 400 text", "failed" (no error object) or "no answer".
std::string outcome(const AppCall& call);

/// The commands that change the state, in an order in which all succeed at a charge above 60.
struct NamedCommand {
  std::string name;
  AppCallRef (*make)(AppClient& app);
};
std::vector<NamedCommand> everyCommand();

/// A record with a limit that was set before, so that the next client to connect arms enforcement.
HelperState savedLimit(std::int64_t limit);

}  // namespace korvel::test
