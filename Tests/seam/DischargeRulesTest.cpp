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
  mac.battery.setPercent(90);
  closeLid();
  startDischarge();
  stopDischarge();
  EXPECT_THAT(found(), ElementsAre("discharge starts lawfully: 0.000 started under a closed lid "
                                   "without keep-awake"));
}

TEST_F(BrokenRules, ADischargeWithoutAReading) {
  mac.powerSources.snapshotFails = true;
  startDischarge();
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started without a capacity reading")));
}

TEST_F(BrokenRules, ADischargeAtTheFloor) {
  startDischargeAt(20);
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started at or below the floor")));
}

TEST_F(BrokenRules, ADischargeAtTheLimit) {
  saveLimit(60);
  startDischargeAt(60);
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started at or below the limit")));
}

// A start is judged by the helper's readings; later changes are the watchdog's business.
TEST_F(BrokenRules, AStartIsJudgedByWhatTheHelperSaw) {
  mac.battery.setPercent(50);
  mac.lid.connectDisplay();
  works([this] {
    readLid();
    readCapacity();
    mac.lid.close();
    startDischargeAt(10);
  });
  stopDischarge();
  EXPECT_THAT(rules.violations(), IsEmpty());
  works([this] {
    readLid();
    mac.lid.open();
    readCapacity();
    startDischargeAt(50);
  });
  stopDischarge();
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started under a closed lid without keep-awake"),
                                   HasSubstr("started at or below the floor")));
}

TEST_F(BrokenRules, AStartOnWhatAnEarlierCommandSaw) {
  mac.battery.setPercent(50);
  mac.lid.connectDisplay();
  works([this] {
    readLid();
    readCapacity();
  });
  mac.lid.close();
  mac.battery.setPercent(10);
  works([this] { startDischarge(); });
  stopDischarge();
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started under a closed lid without keep-awake"),
                                   HasSubstr("started at or below the floor")));
}

TEST_F(BrokenRules, ALidThatCannotBeReadCountsAsOpenButACapacityDoesNotCountAsHigh) {
  mac.battery.setPercent(25);
  closeLid();
  world.faults().failNth(SeamCall::registryCreateProperty, 1, {});
  works([this] {
    readLid();
    readCapacity();
    startDischarge();
  });
  stopDischarge();
  EXPECT_THAT(rules.violations(), IsEmpty());
  mac.lid.open();
  world.faults().failNth(SeamCall::powerSourcesCopyInfo, 1, {});
  works([this] {
    readLid();
    platform.powerSources.copyInfo();
    startDischarge();
  });
  stopDischarge();
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started without a capacity reading")));
}

// The limit in the helper's memory counts: the work that has begun sets it, not a call that still
// waits and not the record on disk.
TEST_F(BrokenRules, AStartBelowTheLimitThatTheHelperHasInMind) {
  saveLimit(80);
  mac.battery.setPercent(60);
  logs("setChargeLimit(50) pid=901 signingID=x team=y cdHash=");
  works([this] { startDischarge(); });
  stopDischarge();
  happens("reply", "setChargeLimit ok");
  EXPECT_THAT(rules.violations(), IsEmpty());
  queue->async([this] { startDischarge(); });
  logs("setChargeLimit(70) pid=901 signingID=x team=y cdHash=");
  works([this] { stopDischarge(); });
  happens("reply", "setChargeLimit ok");
  EXPECT_THAT(rules.violations(), IsEmpty());
  works([this] { startDischarge(); });
  stopDischarge();
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started at or below the limit")));
}

TEST_F(BrokenRules, AStartBelowTheLimitThatCameBackFromTheDisk) {
  saveLimit(70);
  mac.battery.setPercent(60);
  logs("HelperImpl boot pid=501 limit=50");
  startDischarge();
  stopDischarge();
  EXPECT_THAT(rules.violations(), IsEmpty());
  logs("persistence rename failure — reverted in-memory state to last durable snapshot");
  startDischarge();
  stopDischarge();
  EXPECT_THAT(found(), ElementsAre(HasSubstr("started at or below the limit")));
}

TEST_F(BrokenRules, ADischargeThatNobodyStops) {
  startDischargeAt(50);
  mac.battery.setPercent(20);
  actsFor(10);
  EXPECT_THAT(found(),
              ElementsAre("discharge ends in time: 8.000 still running long after: floor"));
}

