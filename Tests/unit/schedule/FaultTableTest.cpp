#include "VirtualMac/Schedule/FaultTable.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace virtualmac {
namespace {

/// Returns 'x' for each of the next calls that is replaced by a fault, '.' for the others.
std::string outcomes(FaultTable& table, SeamCall call, int count) {
  std::string result;
  for (int i = 0; i < count; ++i) result += table.next(call).fault ? 'x' : '.';
  return result;
}

struct FaultTableTest : testing::Test {
  FaultTable table;
};

TEST_F(FaultTableTest, WithoutRulesCallsAreOnlyCounted) {
  EXPECT_EQ(outcomes(table, SeamCall::smcOpen, 2), "..");
  table.next(SeamCall::clockNow);
  EXPECT_EQ(table.counts()[SeamCall::smcOpen], 2U);
  EXPECT_EQ(table.counts().total, 3U);
  EXPECT_EQ(table.counts().text(), "smcOpen 2, clockNow 1");
}

TEST_F(FaultTableTest, ADifferenceOfCountsSaysWhatHappenedBetween) {
  table.next(SeamCall::smcOpen);
  const CallCounts before = table.counts();
  table.next(SeamCall::smcCallStruct);
  EXPECT_EQ((table.counts() - before).text(), "smcCallStruct 1");
}

TEST_F(FaultTableTest, FailsTheNthFromNow) {
  table.next(SeamCall::smcOpen);
  table.failNth(SeamCall::smcOpen, 2, {});
  EXPECT_EQ(outcomes(table, SeamCall::smcOpen, 4), ".x..");
}

TEST_F(FaultTableTest, FailsEveryNth) {
  table.failEvery(SeamCall::smcOpen, 3, {});
  EXPECT_EQ(outcomes(table, SeamCall::smcOpen, 7), "..x..x.");
}

TEST_F(FaultTableTest, FailsACountFromTheNth) {
  table.failFrom(SeamCall::smcOpen, 2, {}, 3);
  EXPECT_EQ(outcomes(table, SeamCall::smcOpen, 6), ".xxx..");
}

TEST_F(FaultTableTest, FailsForEverUntilRemoved) {
  const FaultTable::RuleId rule = table.failAlways(SeamCall::smcOpen, {});
  EXPECT_EQ(outcomes(table, SeamCall::smcOpen, 3), "xxx");
  EXPECT_EQ(outcomes(table, SeamCall::smcCallStruct, 1), ".");
  table.remove(rule);
  EXPECT_EQ(outcomes(table, SeamCall::smcOpen, 2), "..");
}

TEST_F(FaultTableTest, FailsWhileAConditionHolds) {
  bool broken = false;
  table.failWhen(SeamCall::fileFsync, [&broken] { return broken; }, {28, "full"});
  EXPECT_EQ(outcomes(table, SeamCall::fileFsync, 1), ".");
  broken = true;
  const FaultTable::Verdict verdict = table.next(SeamCall::fileFsync);
  ASSERT_TRUE(verdict.fault);
  EXPECT_EQ(verdict.fault->code, 28);
  EXPECT_EQ(verdict.fault->text, "full");
}

TEST_F(FaultTableTest, TheFirstOfSeveralRulesWins) {
  table.failAlways(SeamCall::smcOpen, {1, {}});
  table.failAlways(SeamCall::smcOpen, {2, {}});
  EXPECT_EQ(table.next(SeamCall::smcOpen).fault->code, 1);
}

TEST_F(FaultTableTest, FailsACallByItsNumberInAllWithItsPlainFault) {
  table.failAtCall(2);
  EXPECT_FALSE(table.next(SeamCall::smcOpen).fault);
  const FaultTable::Verdict verdict = table.next(SeamCall::fileWrite);
  ASSERT_TRUE(verdict.fault);
  EXPECT_EQ(verdict.fault->code, 5);
  EXPECT_EQ(table.callAtFailIndex(), SeamCall::fileWrite);
  EXPECT_EQ(table.injected(), 1U);
  EXPECT_FALSE(table.next(SeamCall::fileWrite).fault);
}

TEST_F(FaultTableTest, ACallThatCannotFailIsMadeThoughItsNumberWasChosen) {
  table.failAtCall(1);
  EXPECT_FALSE(table.next(SeamCall::logEmit).fault);
  EXPECT_EQ(table.callAtFailIndex(), SeamCall::logEmit);
  EXPECT_EQ(table.injected(), 0U);
}

TEST_F(FaultTableTest, KillsAtACallByItsNumber) {
  table.killAtCall(2);
  EXPECT_FALSE(table.next(SeamCall::clockNow).kill);
  EXPECT_TRUE(table.next(SeamCall::smcClose).kill);
  EXPECT_FALSE(table.next(SeamCall::smcClose).kill);
}

TEST_F(FaultTableTest, OnlyCallsThatCanFailTakeRules) {
  for (std::size_t i = 0; i < seamCallCount; ++i) {
    const auto call = static_cast<SeamCall>(i);
    const FailureKind kind = describe(call).kind;
    const bool sure = kind == FailureKind::Sure || kind == FailureKind::Release;
    EXPECT_EQ(plainFault(call).has_value(), !sure) << describe(call).id;
    if (sure) {
      EXPECT_THROW(table.failAlways(call, {}), std::invalid_argument) << describe(call).id;
    } else {
      EXPECT_NO_THROW(table.failAlways(call, {})) << describe(call).id;
    }
  }
}

TEST_F(FaultTableTest, LatencyIsForAKindOfCallOrForOneOccurrence) {
  table.setLatency(SeamCall::smcCallStruct, 0.25);
  table.delayNth(SeamCall::smcCallStruct, 2, 0.5);
  EXPECT_EQ(table.next(SeamCall::smcCallStruct).latencySeconds, 0.25);
  EXPECT_EQ(table.next(SeamCall::smcCallStruct).latencySeconds, 0.75);
  EXPECT_EQ(table.next(SeamCall::smcCallStruct).latencySeconds, 0.25);
  table.clear();
  EXPECT_EQ(table.next(SeamCall::smcCallStruct).latencySeconds, 0);
  EXPECT_EQ(table.counts().total, 4U);
}

}  // namespace
}  // namespace virtualmac
