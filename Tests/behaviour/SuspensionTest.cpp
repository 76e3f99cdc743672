// The grace period ends during a discharge without a loop: the target is out of range, so the first
// tick stopped the loop and nothing watches the discharge.

#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

/// Starts a discharge on a saved limit that is out of range, and pauses the gate.
void bootDischargingWithoutALoop(Bench& bench, bool armed) {
  bench.saveState(savedLimit(10));
  bench.bootAt(60);
  if (armed) bench.call(bench.app->setClamshellKeepAwake(true));
  ASSERT_EQ(bench.ask(bench.app->forceDischarge(true)), "ok");
  ASSERT_EQ(bench.logs().back(), "fault pollOnce: target 10 out of range — stopping loop");
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.mark();
}

void outwaitTheGracePeriod(Bench& bench) {
  bench.app->disconnect();
  bench.run(60);
}

TEST(SuspensionTest, DischargeWithoutALoopIsSuspendedWhenKeepAwakeIsNotArmed) {
  Bench bench;
  bootDischargingWithoutALoop(bench, false);
  outwaitTheGracePeriod(bench);
  EXPECT_THAT(bench.logs(),
              ElementsAre("default client disconnected (count=0)",
                          "default all clients gone — suspending enforcement, resuming normal "
                          "charging (saved limit=10 retained)"));
  EXPECT_THAT(bench.since("smc disk"),
              ElementsAre("smc CHIE <- 00", "smc CHTE <- 00 00 00 00",
                          "disk state.json replaced: forceDischargeActive=false"));
  EXPECT_TRUE(bench.mac().power.assertions().empty());
}

TEST(SuspensionTest, DischargeWithoutALoopGoesOnWhenKeepAwakeIsArmed) {
  Bench bench;
  bootDischargingWithoutALoop(bench, true);
  outwaitTheGracePeriod(bench);
  EXPECT_THAT(bench.logs(),
              ElementsAre("default client disconnected (count=0)",
                          "default client gone but armed clamshell discharge active — keeping "
                          "enforcement (bounded by target/floor/max-duration)"));
  EXPECT_THAT(bench.since("smc power disk"), IsEmpty());
  EXPECT_TRUE(bench.mac().power.sleepDisabled());
  EXPECT_TRUE(bench.onDisk().forceDischargeActive);
  EXPECT_EQ(bench.mac().power.assertions().size(), 2U);
}

}  // namespace
}  // namespace korvel::test
