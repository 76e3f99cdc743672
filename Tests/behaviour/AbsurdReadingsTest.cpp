// Readings that no battery gives. They are taken as they are, and nothing is counted wrong by them.

#include <limits>

#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

constexpr auto most = std::numeric_limits<std::int64_t>::max();
constexpr auto least = std::numeric_limits<std::int64_t>::min();

TEST(AbsurdReadingsTest, TheHighestReadingThatStaysIsNoRebound) {
  Bench bench;
  bench.bootDischarging(most);
  bench.run(60);
  EXPECT_TRUE(bench.state().forceDischargeActive);
  EXPECT_THAT(bench.since("smc log disk"), IsEmpty());
}

TEST(AbsurdReadingsTest, ThreePointsBelowTheHighestReadingAndUpAgainAreARebound) {
  Bench bench;
  bench.bootDischarging(most - 3);
  bench.run(5);
  bench.charge(most);
  bench.run(5);
  EXPECT_THAT(bench.logs(),
              ElementsAre("default auto-stop discharge: capacity rebounded to "
                          "9223372036854775807% (≥ min 9223372036854775804% + 3) — inhibit lost, "
                          "pack is charging",
                          "default force-discharge auto-stopped: reason=chargeInhibitLost"));
}

TEST(AbsurdReadingsTest, TheLowestReadingEndsADischargeAtTheFloor) {
  Bench bench;
  bench.bootDischarging();
  bench.charge(least);
  bench.run(5);
  EXPECT_THAT(bench.logs(),
              ElementsAre("default auto-stop discharge: cap=-9223372036854775808 ≤ floor=20",
                          "default force-discharge auto-stopped: reason=floorReached"));
}

TEST(AbsurdReadingsTest, TheGateFollowsTheHighestAndTheLowestReading) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.charge(most);
  bench.run(5);
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHTE <- 01 00 00 00"));
  bench.mark();
  bench.charge(least);
  bench.run(5);
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHTE <- 00 00 00 00"));
}

}  // namespace
}  // namespace korvel::test
