// A source's handler may be on its way when the source is cancelled. A platform keeps such a firing
// back; the helper does nothing on it, should one come through.

#include <memory>

#include "HelperImpl.h"
#include "Tests/LateDispatch.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"

namespace korvel::test {
namespace {

/// Every call here goes to the core directly.
class LateFiringTest : public OnBench {
 protected:
  LateFiringTest() { excuse(replyRule); }
  Platform& real = world.startBareHelper();
  LateDispatch late{real.dispatch};
  Platform platform = with(real, late);
};

}  // namespace

TEST_F(LateFiringTest, AGracePeriodThatRunsOutBesideAnArrivalReleasesNothing) {
  charge(90);
  const auto core = HelperImpl::create(platform);
  core->clientDidConnect();
  core->setChargeLimit(60, ignored());
  run(6);
  core->clientDidDisconnect();
  world.runUntilIdle();
  core->clientDidConnect();
  world.runUntilIdle();
  mark();
  late.fireLastTimer();
  world.runUntilIdle();
  EXPECT_THAT(since("smc disk log"), IsEmpty());
  EXPECT_EQ(onDisk().chargeLimit, 60);
}

TEST_F(LateFiringTest, TimersAndSignalsOfADeadCoreDoNothing) {
  charge(90);
  auto core = HelperImpl::create(platform);
  core->clientDidConnect();
  core->setChargeLimit(60, ignored());
  world.runUntilIdle();
  core.reset();
  ASSERT_GT(late.timerCount(), 0U);
  ASSERT_GT(late.signalCount(), 0U);
  mark();
  late.fireAllTimers();
  late.raiseAllSignals();
  run(10);
  EXPECT_THAT(since("smc disk log"), IsEmpty());
}

}  // namespace korvel::test
