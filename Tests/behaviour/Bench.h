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

/// A virtual Mac with a helper and one application, and short ways to say what tests say often.
///
/// The battery's charge is what a test sets: it is put in the place of the reading, so that a
/// stretch of time does not move it. The adapter is connected at first, as the profiles have it.
/// Every test also checks the rules that hold in every run.
class Bench {
 public:
  explicit Bench(std::string_view profile = "newer-keys");
  ~Bench();

  /// Puts a record on the disk, as an earlier helper would have left it.
  void saveState(const HelperState& record);
  /// Starts the helper, connects the application, lets everything settle, and marks.
  void boot();
  /// Boots with a limit that is enforced, the charge one below it (so that the gate has not been
  /// touched), and marks.
  void bootWithLimit(std::uint8_t limit);
  /// Boots with a record of a limit of 50 and of a heat pause, at a charge of 49.
  void bootHeatPaused();
  /// Sets a limit of 50 at a charge of `percent`, starts a discharge, and marks.
  void bootDischarging(std::int64_t percent = 70);
  /// The same with keep-awake armed before.
  void bootArmedDischarge(std::int64_t percent = 70);

  /// The charge that the next readings give.
  void charge(std::int64_t percent);
  void chargeUnreadable();
  void adapterUnknown();
  void temperature(std::optional<double> celsius);

  /// Awaits the answer and lets everything settle that needs no time.
  const AppCall& call(const AppCallRef& made);
  void run(double seconds) { world.runFor(seconds); }

  /// The journal since the last mark, some kinds of it ("smc log"): "kind text".
  [[nodiscard]] Lines since(std::string_view kinds);
  /// The same with the time in front.
  [[nodiscard]] Lines timed(std::string_view kinds);
  /// The log lines since the last mark, one category's: "default text".
  [[nodiscard]] Lines logs(std::string_view category = "HelperImpl") const;
  void mark();
  /// The record on disk; fails the test when there is none.
  [[nodiscard]] HelperState onDisk();
  /// The state as the helper replies it; fails the test when it does not.
  [[nodiscard]] HelperState state() const;
  /// A key's bytes as text: "01 00 00 00"; "absent" when there is no such key.
  [[nodiscard]] std::string key(std::string_view name);
  /// Lets a test break a rule of every run that its set-up cannot keep. Say why at the call.
  void excuse(std::string rule) { excused.push_back(std::move(rule)); }
  [[nodiscard]] virtualmac::Machine& mac() { return world.machine(); }

  World world;
  virtualmac::InvariantSet invariants{world};
  std::unique_ptr<AppClient> app;

 private:
  std::size_t marked = 0;
  std::size_t markedLogs = 0;
  Lines excused;
};

/// A test on the usual bench. One that needs another kind of Mac makes a Bench of its own.
class OnBench : public testing::Test, public Bench {};

/// The rule about replies on the wire; calls that a test makes itself have none.
inline constexpr const char* replyRule = "one audit line and one reply each";

/// "ok", "failed 400 text", "failed" (no error object), "no answer".
std::string outcome(const AppCall& call);

/// A command's audit line as the application's calls leave it: "default setChargeLimit(80) pid=…".
std::string audit(const Bench& bench, std::string_view command);

/// The commands that change the state, in an order in which each succeeds on a charge above 60.
struct NamedCommand {
  std::string name;
  AppCallRef (*make)(AppClient& app);
};
std::vector<NamedCommand> everyCommand();

/// A record with a limit that was set once, so that a client's coming starts enforcement.
HelperState savedLimit(std::int64_t limit);

}  // namespace korvel::test
