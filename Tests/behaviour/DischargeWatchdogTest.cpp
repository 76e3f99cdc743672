// The rules that end a discharge by themselves, each with its line, its reason and its banner.

#include "DischargeDecision.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

/// What every stop leaves behind.
void expectStopped(Bench& bench, DischargeStopReason reason) {
  EXPECT_EQ(bench.logs().back(),
            "default force-discharge auto-stopped: reason=" + std::string(rawValue(reason)));
  const HelperState record = bench.onDisk();
  EXPECT_FALSE(record.forceDischargeActive);
  EXPECT_EQ(record.lastDischargeAbortReason, std::string(bannerCopy(reason)));
  EXPECT_TRUE(record.lastDischargeAbortAt.has_value());
  EXPECT_EQ(bench.key("CHIE"), "00");
  EXPECT_TRUE(bench.mac().power.assertions().empty());
  EXPECT_FALSE(bench.mac().power.sleepDisabled());
}

TEST(DischargeWatchdogTest, TargetReachedStopsAndTheNextTickPausesTheGate) {
  Bench bench;
  bench.bootDischarging();
  bench.charge(51);
  bench.run(5);
  EXPECT_THAT(bench.since("smc log disk"), IsEmpty());
  bench.charge(50);
  bench.run(5);
  EXPECT_THAT(bench.logs(),
              ElementsAre("default auto-stop discharge: cap=50 ≤ target=50",
                          "default force-discharge auto-stopped: reason=targetReached"));
  EXPECT_THAT(bench.since("smc power disk"),
              ElementsAre("smc CHIE <- 00", "power assertion 33001 released",
                          "power assertion 33002 released",
                          ::testing::StartsWith("disk state.json replaced: "
                                                "forceDischargeActive=false lastDischargeAbortAt="
                                                "2026-01-01T00:00:10Z lastDischargeAbortReason=")));
  expectStopped(bench, DischargeStopReason::targetReached);
  bench.mark();
  bench.run(5);
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHTE <- 01 00 00 00"));
}

TEST(DischargeWatchdogTest, TwoUnreadableTicksDoNothingAndTheThirdFailsSafe) {
  Bench bench;
  bench.bootDischarging();
  bench.chargeUnreadable();
  bench.run(10);
  EXPECT_THAT(bench.since("smc log disk"), IsEmpty());
  bench.run(5);
  EXPECT_EQ(bench.logs().front(),
            "fault auto-stop discharge: battery capacity unreadable for 3 consecutive ticks — "
            "failing safe");
  expectStopped(bench, DischargeStopReason::floorReached);
}

TEST(DischargeWatchdogTest, ReadableTickInBetweenResetsTheCount) {
  Bench bench;
  bench.bootDischarging();
  bench.chargeUnreadable();
  bench.run(10);
  bench.charge(69);
  bench.run(5);
  bench.chargeUnreadable();
  bench.run(10);
  EXPECT_TRUE(bench.state().forceDischargeActive);
  bench.run(5);
  expectStopped(bench, DischargeStopReason::floorReached);
}

// The count belongs to the readings, not to one discharge: only a readable tick or a stop by itself
// resets it.
TEST(DischargeWatchdogTest, UnreadableTicksBeforeAUserStopCountInTheNextDischarge) {
  Bench bench;
  bench.bootDischarging();
  bench.chargeUnreadable();
  bench.run(10);
  ASSERT_EQ(outcome(bench.call(bench.app->forceDischarge(false))), "ok");
  bench.charge(70);
  ASSERT_EQ(outcome(bench.call(bench.app->forceDischarge(true))), "ok");
  bench.chargeUnreadable();
  bench.run(5);
  expectStopped(bench, DischargeStopReason::floorReached);
}

TEST(DischargeWatchdogTest, UnpluggedAdapterDoesNotStop) {
  Bench bench;
  bench.bootDischarging();
  bench.mac().adapter.disconnect();
  bench.run(60);
  EXPECT_TRUE(bench.state().forceDischargeActive);
  EXPECT_THAT(bench.since("smc log disk"), IsEmpty());
}

TEST(DischargeWatchdogTest, ClosedLidWithoutKeepAwakeStops) {
  Bench bench;
  bench.mac().lid.connectDisplay();
  bench.bootDischarging();
  bench.mac().lid.close();
  bench.run(5);
  EXPECT_EQ(bench.logs().front(),
            "default auto-stop discharge: lid closed during active discharge");
  expectStopped(bench, DischargeStopReason::lidClosed);
}

