// Each rule that ends a discharge by itself has its log line, its reason and its banner.

#include "DischargeDecision.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

/// Expects the effects that every automatic stop has.
void expectStopped(Bench& bench, DischargeStopReason reason) {
  EXPECT_EQ(bench.logs().back(),
            "default force-discharge auto-stopped: reason=" + std::string(rawValue(reason)));
  const HelperState record = bench.onDisk();
  EXPECT_FALSE(record.forceDischargeActive);
  EXPECT_EQ(record.lastDischargeAbortReason, bannerCopy(reason));
  EXPECT_TRUE(record.lastDischargeAbortAt.has_value());
  EXPECT_EQ(bench.key("CHIE"), "00");
  EXPECT_TRUE(bench.mac().power.assertions().empty());
  EXPECT_FALSE(bench.mac().power.sleepDisabled());
}

using DischargeWatchdogTest = OnBench;

TEST_F(DischargeWatchdogTest, TargetReachedStopsAndTheNextTickPausesTheGate) {
  bootDischarging();
  tickAt(51);
  EXPECT_THAT(since("smc log disk"), IsEmpty());
  tickAt(50);
  EXPECT_THAT(logs(), ElementsAre("default auto-stop discharge: cap=50 ≤ target=50",
                                  "default force-discharge auto-stopped: reason=targetReached"));
  EXPECT_THAT(since("smc power disk"),
              ElementsAre("smc CHIE <- 00", "power assertion 33001 released",
                          "power assertion 33002 released",
                          ::testing::StartsWith("disk state.json replaced: "
                                                "forceDischargeActive=false lastDischargeAbortAt="
                                                "2026-01-01T00:00:10Z lastDischargeAbortReason=")));
  expectStopped(*this, DischargeStopReason::targetReached);
  mark();
  run(5);
  EXPECT_THAT(since("smc"), ElementsAre("smc CHTE <- 01 00 00 00"));
}

TEST_F(DischargeWatchdogTest, TwoUnreadableTicksDoNothingAndTheThirdFailsSafe) {
  bootDischarging();
  chargeUnreadable();
  run(10);
  EXPECT_THAT(since("smc log disk"), IsEmpty());
  run(5);
  EXPECT_EQ(logs().front(),
            "fault auto-stop discharge: battery capacity unreadable for 3 consecutive ticks — "
            "failing safe");
  expectStopped(*this, DischargeStopReason::floorReached);
}

TEST_F(DischargeWatchdogTest, ReadableTickInBetweenResetsTheCount) {
  bootDischarging();
  chargeUnreadable();
  run(10);
  tickAt(69);
  chargeUnreadable();
  run(10);
  EXPECT_TRUE(state().forceDischargeActive);
  run(5);
  expectStopped(*this, DischargeStopReason::floorReached);
}

// The count belongs to the readings, not to one discharge: only a readable tick or a stop by itself
// resets it.
TEST_F(DischargeWatchdogTest, UnreadableTicksBeforeAUserStopCountInTheNextDischarge) {
  bootDischarging();
  chargeUnreadable();
  run(10);
  ASSERT_EQ(ask(app->forceDischarge(false)), "ok");
  charge(70);
  ASSERT_EQ(ask(app->forceDischarge(true)), "ok");
  chargeUnreadable();
  run(5);
  expectStopped(*this, DischargeStopReason::floorReached);
}

TEST_F(DischargeWatchdogTest, UnpluggedAdapterDoesNotStop) {
  bootDischarging();
  mac().adapter.disconnect();
  run(60);
  EXPECT_TRUE(state().forceDischargeActive);
  EXPECT_THAT(since("smc log disk"), IsEmpty());
}

TEST_F(DischargeWatchdogTest, ClosedLidWithoutKeepAwakeStops) {
  mac().lid.connectDisplay();
  bootDischarging();
  mac().lid.close();
  run(5);
  EXPECT_EQ(logs().front(), "default auto-stop discharge: lid closed during active discharge");
  expectStopped(*this, DischargeStopReason::lidClosed);
}

TEST_F(DischargeWatchdogTest, UnknownLidCountsAsOpen) {
  mac().lid.connectDisplay();
  bootDischarging();
  mac().lid.close();
  mac().registry.overrideProperty("IOPMrootDomain", "AppleClamshellState", PropertyValue());
  run(60);
  EXPECT_TRUE(state().forceDischargeActive);
}

TEST_F(DischargeWatchdogTest, FortyFiveDegreesUnderTheLidStopAndFortyFourDoNot) {
  bootDockedDischarge();
  mac().lid.close();
  temperature(44.99);
  run(60);
  EXPECT_THAT(logs(), IsEmpty());
  temperature(45);
  run(5);
  EXPECT_EQ(logs().front(),
            "default auto-stop discharge: battery 45°C ≥ 45°C clamshell "
            "thermal cap");
  expectStopped(*this, DischargeStopReason::clamshellOverheated);
}

TEST_F(DischargeWatchdogTest, HeatWithTheLidOpenDoesNotStop) {
  bootArmedDischarge();
  temperature(70);
  run(60);
  EXPECT_TRUE(state().forceDischargeActive);
}

TEST_F(DischargeWatchdogTest, UnknownTemperatureDoesNotStop) {
  bootArmedDischarge();
  mac().lid.close();
  temperature(std::nullopt);
  run(600);
  EXPECT_TRUE(state().forceDischargeActive);
}

