// A test sends the core power messages by hand, in states that no real sleep leaves behind.

#include "HelperImpl.h"
#include "Platform/KernelTypes.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"

namespace korvel::test {
namespace {

/// Sends the core's power messages itself, because a real sleep ends every discharge and so a real
/// wake never meets one.
class HandSentMessagesTest : public OnBench {
 protected:
  HandSentMessagesTest() : platform(with(world.startBareHelper(), rootDomain)) {
    excuse(replyRule);  // The test calls the core directly.
    core = HelperImpl::create(platform);
    charge(49);
    core->setChargeLimit(50, ignored());
    run(2);
  }

  /// Gives the times of the readings in the next nine seconds, counted from now.
  std::vector<double> ticksOfNineSeconds() {
    std::vector<double> times;
    const double start = world.now();
    world.faults().observe([&](SeamCall call) {
      if (call == SeamCall::powerSourcesCopyInfo) times.push_back(world.now() - start);
    });
    run(9);
    world.faults().observe({});
    return times;
  }

  ScriptedRootDomain rootDomain;
  Platform platform;
  std::shared_ptr<HelperImpl> core;
};

TEST_F(HandSentMessagesTest, WakeRestartsALoopThatOnlyEnforces) {
  rootDomain.send(ioMessageSystemHasPoweredOn);
  EXPECT_THAT(ticksOfNineSeconds(), ElementsAre(0, 5));
}

TEST_F(HandSentMessagesTest, WakeRestartsTheLoopForLimitsFromTwentyToHundred) {
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  mac().smc.key("CHTE")->silentlyRefuses = true;  // So the loop for 100 goes on.
  for (const std::uint8_t limit : {std::uint8_t{20}, std::uint8_t{100}}) {
    core->setChargeLimit(limit, ignored());
    run(2);
    rootDomain.send(ioMessageSystemHasPoweredOn);
    EXPECT_THAT(ticksOfNineSeconds(), ElementsAre(0, 5)) << int{limit};
  }
}

TEST_F(HandSentMessagesTest, WakeDuringADischargeLeavesTheRunningLoopAsItIs) {
  charge(70);
  core->forceDischarge(true, ignored());
  world.runUntilIdle();
  rootDomain.send(ioMessageSystemHasPoweredOn);
  EXPECT_THAT(ticksOfNineSeconds(), ElementsAre(3, 8));
  EXPECT_TRUE(onDisk().forceDischargeActive);
}

TEST_F(HandSentMessagesTest, OtherMessagesDoNothing) {
  mark();
  rootDomain.send(ioMessageSystemWillPowerOn);
  rootDomain.send(ioMessageSystemWillNotSleep);
  rootDomain.send(ioMessageCanSystemSleep);
  EXPECT_THAT(ticksOfNineSeconds(), ElementsAre(3, 8));
  EXPECT_THAT(since("smc log"), IsEmpty());
}

}  // namespace
}  // namespace korvel::test
