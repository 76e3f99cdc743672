#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrokenRules.h"
#include "Platform/WallClock.h"

namespace virtualmac {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(BrokenRules, ADischargeUnderAClosedLid) {
  world.machine().battery.setPercent(90);
  world.machine().lid.connectDisplay();
  world.machine().lid.close();
  startDischarge();
  happens("smc", "CHIE <- 00");
  EXPECT_THAT(found(), ElementsAre("discharge starts lawfully: 0.000 started under a closed lid "
                                   "without keep-awake"));
}

TEST_F(BrokenRules, ADischargeWithoutAReading) {
  world.machine().powerSources.snapshotFails = true;
  startDischarge();
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started without a capacity reading")));
}

TEST_F(BrokenRules, ADischargeAtTheFloor) {
  world.machine().battery.setPercent(20);
  startDischarge();
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started at or below the floor")));
}

TEST_F(BrokenRules, ADischargeAtTheLimit) {
  korvel::HelperState state;
  state.chargeLimit = 60;
  save(state);
  world.machine().battery.setPercent(60);
  startDischarge();
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started at or below the limit")));
}

// A start is judged by the helper's readings; later changes are the watchdog's business.
TEST_F(BrokenRules, AStartIsJudgedByWhatTheHelperSaw) {
  world.machine().battery.setPercent(50);
  world.machine().lid.connectDisplay();
  works([this] {
    readLid();
    readCapacity();
    world.machine().lid.close();
    world.machine().battery.setPercent(10);
    startDischarge();
  });
  happens("smc", "CHIE <- 00");
  EXPECT_THAT(rules.violations(), IsEmpty());
  works([this] {
    readLid();
    world.machine().lid.open();
    readCapacity();
    world.machine().battery.setPercent(50);
    startDischarge();
  });
  happens("smc", "CHIE <- 00");
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started under a closed lid without keep-awake"),
                                   HasSubstr("started at or below the floor")));
}

TEST_F(BrokenRules, AStartOnWhatAnEarlierCommandSaw) {
  world.machine().battery.setPercent(50);
  world.machine().lid.connectDisplay();
  works([this] {
    readLid();
    readCapacity();
  });
  world.machine().lid.close();
  world.machine().battery.setPercent(10);
  works([this] { startDischarge(); });
  happens("smc", "CHIE <- 00");
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started under a closed lid without keep-awake"),
                                   HasSubstr("started at or below the floor")));
}

TEST_F(BrokenRules, ALidThatCannotBeReadCountsAsOpenButACapacityDoesNotCountAsHigh) {
  world.machine().battery.setPercent(25);
  world.machine().lid.connectDisplay();
  world.machine().lid.close();
  world.faults().failNth(SeamCall::registryCreateProperty, 1, {});
  works([this] {
    readLid();
    readCapacity();
    startDischarge();
  });
  happens("smc", "CHIE <- 00");
  EXPECT_THAT(rules.violations(), IsEmpty());
  world.machine().lid.open();
  world.faults().failNth(SeamCall::powerSourcesCopyInfo, 1, {});
  works([this] {
    readLid();
    platform.powerSources.copyInfo();
    startDischarge();
  });
  happens("smc", "CHIE <- 00");
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started without a capacity reading")));
}

// The limit in the helper's memory counts: the work that has begun sets it, not a call that still
// waits and not the record on disk.
TEST_F(BrokenRules, AStartBelowTheLimitThatTheHelperHasInMind) {
  korvel::HelperState state;
  state.chargeLimit = 80;
  save(state);
  world.machine().battery.setPercent(60);
  logs("setChargeLimit(50) pid=901 signingID=x team=y cdHash=");
  works([this] { startDischarge(); });
  happens("smc", "CHIE <- 00");
  happens("reply", "setChargeLimit ok");
  EXPECT_THAT(rules.violations(), IsEmpty());
  queue->async([this] { startDischarge(); });
  logs("setChargeLimit(70) pid=901 signingID=x team=y cdHash=");
  works([this] { happens("smc", "CHIE <- 00"); });
  happens("reply", "setChargeLimit ok");
  EXPECT_THAT(rules.violations(), IsEmpty());
  works([this] { startDischarge(); });
  happens("smc", "CHIE <- 00");
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started at or below the limit")));
}

TEST_F(BrokenRules, AStartBelowTheLimitThatCameBackFromTheDisk) {
  korvel::HelperState state;
  state.chargeLimit = 70;
  save(state);
  world.machine().battery.setPercent(60);
  logs("HelperImpl boot pid=501 limit=50");
  startDischarge();
  happens("smc", "CHIE <- 00");
  EXPECT_THAT(rules.violations(), IsEmpty());
  logs("persistence rename failure — reverted in-memory state to last durable snapshot");
  startDischarge();
  happens("smc", "CHIE <- 00");
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started at or below the limit")));
}

TEST_F(BrokenRules, ADischargeThatNobodyStops) {
  world.machine().battery.setPercent(50);
  startDischarge();
  world.machine().battery.setPercent(20);
  actsFor(10);
  EXPECT_THAT(found(),
              ElementsAre("discharge ends in time: 8.000 still running long after: floor"));
}