TEST(DischargeWatchdogTest, UnknownLidCountsAsOpen) {
  Bench bench;
  bench.mac().lid.connectDisplay();
  bench.bootDischarging();
  bench.mac().lid.close();
  bench.mac().registry.overrideProperty("IOPMrootDomain", "AppleClamshellState", PropertyValue());
  bench.run(60);
  EXPECT_TRUE(bench.state().forceDischargeActive);
}

TEST(DischargeWatchdogTest, FortyFiveDegreesUnderTheLidStopAndFortyFourDoNot) {
  Bench bench;
  bench.mac().lid.connectDisplay();  // Holds off the lid\'s sleep once keep-awake ends.
  bench.bootArmedDischarge();
  bench.mac().lid.close();
  bench.temperature(44.99);
  bench.run(60);
  EXPECT_THAT(bench.logs(), IsEmpty());
  bench.temperature(45);
  bench.run(5);
  EXPECT_EQ(bench.logs().front(),
            "default auto-stop discharge: battery 45°C ≥ 45°C clamshell "
            "thermal cap");
  expectStopped(bench, DischargeStopReason::clamshellOverheated);
}

TEST(DischargeWatchdogTest, HeatWithTheLidOpenDoesNotStop) {
  Bench bench;
  bench.bootArmedDischarge();
  bench.temperature(70);
  bench.run(60);
  EXPECT_TRUE(bench.state().forceDischargeActive);
}

TEST(DischargeWatchdogTest, UnknownTemperatureDoesNotStop) {
  Bench bench;
  bench.bootArmedDischarge();
  bench.mac().lid.close();
  bench.temperature(std::nullopt);
  bench.run(600);
  EXPECT_TRUE(bench.state().forceDischargeActive);
}

TEST(DischargeWatchdogTest, AnHourUnderTheLidIsTheCap) {
  Bench bench;
  bench.mac().lid.connectDisplay();  // Holds off the lid\'s sleep once keep-awake ends.
  bench.bootArmedDischarge();
  bench.temperature(30);
  bench.run(2);
  bench.mac().lid.close();
  bench.run(3);  // The tick at 5 s sees the lid closed for the first time.
  bench.run(3595);
  EXPECT_TRUE(bench.state().forceDischargeActive);
  bench.mark();
  bench.run(5);
  EXPECT_EQ(bench.logs().front(),
            "default auto-stop discharge: clamshell lid-closed heat-soak duration cap reached");
  expectStopped(bench, DischargeStopReason::clamshellTimeout);
}

TEST(DischargeWatchdogTest, OpeningTheLidResetsTheHeatSoakClock) {
  Bench bench;
  bench.mac().lid.connectDisplay();  // Holds off the lid\'s sleep once keep-awake ends.
  bench.bootArmedDischarge();
  bench.temperature(30);
  bench.mac().lid.close();
  bench.run(3000);
  bench.mac().lid.open();
  bench.run(5);
  bench.mac().lid.close();
  bench.run(3000);
  EXPECT_TRUE(bench.state().forceDischargeActive);
  bench.run(605);
  expectStopped(bench, DischargeStopReason::clamshellTimeout);
}

TEST(DischargeWatchdogTest, ThreePointsAboveTheMinimumMeanThatTheInhibitIsLost) {
  Bench bench;
  bench.bootDischarging();
  bench.charge(52);
  bench.run(5);
  bench.charge(54);
  bench.run(5);
  EXPECT_THAT(bench.logs(), IsEmpty());
  bench.charge(55);
  bench.run(5);
  EXPECT_EQ(bench.logs().front(),
            "default auto-stop discharge: capacity rebounded to 55% (≥ min 52% + 3) — inhibit "
            "lost, pack is charging");
  expectStopped(bench, DischargeStopReason::chargeInhibitLost);
}

// The charge is also at the target then, which would be the next reason.
TEST(DischargeWatchdogTest, ReboundIsTheOnlyReasonSaid) {
  Bench bench;
  bench.bootDischarging();
  bench.charge(52);
  bench.run(5);
  bench.charge(55);
  bench.call(bench.app->setChargeLimit(60));
  EXPECT_THAT(bench.logs(),
              ElementsAre(audit(bench, "setChargeLimit(60)"),
                          "default auto-stop discharge: capacity rebounded to 55% (≥ min 52% + 3) "
                          "— inhibit lost, pack is charging",
                          "default force-discharge auto-stopped: reason=chargeInhibitLost"));
  expectStopped(bench, DischargeStopReason::chargeInhibitLost);
}

