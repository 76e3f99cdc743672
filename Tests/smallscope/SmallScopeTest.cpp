#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "Tests/smallscope/Scope.h"
#include "Tests/smallscope/Selection.h"
#include "VirtualMac/Machine/BuiltInProfiles.h"
#include "VirtualMac/Machine/Faults.h"

namespace smallscope {

namespace {

constexpr std::size_t longestKilledSequence = 2;
constexpr std::uint64_t fewSequences = 100;
constexpr std::uint64_t fewKilledSequences = 8;
constexpr std::uint64_t fewKills = 6;

std::vector<std::string> profiles() {
  std::vector<std::string> names;
  for (const auto& each : virtualmac::builtInProfiles()) names.emplace_back(each.name);
  return names;
}

/// Counts of cases that were played, and of those that failed.
struct Totals {
  std::uint64_t sequences = 0;
  std::uint64_t kills = 0;
  std::uint64_t failures = 0;

  void tell(const std::string& of) const {
    std::printf("%s: %llu sequences, %llu kills, %llu failures\n", of.c_str(),
                static_cast<unsigned long long>(sequences), static_cast<unsigned long long>(kills),
                static_cast<unsigned long long>(failures));
    std::fflush(stdout);
  }
};

class TellTotals : public testing::Environment {
 public:
  void TearDown() override { totals.tell("in all"); }
  static inline Totals totals;
};

/// Plays the cases of one test, and reports the first few that fail.
class SmallScope : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    try {
      selected = selectionFrom(longrun::ownEnvironment);
    } catch (const std::invalid_argument& wrong) {
      FAIL() << wrong.what();
    }
  }
  void TearDown() override {
    played.tell(GetParam());
    RecordProperty("sequences", std::to_string(played.sequences));
    RecordProperty("kills", std::to_string(played.kills));
    TellTotals::totals.sequences += played.sequences;
    TellTotals::totals.kills += played.kills;
    TellTotals::totals.failures += played.failures;
    EXPECT_EQ(played.failures, 0U);
  }

  void play(const Case& subject) {
    ++(subject.killAt > 0 ? played.kills : played.sequences);
    const Outcome outcome = run(subject);
    if (!outcome.findings.empty() && ++played.failures <= mostReports) {
      ADD_FAILURE() << outcome.report;
    }
  }

  [[nodiscard]] std::uint64_t salt() const {
    const std::vector<std::string> all = profiles();
    return static_cast<std::uint64_t>(std::ranges::find(all, GetParam()) - all.begin());
  }

  Selection selected;

 private:
  static constexpr std::uint64_t mostReports = 3;
  Totals played;
};

TEST_P(SmallScope, ComesRightAfterAnySequence) {
  if (selected.sequence) {
    play({GetParam(), *selected.sequence, 0});
    return;
  }
  for (const std::uint64_t number : chosen(selected, sequenceCount(), fewSequences, salt())) {
    play({GetParam(), sequenceOf(number), 0});
  }
}

TEST_P(SmallScope, ComesRightAfterAKillAtAnyCall) {
  if (selected.killAt > 0) {
    play({GetParam(), *selected.sequence, selected.killAt});
    return;
  }
  if (selected.sequence) GTEST_SKIP() << "KORVEL_SEQUENCE is played here only with KORVEL_K";
  for (const std::uint64_t number :
       chosen(selected, sequenceCount(longestKilledSequence), fewKilledSequences, salt())) {
    const Sequence sequence = sequenceOf(number);
    const std::uint64_t calls = run({GetParam(), sequence, 0}).lastCalls;
    Selection ofCalls = selected;
    ofCalls.shard = {};
    for (const std::uint64_t call : chosen(ofCalls, calls, fewKills, number)) {
      play({GetParam(), sequence, call + 1});
    }
  }
}

std::string nameOf(const testing::TestParamInfo<std::string>& info) {
  return testNameOf(info.param);
}

/// Plays a case on a machine that no helper can make right.
Outcome onABrokenMachine(const Case& subject, std::string_view fault) {
  return run(subject, [fault](virtualmac::Machine& mac) {
    ASSERT_TRUE(virtualmac::setFault(mac, fault, true).has_value());
  });
}

TEST(SmallScopeTest, NoticesAGateThatDoesNotObey) {
  const Case subject{"newer-keys", sequenceFrom("limit,tick"), 0};
  EXPECT_EQ(run(subject).findings, "");
  const Outcome outcome = onABrokenMachine(subject, "smc-silent-refusal CHTE");
  EXPECT_THAT(outcome.findings, testing::HasSubstr("charging is held back for nobody"));
  EXPECT_THAT(outcome.report, testing::StartsWith("profile newer-keys, sequence limit,tick:\n"));
  EXPECT_THAT(outcome.report,
              testing::EndsWith("again: KORVEL_SEQUENCE=limit,tick korvel_smallscope_tests "
                                "--gtest_filter='*SmallScope.ComesRightAfterAnySequence/"
                                "newer_keys'"));
}

TEST(SmallScopeTest, NoticesADischargeThatOutlivesAKill) {
  Case subject{"older-pair", sequenceFrom("limit,discharge"), 0};
  const Outcome whole = run(subject);
  EXPECT_EQ(whole.findings, "");
  subject.killAt = whole.lastCalls;
  EXPECT_EQ(run(subject).findings, "");
  const Outcome outcome = onABrokenMachine(subject, "smc-silent-refusal CH0I");
  EXPECT_THAT(outcome.findings, testing::HasSubstr("the discharge keys are not as the record"));
  EXPECT_THAT(outcome.report,
              testing::EndsWith("again: KORVEL_SEQUENCE=limit,discharge KORVEL_K=" +
                                std::to_string(subject.killAt) +
                                " korvel_smallscope_tests --gtest_filter='*SmallScope."
                                "ComesRightAfterAKillAtAnyCall/older_pair'"));
}

TEST(SmallScopeTest, NoticesAKillThatNeverCame) {
  const Outcome outcome = run({"newer-keys", sequenceFrom("limit"), 10000});
  EXPECT_EQ(outcome.findings, "  the last step has no such call\n");
}

INSTANTIATE_TEST_SUITE_P(Profiles, SmallScope, testing::ValuesIn(profiles()), nameOf);

[[maybe_unused]] const testing::Environment* const told =
    testing::AddGlobalTestEnvironment(new TellTotals);

}  // namespace

}  // namespace smallscope