TEST_F(BrokenRules, ADischargeThatGoesOnThoughTheLidIsClosed) {
  world.machine().battery.setPercent(50);
  startDischarge();
  world.machine().lid.connectDisplay();
  world.machine().lid.close();
  actsFor(10);
  EXPECT_THAT(found(), ElementsAre(HasSubstr("still running long after: lid closed")));
}

TEST_F(BrokenRules, ADischargeThatIsHotUnderTheLid) {
  world.machine().battery.setPercent(50);
  world.machine().lid.connectDisplay();
  world.machine().lid.close();
  logs("clamshell keep-awake ARMED");
  startDischarge();
  world.machine().battery.overrideTemperatureCelsius(45);
  actsFor(10);
  EXPECT_THAT(found(), ElementsAre(HasSubstr("still running long after: overheated")));
}

TEST_F(BrokenRules, ADischargeThatLastsTooLongUnderTheLid) {
  world.machine().battery.setPercent(50);
  world.machine().lid.connectDisplay();
  world.machine().lid.close();
  logs("clamshell keep-awake ARMED");
  startDischarge();
  world.machine().battery.overrideTemperatureCelsius(20);
  for (int i = 0; i < 37; ++i) {
    world.runFor(100);
    platform.clock.now();
  }
  EXPECT_THAT(found(), ElementsAre(HasSubstr("still running long after: heat soak")));
}

TEST_F(BrokenRules, ADischargeWhoseBatteryCharges) {
  world.machine().battery.setPercent(50);
  startDischarge();
  const auto timer = platform.dispatch.makeTimer(queue);
  timer->setEventHandler([this] { platform.clock.now(); });
  timer->schedule(0, 5.0, 0);
  timer->resume();
  world.runFor(1);
  world.machine().battery.setPercent(53);
  world.runFor(20);
  EXPECT_THAT(found(), ElementsAre(HasSubstr("still running long after: rebound")));
}

TEST_F(BrokenRules, ADischargeThatIsBlind) {
  world.machine().battery.setPercent(50);
  startDischarge();
  world.machine().powerSources.snapshotFails = true;
  actsFor(25);
  EXPECT_THAT(found(), ElementsAre(HasSubstr("still running long after: capacity unreadable")));
}

TEST_F(BrokenRules, ADischargeThatSleeps) {
  world.machine().battery.setPercent(50);
  startDischarge();
  happens("power", "message 0xe0000280 to pid 501");
  happens("power", "message acknowledged by pid 501");
  happens("power", "asleep");
  EXPECT_THAT(found(), ElementsAre("no discharge into sleep: 0.000 asleep while discharging"));
}

// The helper's log line marks its work before sleep.
TEST_F(BrokenRules, ADischargeThatOutlivesTheWorkBeforeSleep) {
  world.machine().battery.setPercent(50);
  startDischarge();
  happens("power", "message 0xe0000280 to pid 501");
  logs("kIOMessageSystemWillSleep — flushing pre-sleep SMC pause-write");
  works([] {});
  happens("power", "message acknowledged by pid 501");
  happens("power", "asleep");
  happens("smc", "CHIE <- 00");
  EXPECT_THAT(found(), ElementsAre("no discharge into sleep: 0.000 asleep while discharging"));
}

TEST_F(BrokenRules, ADischargeThatBeginsBehindTheWorkBeforeSleepIsNotHeldAgainstIt) {
  world.machine().battery.setPercent(50);
  startDischarge();
  happens("power", "message 0xe0000280 to pid 501");
  logs("kIOMessageSystemWillSleep — flushing pre-sleep SMC pause-write");
  queue->async([this] { happens("smc", "CHIE <- 00"); });
  works([this] { startDischarge(); });
  happens("power", "message acknowledged by pid 501");
  happens("power", "asleep");
  happens("smc", "CHIE <- 00");
  EXPECT_THAT(found(), IsEmpty());
}

// The helper counts a discharge as stopped even when the key write fails.
TEST_F(BrokenRules, ADischargeThatACommandEndedIsOverThoughItsKeysCouldNotBeWritten) {
  world.machine().battery.setPercent(50);
  startDischarge();
  logs("clearChargeLimit pid=901 signingID=x team=y cdHash=");
  works([this] { happens("reply", "clearChargeLimit ok"); });
  happens("power", "message 0xe0000280 to pid 501");
  happens("power", "message acknowledged by pid 501");
  happens("power", "asleep");
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(BrokenRules, ADischargeMaySleepWhenTheHelperWasLateOrDidNotAnswer) {
  world.machine().battery.setPercent(50);
  startDischarge();
  happens("power", "message 0xe0000280 to pid 501");
  happens("power", "asleep");
  happens("power", "message 0xe0000280 to pid 501");
  const auto group = platform.dispatch.makeGroup();
  group->enter();
  world.onMain([&] { group->wait(0.1); });
  group->leave();
  happens("power", "message acknowledged by pid 501");
  happens("power", "asleep");
  happens("smc", "CHIE <- 00");
  EXPECT_THAT(found(), IsEmpty());
}

}  // namespace
}  // namespace virtualmac
