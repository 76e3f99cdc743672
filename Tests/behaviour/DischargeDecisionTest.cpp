// The watchdog's rules are compared with an oracle around all their thresholds; the stop reasons
// keep their vocabulary.

#include "DischargeDecision.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>
#include <vector>

namespace {

using korvel::bannerCopy;
using korvel::decideDischarge;
using korvel::DischargeFacts;
using korvel::DischargeStopReason;
using korvel::DischargeVerdict;
using korvel::rawValue;
using Temperature = std::optional<std::int64_t>;

struct Rule {
  DischargeStopReason reason;
  bool holds;
};

/// Judges each rule in order, independently of the others.
std::optional<DischargeStopReason> expectedStop(const DischargeFacts& facts, Temperature heat) {
  const bool armedAndClosed = facts.keepAwakeArmed && facts.lidClosed;
  const std::int64_t floor = facts.lidClosed ? 30 : 20;
  const std::vector<Rule> rules = {
      {DischargeStopReason::lidClosed, facts.lidClosed && !facts.keepAwakeArmed},
      {DischargeStopReason::clamshellTimeout,
       facts.keepAwakeArmed && facts.lidClosedSeconds.value_or(-1) >= 3600},
      {DischargeStopReason::clamshellOverheated, armedAndClosed && heat.value_or(-300) >= 45},
      {DischargeStopReason::chargeInhibitLost,
       facts.minimumSeen.has_value() && facts.capacity - *facts.minimumSeen >= 3},
      {DischargeStopReason::floorReached, facts.capacity <= floor},
      {DischargeStopReason::targetReached, facts.capacity <= facts.target},
  };
  for (const Rule& rule : rules) {
    if (rule.holds) return rule.reason;
  }
  return std::nullopt;
}

std::vector<std::optional<std::int64_t>> minimaAround(std::int64_t capacity) {
  std::vector<std::optional<std::int64_t>> minima{std::nullopt};
  for (std::int64_t distance = -4; distance <= 4; ++distance)
    minima.emplace_back(capacity + distance);
  return minima;
}

std::vector<std::optional<double>> closedTimes(bool lidClosed, bool armed) {
  if (!lidClosed || !armed) return {std::nullopt};
  return {0.0, 3599.999, 3600.0, 3600.001, 90000.0, -5.0};
}

std::size_t compareWithOracle(DischargeFacts facts, std::int64_t capacity, std::int64_t target) {
  constexpr std::array<Temperature, 5> temperatures{Temperature(), 44, 45, 46, -20};
  std::size_t compared = 0;
  facts.capacity = capacity;
  facts.target = target;
  for (const auto& closedFor : closedTimes(facts.lidClosed, facts.keepAwakeArmed)) {
    for (const auto& minimum : minimaAround(capacity)) {
      for (const Temperature& heat : temperatures) {
        facts.lidClosedSeconds = closedFor;
        facts.minimumSeen = minimum;
        const DischargeVerdict verdict = decideDischarge(facts, [&heat] { return heat; });
        EXPECT_EQ(verdict.stop, expectedStop(facts, heat))
            << "capacity " << capacity << " target " << target << " lid " << facts.lidClosed
            << " armed " << facts.keepAwakeArmed << " closed for " << closedFor.value_or(-1)
            << " minimum " << minimum.value_or(-99) << " heat " << heat.value_or(-99);
        ++compared;
      }
    }
  }
  return compared;
}

TEST(DischargeDecisionTest, AgreesWithTheListOfRulesOverEveryCapacityAndTarget) {
  std::size_t compared = 0;
  for (const bool lidClosed : {false, true}) {
    for (const bool armed : {false, true}) {
      for (std::int64_t capacity = 0; capacity <= 100; ++capacity) {
        for (const std::int64_t target : {20, 21, 29, 30, 31, 50, 79, 80, 81, 99, 100}) {
          compared += compareWithOracle({.capacity = 0,
                                         .target = 0,
                                         .lidClosed = lidClosed,
                                         .keepAwakeArmed = armed,
                                         .lidClosedSeconds = {},
                                         .minimumSeen = {}},
                                        capacity, target);
          if (HasFailure()) return;
        }
      }
    }
  }
  EXPECT_EQ(compared, 101U * 11U * 10U * 5U * (1 + 1 + 1 + 6));
}

DischargeFacts openLid(std::int64_t capacity, std::optional<std::int64_t> minimum) {
  return {.capacity = capacity,
          .target = 50,
          .lidClosed = false,
          .keepAwakeArmed = false,
          .lidClosedSeconds = {},
          .minimumSeen = minimum};
}

Temperature unread() {
  ADD_FAILURE() << "the temperature was read out of turn";
  return std::nullopt;
}

TEST(DischargeDecisionTest, RemembersTheLowestChargeAndOnlyThat) {
  EXPECT_EQ(decideDischarge(openLid(70, std::nullopt), unread).minimumSeen, 70);
  EXPECT_EQ(decideDischarge(openLid(69, 70), unread).minimumSeen, 69);
  EXPECT_EQ(decideDischarge(openLid(71, 70), unread).minimumSeen, 70);
  EXPECT_EQ(decideDischarge(openLid(70, 70), unread).minimumSeen, 70);
}

TEST(DischargeDecisionTest, ReadsTheTemperatureOnlyUnderAClosedLidWithKeepAwakeBeforeTheTimeout) {
  DischargeFacts facts = openLid(70, std::nullopt);
  facts.keepAwakeArmed = true;
  EXPECT_EQ(decideDischarge(facts, unread).stop, std::nullopt);
  facts.lidClosed = true;
  facts.lidClosedSeconds = 3600;
  EXPECT_EQ(decideDischarge(facts, unread).stop, DischargeStopReason::clamshellTimeout);
  facts.keepAwakeArmed = false;
  facts.lidClosedSeconds.reset();
  EXPECT_EQ(decideDischarge(facts, unread).stop, DischargeStopReason::lidClosed);

  facts.keepAwakeArmed = true;
  facts.lidClosedSeconds = 10;
  int reads = 0;
  const auto verdict = decideDischarge(facts, [&reads]() -> Temperature {
    ++reads;
    return 44;
  });
  EXPECT_EQ(reads, 1);
  EXPECT_EQ(verdict.temperatureCelsius, 44);
}

TEST(DischargeDecisionTest, ClosedLidWithoutKeepAwakeComesBeforeEveryOtherRule) {
  DischargeFacts facts = openLid(20, 10);  // Rebound, floor and target all apply.
  facts.lidClosed = true;
  facts.lidClosedSeconds = 7200;
  EXPECT_EQ(decideDischarge(facts, unread).stop, DischargeStopReason::lidClosed);
}

TEST(DischargeDecisionTest, HeatSoakComesBeforeHeatAndHeatBeforeTheCharge) {
  DischargeFacts facts = openLid(20, 10);
  facts.lidClosed = true;
  facts.keepAwakeArmed = true;
  facts.lidClosedSeconds = 3600;
  const auto hot = [] { return Temperature(45); };
  EXPECT_EQ(decideDischarge(facts, hot).stop, DischargeStopReason::clamshellTimeout);
  facts.lidClosedSeconds = 3599;
  EXPECT_EQ(decideDischarge(facts, hot).stop, DischargeStopReason::clamshellOverheated);
}

TEST(DischargeDecisionTest, ReboundComesBeforeFloorAndFloorBeforeTarget) {
  EXPECT_EQ(decideDischarge(openLid(20, 17), unread).stop, DischargeStopReason::chargeInhibitLost);
  EXPECT_EQ(decideDischarge(openLid(20, 18), unread).stop, DischargeStopReason::floorReached);
  EXPECT_EQ(decideDischarge(openLid(50, 47), unread).stop, DischargeStopReason::chargeInhibitLost);
  EXPECT_EQ(decideDischarge(openLid(50, 48), unread).stop, DischargeStopReason::targetReached);
}

struct ReasonRow {
  DischargeStopReason reason;
  unsigned number;
  std::string name;
  std::string banner;
};

TEST(DischargeStopReasonTest, NumbersNamesAndBannersAreTheOnesThatClientsKnow) {
  const std::vector<ReasonRow> rows = {
      {DischargeStopReason::floorReached, 0, "floorReached",
       "Discharge stopped — battery reached the safety floor."},
      {DischargeStopReason::targetReached, 1, "targetReached",
       "Discharge complete — battery is at the configured limit."},
      {DischargeStopReason::lidClosed, 2, "lidClosed",
       "Discharge stopped — closing the lid is unsafe with the adapter inflow disabled. Reopen the "
       "lid and restart if you still want to drain."},
      {DischargeStopReason::systemWillSleep, 3, "systemWillSleep",
       "Discharge stopped — system was about to sleep. Restart the discharge once you're back."},
      {DischargeStopReason::powerDisconnected, 4, "powerDisconnected",
       "Discharge stopped — the power adapter was unplugged. Reconnect and restart if you still "
       "want to drain to the limit."},
      {DischargeStopReason::clamshellTimeout, 5, "clamshellTimeout",
       "Clamshell discharge stopped — reached its safety time limit to avoid heat build-up with "
       "the "
       "lid closed. Restart it if you still want to drain."},
      {DischargeStopReason::clamshellOverheated, 6, "clamshellOverheated",
       "Clamshell discharge stopped — the battery got too warm with the lid closed. Let it cool "
       "down, then restart if you still want to drain."},
      {DischargeStopReason::clamshellDisarmed, 7, "clamshellDisarmed",
       "Clamshell discharge stopped — the external display was disconnected (or the experimental "
       "option was turned off). Reopen the lid or reconnect a display to drain again."},
      {DischargeStopReason::chargeInhibitLost, 8, "chargeInhibitLost",
       "Discharge stopped — the battery started charging again (the power adapter re-negotiated). "
       "Restart discharge if you still want to drain to the limit."},
  };
  for (const ReasonRow& row : rows) {
    EXPECT_EQ(static_cast<unsigned>(row.reason), row.number) << row.name;
    EXPECT_EQ(rawValue(row.reason), row.name);
    EXPECT_EQ(bannerCopy(row.reason), row.banner);
  }
}

// A reading is any 64-bit number from the registry; nothing guarantees a sensible one.
TEST(DischargeDecisionTest, ReboundIsJudgedByTheDistanceOfAnyTwoReadings) {
  constexpr auto least = std::numeric_limits<std::int64_t>::min();
  constexpr auto most = std::numeric_limits<std::int64_t>::max();
  const auto stop = [](std::int64_t capacity, std::int64_t minimum) {
    DischargeFacts facts = openLid(capacity, minimum);
    facts.target = least;
    return decideDischarge(facts, unread).stop;
  };
  const std::optional rebound = DischargeStopReason::chargeInhibitLost;
  const std::optional floor = DischargeStopReason::floorReached;
  EXPECT_EQ(stop(most, most), std::nullopt);
  EXPECT_EQ(stop(most, most - 2), std::nullopt);
  EXPECT_EQ(stop(most, most - 3), rebound);
  EXPECT_EQ(stop(most - 1, most), std::nullopt);
  EXPECT_EQ(stop(least, least), floor);
  EXPECT_EQ(stop(least + 2, least), floor);
  EXPECT_EQ(stop(least + 3, least), rebound);
  EXPECT_EQ(stop(least, most), floor);
  EXPECT_EQ(stop(most, least), rebound);
  EXPECT_EQ(stop(most, -1), rebound);
  EXPECT_EQ(stop(0, least), rebound);
}

TEST(DischargeStopReasonDeathTest, OneThatIsNoneStopsTheProcess) {
  constexpr auto none = static_cast<DischargeStopReason>(99);
  EXPECT_DEATH(static_cast<void>(rawValue(none)), "a discharge stop reason out of range");
}

}  // namespace
