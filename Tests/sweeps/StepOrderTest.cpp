#include <gtest/gtest.h>

#include <csignal>

#include "Tests/sweeps/Checks.h"
#include "Tests/sweeps/StoryTools.h"

/// Recovery after a crash relies on the order of effects: the record on disk, the hardware, the
/// reply.
namespace sweeps {

namespace {

Story at(double percent) {
  return {"stepOrder", std::string(newerKeysProfile), batteryAt(percent), {}};
}

/// Reads the journal from its construction on.
class Since {
 public:
  explicit Since(Stage& observed) : stage(observed), begin(entries().size()) {}

  /// Expects the lines in this order, possibly with others between. A line is given as its kind and
  /// the beginning of its text.
  void expectInOrder(const std::vector<std::string>& lines) const {
    std::size_t position = begin;
    for (const std::string& line : lines) {
      std::size_t found = position;
      while (found < entries().size() && !matches(entries()[found], line)) ++found;
      ASSERT_LT(found, entries().size()) << "missing or out of order: " << line << '\n' << text();
      position = found + 1;
    }
  }

 private:
  static bool matches(const virtualmac::Journal::Entry& entry, const std::string& line) {
    const std::size_t space = line.find(' ');
    return entry.kind == line.substr(0, space) &&
           entry.text.find(line.substr(space + 1)) != std::string::npos;
  }
  [[nodiscard]] const std::vector<virtualmac::Journal::Entry>& entries() const {
    return stage.world.journal().entries();
  }
  [[nodiscard]] std::string text() const {
    std::string all;
    for (std::size_t i = begin; i < entries().size(); ++i) {
      all += virtualmac::journalLine(entries()[i]) + '\n';
    }
    return all;
  }

  Stage& stage;
  std::size_t begin;
};

const std::string inflowOff = "smc CHIE <- 08";
const std::string inflowBack = "smc CHIE <- 00";
const std::string paused = "smc CHTE <- 01 00 00 00";
const std::string resumed = "smc CHTE <- 00 00 00 00";
const std::string released = "power released";
const std::string recordedActive = "disk forceDischargeActive=true";
const std::string recordedStopped = "disk forceDischargeActive=false";

class StepOrder : public testing::Test {
 protected:
  StepOrder() {
    stage.world.startHelper();
    stage.run(0.1);
  }
  bool ask(const virtualmac::AppCallRef& call) { return stage.ask(call); }
  virtualmac::AppClient& app() { return stage.app(); }
  virtualmac::Machine& mac() { return stage.mac(); }
  /// Discharges to a limit of 80 while the gate is paused.
  void beginPausedDischarge() {
    mac().battery.setPercent(90);
    beginWithLimit(stage, 80);
    stage.run(1);
    EXPECT_TRUE(ask(app().forceDischarge(true)));
  }
  void beginDischargeUnderTheLid() {
    mac().battery.setPercent(90);
    beginLidClosedDischarge(stage, 80);
  }
  void TearDown() override { EXPECT_EQ(stage.unmetExpectations(), std::vector<std::string>{}); }

