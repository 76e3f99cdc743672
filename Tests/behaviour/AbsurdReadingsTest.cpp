// The helper takes readings that no battery gives as they are, and miscounts nothing for them.

#include <limits>

#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

constexpr auto most = std::numeric_limits<std::int64_t>::max();
constexpr auto least = std::numeric_limits<std::int64_t>::min();

using AbsurdReadingsTest = OnBench;

TEST_F(AbsurdReadingsTest, TheHighestReadingThatStaysIsNoRebound) {
  bootDischarging(most);
  run(60);
  EXPECT_TRUE(state().forceDischargeActive);
  EXPECT_THAT(since("smc log disk"), IsEmpty());
}

TEST_F(AbsurdReadingsTest, ThreePointsBelowTheHighestReadingAndUpAgainAreARebound) {
  bootDischarging(most - 3);
  run(5);
  tickAt(most);
  EXPECT_THAT(logs(),
              ElementsAre("default auto-stop discharge: capacity rebounded to "
                          "9223372036854775807% (≥ min 9223372036854775804% + 3) — inhibit lost, "
                          "pack is charging",
                          "default force-discharge auto-stopped: reason=chargeInhibitLost"));
}

TEST_F(AbsurdReadingsTest, TheLowestReadingEndsADischargeAtTheFloor) {
  bootDischarging();
  tickAt(least);
  EXPECT_THAT(logs(),
              ElementsAre("default auto-stop discharge: cap=-9223372036854775808 ≤ floor=20",
                          "default force-discharge auto-stopped: reason=floorReached"));
}

TEST_F(AbsurdReadingsTest, TheGateFollowsTheHighestAndTheLowestReading) {
  bootWithLimit(80);
  tickAt(most);
  EXPECT_THAT(since("smc"), ElementsAre("smc CHTE <- 01 00 00 00"));
  mark();
  tickAt(least);
  EXPECT_THAT(since("smc"), ElementsAre("smc CHTE <- 00 00 00 00"));
}

}  // namespace
}  // namespace korvel::test