// The battery is also too warm, and at the floor and the target.
TEST(DischargeWatchdogTest, HeatSoakIsTheOnlyReasonSaid) {
  Bench bench;
  bench.mac().lid.connectDisplay();  // Holds off the lid's sleep once keep-awake ends.
  bench.bootArmedDischarge();
  bench.temperature(30);
  bench.mac().lid.close();
  bench.run(3600);
  ASSERT_TRUE(bench.state().forceDischargeActive);
  bench.temperature(45);
  bench.charge(30);
  bench.mark();
  bench.run(5);
  EXPECT_THAT(
      bench.logs(),
      ElementsAre("default auto-stop discharge: clamshell lid-closed heat-soak duration cap "
                  "reached",
                  "default clamshell keep-awake DISARMED",
                  "default force-discharge auto-stopped: reason=clamshellTimeout"));
  expectStopped(bench, DischargeStopReason::clamshellTimeout);
}

TEST(DischargeWatchdogTest, FloorWithTheLidOpenIsTwenty) {
  Bench bench;
  bench.bootDischarging();
  bench.charge(21);
  bench.call(bench.app->setChargeLimit(20));
  bench.mark();
  bench.run(5);
  EXPECT_THAT(bench.logs(), IsEmpty());
  bench.charge(20);
  bench.run(5);
  EXPECT_EQ(bench.logs().front(), "default auto-stop discharge: cap=20 ≤ floor=20");
  expectStopped(bench, DischargeStopReason::floorReached);
}

TEST(DischargeWatchdogTest, FloorWithTheLidClosedIsThirty) {
  Bench bench;
  bench.mac().lid.connectDisplay();  // Holds off the lid\'s sleep once keep-awake ends.
  bench.bootArmedDischarge();
  bench.temperature(30);
  bench.call(bench.app->setChargeLimit(20));
  bench.mac().lid.close();
  bench.charge(31);
  bench.run(5);
  ASSERT_TRUE(bench.state().forceDischargeActive);
  bench.charge(30);
  bench.mark();
  bench.run(5);
  EXPECT_EQ(bench.logs().front(), "default auto-stop discharge: cap=30 ≤ floor=30");
  expectStopped(bench, DischargeStopReason::floorReached);
}

TEST(DischargeWatchdogTest, MinimumStartsAfreshWithEveryDischarge) {
  Bench bench;
  bench.bootDischarging();
  bench.charge(52);
  bench.run(5);
  bench.call(bench.app->forceDischarge(false));
  bench.charge(60);
  bench.call(bench.app->forceDischarge(true));
  bench.run(30);
  EXPECT_TRUE(bench.state().forceDischargeActive);
}

TEST(DischargeWatchdogTest, StopIgnoresAKeyThatCannotBeWritten) {
  Bench bench;
  bench.bootDischarging();
  bench.mac().smc.key("CHIE")->writeResult = 134;
  bench.charge(50);
  bench.run(5);
  EXPECT_EQ(bench.logs().back(), "default force-discharge auto-stopped: reason=targetReached");
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
}

TEST(DischargeWatchdogTest, GateIsNotEvaluatedWhileADischargeRuns) {
  Bench bench;
  bench.bootDischarging();
  bench.run(300);
  EXPECT_THAT(bench.since("smc"), IsEmpty()) << "70 % is above the limit of 50";
}

TEST(DischargeWatchdogTest, SteadyTickOfADischargeOnlyReads) {
  Bench bench;
  bench.bootDischarging();
  bench.run(5);
  const auto before = bench.world.callCounts();
  bench.run(5);
  EXPECT_EQ((bench.world.callCounts() - before).text(),
            "registryGetMatchingService 1, registryCreateProperty 1, registryObjectRelease 1, "
            "powerSourcesCopyInfo 1, powerSourcesCopyList 1, powerSourcesGetDescription 1, "
            "powerSourcesRelease 2");
}

TEST(DischargeWatchdogTest, TemperatureIsReadOnlyUnderAClosedLidWithKeepAwake) {
  Bench bench;
  bench.bootArmedDischarge();
  bench.run(5);
  auto before = bench.world.callCounts();
  bench.run(5);
  EXPECT_EQ((bench.world.callCounts() - before)[SeamCall::registryCreateProperties], 0U);
  bench.mac().lid.close();
  bench.run(5);
  before = bench.world.callCounts();
  bench.run(5);
  EXPECT_GE((bench.world.callCounts() - before)[SeamCall::registryCreateProperties], 1U);
}

}  // namespace
}  // namespace korvel::test