  const Story story = at(justAbove(81));
  Stage stage{story};
};

TEST_F(StepOrder, ALimitIsRecordedThenConfirmedThenEnforced) {
  stage.join();
  mac().battery.setPercent(90);
  const Since mark(stage);
  EXPECT_TRUE(stage.setLimit(70));
  stage.run(1);
  mark.expectInOrder({"disk chargeLimit=70", "reply setChargeLimit ok", paused,
                      "log charge enforcement pause:ok"});
}

TEST_F(StepOrder, ADischargeWritesItsKeysThenHoldsSleepOffThenRecordsItself) {
  beginWithLimit(stage, 60);
  const Since mark(stage);
  EXPECT_TRUE(ask(app().forceDischarge(true)));
  mark.expectInOrder({inflowOff, "power created PreventUserIdleSystemSleep",
                      "power created PreventSystemSleep", recordedActive,
                      "reply forceDischarge ok"});
}

TEST_F(StepOrder, TheWatchdogRestoresTheInflowThenRecordsTheStopThenTellsIt) {
  beginDischarge(stage, 80);
  const Since mark(stage);
  stage.until([&] { return stoppedFor(stage, "targetReached"); }, 60, "the limit is reached");
  mark.expectInOrder({"log auto-stop discharge: cap=80 ≤ target=80", inflowBack, released, released,
                      recordedStopped, "log force-discharge auto-stopped: reason=targetReached"});
}

TEST_F(StepOrder, TheWatchdogGivesKeepAwakeBackBeforeItRecordsTheStop) {
  beginDischargeUnderTheLid();
  mac().battery.overrideTemperatureCelsius(50);
  const Since mark(stage);
  stage.until([&] { return stoppedFor(stage, "clamshellOverheated"); }, 10, "it gets too hot");
  mark.expectInOrder({inflowBack, "power SleepDisabled = 0", "disk sleepDisabledByKorvel=false",
                      "log clamshell keep-awake DISARMED", released, recordedStopped,
                      "log force-discharge auto-stopped"});
}

TEST_F(StepOrder, AStopByHandRestoresTheInflowThenPausesThenRecordsThenConfirms) {
  mac().battery.setPercent(90);
  stage.join();
  // The discharge starts within the first tick's work, so the gate is not paused yet.
  const auto limit = app().setChargeLimit(60);
  const auto start = app().forceDischarge(true);
  EXPECT_TRUE(ask(limit) && ask(start));
  mac().smc.setValue("CHTE", {0, 0, 0, 0});
  const Since mark(stage);
  EXPECT_TRUE(ask(app().forceDischarge(false)));
  mark.expectInOrder({inflowBack, paused, released, recordedStopped, "reply forceDischarge ok"});
}

TEST_F(StepOrder, AClearResumesThenRestoresTheInflowThenRecordsThenConfirms) {
  beginPausedDischarge();
  const Since mark(stage);
  EXPECT_TRUE(ask(app().clearChargeLimit()));
  mark.expectInOrder({resumed, inflowBack, released, recordedStopped, "reply clearChargeLimit ok"});
}

TEST_F(StepOrder, ATopOffRestoresTheInflowThenResumesThenRecordsThenConfirms) {
  beginPausedDischarge();
  const Since mark(stage);
  EXPECT_TRUE(ask(app().releaseLimitUntilFullThenRestore()));
  mark.expectInOrder({inflowBack, released, resumed, "disk topUpActive=true",
                      "reply releaseLimitUntilFullThenRestore ok"});
}

TEST_F(StepOrder, AResetRestoresTheKeysThenKeepAwakeThenRecordsThenConfirms) {
  beginDischargeUnderTheLid();
  const Since mark(stage);
  EXPECT_TRUE(ask(app().resetAllSMCKeys()));
  mark.expectInOrder({resumed, inflowBack, "power SleepDisabled = 0", released, recordedStopped,
                      "reply resetAllSMCKeys ok"});
}

TEST_F(StepOrder, ASuspensionRestoresTheInflowThenResumesThenRecords) {
  beginPausedDischarge();
  const Since mark(stage);
  app().disconnect();
  stage.run(31);
  mark.expectInOrder({"log all clients gone", inflowBack, released, resumed, recordedStopped});
}

TEST_F(StepOrder, AShutdownGivesKeepAwakeBackThenTheKeysThenRecordsThenExits) {
  beginDischargeUnderTheLid();
  stage.expectExit();
  const Since mark(stage);
  stage.world.sendSignal(SIGTERM);
  stage.run(1);
  mark.expectInOrder({"log shutdownGracefully", "power SleepDisabled = 0",
                      "disk sleepDisabledByKorvel=false", resumed, inflowBack, released,
                      recordedStopped, "proc exited 0"});
}

TEST_F(StepOrder, OwnershipIsOnDiskBeforeSleepDisabledIsOnAndLeavesItAfterwards) {
  beginWithLimit(stage, 80);
  const Since armed(stage);
  EXPECT_TRUE(ask(app().setClamshellKeepAwake(true)));
  armed.expectInOrder({"disk sleepDisabledByKorvel=true", "power SleepDisabled = 1",
                       "log clamshell keep-awake ARMED", "reply setClamshellKeepAwake ok"});
  const Since disarmed(stage);
  EXPECT_TRUE(ask(app().setClamshellKeepAwake(false)));
  disarmed.expectInOrder({"power SleepDisabled = 0", "disk sleepDisabledByKorvel=false",
                          "log clamshell keep-awake DISARMED", "reply setClamshellKeepAwake ok"});
}

TEST_F(StepOrder, AnArmingThatFailsIsTakenBackOnDiskBeforeItIsRefused) {
  beginWithLimit(stage, 80);
  mac().power.settingRefusal = korvel::ioReturnNotPrivileged;
  const Since mark(stage);
  EXPECT_FALSE(ask(app().setClamshellKeepAwake(true)));
  mark.expectInOrder({"disk sleepDisabledByKorvel=true", "power SleepDisabled",
                      "disk sleepDisabledByKorvel=false",
                      "reply setClamshellKeepAwake failed 501"});
}

TEST_F(StepOrder, ThePauseBeforeSleepIsWrittenBeforeTheAcknowledgement) {
  mac().battery.setPercent(60);
  beginWithLimit(stage, 80, 1);
  const Since mark(stage);
  mac().power.requestSleep();
  stage.run(5);
  mark.expectInOrder({"log kIOMessageSystemWillSleep", paused,
                      "log pre-sleep CHTE pause-write succeeded", "power acknowledged by",
                      "power asleep"});
}

TEST_F(StepOrder, ADischargeEndsAndIsRecordedBeforeSleepIsAcknowledged) {
  mac().battery.setPercent(90);
  beginWithLimit(stage, 80);
  EXPECT_TRUE(ask(app().forceDischarge(true)));
  const Since mark(stage);
  mac().lid.close();
  stage.run(5);
  mark.expectInOrder({"log pre-sleep: aborting active force-discharge before sleep", inflowBack,
                      released, recordedStopped, "power acknowledged by", "power asleep"});
}

TEST_F(StepOrder, RecoveryClearsTheHardwareThenTheRecord) {
  beginDischargeUnderTheLid();
  stage.world.killHelper();
  mac().lid.open();
  const Since mark(stage);
  stage.world.startHelper();
  stage.run(1);
  mark.expectInOrder({"log crash-recovery: clearing stuck discharge keys", inflowBack,
                      "log crash-recovery: clearing SleepDisabled", "power SleepDisabled = 0",
                      recordedStopped});
}

}  // namespace

}  // namespace sweeps