TEST_F(DischargeWatchdogTest, AnHourUnderTheLidIsTheCap) {
  bootDockedDischarge();
  temperature(30);
  run(2);
  mac().lid.close();
  run(3);  // The tick at 5 s sees the lid closed for the first time.
  run(3595);
  EXPECT_TRUE(state().forceDischargeActive);
  mark();
  run(5);
  EXPECT_EQ(logs().front(),
            "default auto-stop discharge: clamshell lid-closed heat-soak duration cap reached");
  expectStopped(*this, DischargeStopReason::clamshellTimeout);
}

TEST_F(DischargeWatchdogTest, OpeningTheLidResetsTheHeatSoakClock) {
  bootDockedDischarge();
  temperature(30);
  mac().lid.close();
  run(3000);
  mac().lid.open();
  run(5);
  mac().lid.close();
  run(3000);
  EXPECT_TRUE(state().forceDischargeActive);
  run(605);
  expectStopped(*this, DischargeStopReason::clamshellTimeout);
}

TEST_F(DischargeWatchdogTest, ThreePointsAboveTheMinimumMeanThatTheInhibitIsLost) {
  bootDischarging();
  tickAt(52);
  tickAt(54);
  EXPECT_THAT(logs(), IsEmpty());
  tickAt(55);
  EXPECT_EQ(logs().front(),
            "default auto-stop discharge: capacity rebounded to 55% (≥ min 52% + 3) — inhibit "
            "lost, pack is charging");
  expectStopped(*this, DischargeStopReason::chargeInhibitLost);
}

// The charge is also at the target then, which would be the next reason.
TEST_F(DischargeWatchdogTest, ReboundIsTheOnlyReasonSaid) {
  bootDischarging();
  tickAt(52);
  charge(55);
  call(app->setChargeLimit(60));
  EXPECT_THAT(logs(),
              ElementsAre(audit("setChargeLimit(60)"),
                          "default auto-stop discharge: capacity rebounded to 55% (≥ min 52% + 3) "
                          "— inhibit lost, pack is charging",
                          "default force-discharge auto-stopped: reason=chargeInhibitLost"));
  expectStopped(*this, DischargeStopReason::chargeInhibitLost);
}

// The battery is also too warm, and at the floor and the target.
TEST_F(DischargeWatchdogTest, HeatSoakIsTheOnlyReasonSaid) {
  bootDockedDischarge();
  temperature(30);
  mac().lid.close();
  run(3600);
  ASSERT_TRUE(state().forceDischargeActive);
  temperature(45);
  mark();
  tickAt(30);
  EXPECT_THAT(
      logs(),
      ElementsAre("default auto-stop discharge: clamshell lid-closed heat-soak duration cap "
                  "reached",
                  "default clamshell keep-awake DISARMED",
                  "default force-discharge auto-stopped: reason=clamshellTimeout"));
  expectStopped(*this, DischargeStopReason::clamshellTimeout);
}

TEST_F(DischargeWatchdogTest, FloorWithTheLidOpenIsTwenty) {
  bootDischarging();
  charge(21);
  call(app->setChargeLimit(20));
  mark();
  run(5);
  EXPECT_THAT(logs(), IsEmpty());
  tickAt(20);
  EXPECT_EQ(logs().front(), "default auto-stop discharge: cap=20 ≤ floor=20");
  expectStopped(*this, DischargeStopReason::floorReached);
}

TEST_F(DischargeWatchdogTest, FloorWithTheLidClosedIsThirty) {
  bootDockedDischarge();
  temperature(30);
  call(app->setChargeLimit(20));
  mac().lid.close();
  tickAt(31);
  ASSERT_TRUE(state().forceDischargeActive);
  mark();
  tickAt(30);
  EXPECT_EQ(logs().front(), "default auto-stop discharge: cap=30 ≤ floor=30");
  expectStopped(*this, DischargeStopReason::floorReached);
}

TEST_F(DischargeWatchdogTest, MinimumStartsAfreshWithEveryDischarge) {
  bootDischarging();
  tickAt(52);
  call(app->forceDischarge(false));
  charge(60);
  call(app->forceDischarge(true));
  run(30);
  EXPECT_TRUE(state().forceDischargeActive);
}

TEST_F(DischargeWatchdogTest, StopIgnoresAKeyThatCannotBeWritten) {
  bootDischarging();
  mac().smc.key("CHIE")->writeResult = 134;
  tickAt(50);
  EXPECT_EQ(logs().back(), "default force-discharge auto-stopped: reason=targetReached");
  EXPECT_FALSE(onDisk().forceDischargeActive);
}

TEST_F(DischargeWatchdogTest, GateIsNotEvaluatedWhileADischargeRuns) {
  bootDischarging();
  run(300);
  EXPECT_THAT(since("smc"), IsEmpty()) << "70 % is above the limit of 50";
}

TEST_F(DischargeWatchdogTest, SteadyTickOfADischargeOnlyReads) {
  bootDischarging();
  run(5);
  EXPECT_EQ(callsDuring(5).text(),
            "registryGetMatchingService 1, registryCreateProperty 1, registryObjectRelease 1, "
            "powerSourcesCopyInfo 1, powerSourcesCopyList 1, powerSourcesGetDescription 1, "
            "powerSourcesRelease 2");
}

TEST_F(DischargeWatchdogTest, TemperatureIsReadOnlyUnderAClosedLidWithKeepAwake) {
  bootArmedDischarge();
  run(5);
  EXPECT_EQ(callsDuring(5)[SeamCall::registryCreateProperties], 0U);
  mac().lid.close();
  run(5);
  EXPECT_GE(callsDuring(5)[SeamCall::registryCreateProperties], 1U);
}

}  // namespace
}  // namespace korvel::test