TEST_F(BrokenRules, ADischargeThatGoesOnThoughTheLidIsClosed) {
  startDischargeAt(50);
  closeLid();
  actsFor(10);
  EXPECT_THAT(found(), ElementsAre(HasSubstr("still running long after: lid closed")));
}

TEST_F(BrokenRules, ADischargeThatIsHotUnderTheLid) {
  startArmedDischarge();
  mac.battery.overrideTemperatureCelsius(45);
  actsFor(10);
  EXPECT_THAT(found(), ElementsAre(HasSubstr("still running long after: overheated")));
}

TEST_F(BrokenRules, ADischargeThatLastsTooLongUnderTheLid) {
  startArmedDischarge();
  mac.battery.overrideTemperatureCelsius(20);
  for (int i = 0; i < 37; ++i) {
    world.runFor(100);
    platform.clock.now();
  }
  EXPECT_THAT(found(), ElementsAre(HasSubstr("still running long after: heat soak")));
}

TEST_F(BrokenRules, ADischargeWhoseBatteryCharges) {
  startDischargeAt(50);
  const auto timer = platform.dispatch.makeTimer(queue);
  timer->setEventHandler([this] { platform.clock.now(); });
  timer->schedule(0, 5.0, 0);
  timer->resume();
  world.runFor(1);
  mac.battery.setPercent(53);
  world.runFor(20);
  EXPECT_THAT(found(), ElementsAre(HasSubstr("still running long after: rebound")));
}

TEST_F(BrokenRules, ADischargeThatIsBlind) {
  startDischargeAt(50);
  mac.powerSources.snapshotFails = true;
  actsFor(25);
  EXPECT_THAT(found(), ElementsAre(HasSubstr("still running long after: capacity unreadable")));
}

TEST_F(BrokenRules, ADischargeThatSleeps) {
  startDischargeAt(50);
  sleepIsAnnounced();
  sleepIsAcknowledgedAndBegins();
  EXPECT_THAT(found(), ElementsAre("no discharge into sleep: 0.000 asleep while discharging"));
}

// The helper's log line marks its work before sleep.
TEST_F(BrokenRules, ADischargeThatOutlivesTheWorkBeforeSleep) {
  startDischargeAt(50);
  sleepIsAnnounced();
  logs("kIOMessageSystemWillSleep — flushing pre-sleep SMC pause-write");
  works([] {});
  sleepIsAcknowledgedAndBegins();
  stopDischarge();
  EXPECT_THAT(found(), ElementsAre("no discharge into sleep: 0.000 asleep while discharging"));
}

TEST_F(BrokenRules, ADischargeThatBeginsBehindTheWorkBeforeSleepIsNotHeldAgainstIt) {
  startDischargeAt(50);
  sleepIsAnnounced();
  logs("kIOMessageSystemWillSleep — flushing pre-sleep SMC pause-write");
  queue->async([this] { stopDischarge(); });
  works([this] { startDischarge(); });
  sleepIsAcknowledgedAndBegins();
  stopDischarge();
  EXPECT_THAT(found(), IsEmpty());
}

// The helper counts a discharge as stopped even when the key write fails.
TEST_F(BrokenRules, ADischargeThatACommandEndedIsOverThoughItsKeysCouldNotBeWritten) {
  startDischargeAt(50);
  logs("clearChargeLimit pid=901 signingID=x team=y cdHash=");
  works([this] { happens("reply", "clearChargeLimit ok"); });
  sleepIsAnnounced();
  sleepIsAcknowledgedAndBegins();
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(BrokenRules, ADischargeMaySleepWhenTheHelperWasLateOrDidNotAnswer) {
  startDischargeAt(50);
  sleepIsAnnounced();
  happens("power", "asleep");
  sleepIsAnnounced();
  const auto group = platform.dispatch.makeGroup();
  group->enter();
  world.onMain([&] { group->wait(0.1); });
  group->leave();
  sleepIsAcknowledgedAndBegins();
  stopDischarge();
  EXPECT_THAT(found(), IsEmpty());
}

}  // namespace
}  // namespace virtualmac
