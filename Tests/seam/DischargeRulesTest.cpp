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

TEST_F(BrokenRules, ADischargeThatNobodyStops) {
  world.machine().battery.setPercent(50);
  startDischarge();
  world.machine().battery.setPercent(20);
  for (int i = 0; i < 10; ++i) {
    world.runFor(1);
    platform.clock.now();
  }
  EXPECT_THAT(found(),
              ElementsAre("discharge ends in time: 9.000 still running long after: floor"));
}

TEST_F(BrokenRules, ADischargeThatGoesOnThoughTheLidIsClosed) {
  world.machine().battery.setPercent(50);
  startDischarge();
  world.machine().lid.connectDisplay();
  world.machine().lid.close();
  for (int i = 0; i < 10; ++i) {
    world.runFor(1);
    platform.clock.now();
  }
  EXPECT_THAT(found(), ElementsAre(HasSubstr("still running long after: lid closed")));
}

TEST_F(BrokenRules, ADischargeThatIsHotUnderTheLid) {
  world.machine().battery.setPercent(50);
  world.machine().lid.connectDisplay();
  world.machine().lid.close();
  logs("clamshell keep-awake ARMED");
  startDischarge();
  world.machine().battery.overrideTemperatureCelsius(45);
  for (int i = 0; i < 10; ++i) {
    world.runFor(1);
    platform.clock.now();
  }
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
  for (int i = 0; i < 25; ++i) {
    world.runFor(1);
    platform.clock.now();
  }
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
