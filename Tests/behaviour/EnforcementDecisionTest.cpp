// The gate's decision is compared for every possible input with an oracle that shares no code.

#include "EnforcementDecision.h"

#include <gtest/gtest.h>

namespace {

using korvel::decideGate;
using korvel::GateDecision;

/// Applies the rules one after the other, narrowing the band at each.
GateDecision expectedGate(int limit, int band, int capacity, std::optional<bool> adapter) {
  if (!adapter.has_value()) return GateDecision::Hold;
  if (!*adapter) return GateDecision::Hold;
  int width = band;
  if (band > 19) width = 20;
  if (band < 1) width = 1;
  while (limit - width < 1) width -= 1;
  const int resumeBelow = limit - width;
  if (capacity >= limit) return GateDecision::Pause;
  if (capacity < resumeBelow) return GateDecision::Resume;
  return GateDecision::Hold;
}

TEST(EnforcementDecisionTest, AgreesWithTheOracleOverEveryCapacityLimitBandAndAdapterState) {
  std::size_t compared = 0;
  for (int limit = 20; limit <= 100; ++limit) {
    for (int band = -5; band <= 30; ++band) {
      for (int capacity = 0; capacity <= 100; ++capacity) {
        for (const std::optional<bool> adapter :
             {std::optional(true), std::optional(false), std::optional<bool>()}) {
          ASSERT_EQ(decideGate(limit, band, capacity, adapter),
                    expectedGate(limit, band, capacity, adapter))
              << "limit " << limit << " band " << band << " capacity " << capacity;
          ++compared;
        }
      }
    }
  }
  EXPECT_EQ(compared, 81U * 36U * 101U * 3U);
}

TEST(EnforcementDecisionTest, HoldsWhenTheChargeIsUnknownWhateverTheAdapterSays) {
  for (int limit = 20; limit <= 100; ++limit) {
    EXPECT_EQ(decideGate(limit, 5, std::nullopt, true), GateDecision::Hold);
    EXPECT_EQ(decideGate(limit, 5, std::nullopt, false), GateDecision::Hold);
    EXPECT_EQ(decideGate(limit, 5, std::nullopt, std::nullopt), GateDecision::Hold);
  }
}

TEST(EnforcementDecisionTest, DefaultBandAtEightyPausesAtEightyAndResumesBelowSeventyFive) {
  EXPECT_EQ(decideGate(80, 5, 81, true), GateDecision::Pause);
  EXPECT_EQ(decideGate(80, 5, 80, true), GateDecision::Pause);
  EXPECT_EQ(decideGate(80, 5, 79, true), GateDecision::Hold);
  EXPECT_EQ(decideGate(80, 5, 75, true), GateDecision::Hold);
  EXPECT_EQ(decideGate(80, 5, 74, true), GateDecision::Resume);
}

TEST(EnforcementDecisionTest, BandIsBoundedByOneTwentyAndTheTarget) {
  EXPECT_EQ(korvel::effectiveBand(0, 80), 1);
  EXPECT_EQ(korvel::effectiveBand(-7, 80), 1);
  EXPECT_EQ(korvel::effectiveBand(1, 80), 1);
  EXPECT_EQ(korvel::effectiveBand(19, 80), 19);
  EXPECT_EQ(korvel::effectiveBand(20, 80), 20);
  EXPECT_EQ(korvel::effectiveBand(25, 80), 20);
  EXPECT_EQ(korvel::effectiveBand(20, 20), 19);
  EXPECT_EQ(decideGate(20, 20, 1, true), GateDecision::Hold);
  EXPECT_EQ(decideGate(20, 20, 0, true), GateDecision::Resume);
}

TEST(EnforcementDecisionTest, ReadingsOutsideZeroToHundredAreTakenAsTheyAre) {
  EXPECT_EQ(decideGate(80, 5, -1, true), GateDecision::Resume);
  EXPECT_EQ(decideGate(99, 5, 250, true), GateDecision::Pause);
}

}  // namespace
