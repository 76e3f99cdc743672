#include "VirtualMac/Scenarios/ScenarioRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Tests/scenarios/BareStage.h"

namespace virtualmac {
namespace {

using testing::HasSubstr;
using testing::Not;

class ScenarioRunTest : public testing::Test {
 protected:
  ScenarioOutcome play(const std::string& steps, const Onlooker& onlooker = {}) {
    scenario = parseScenario("name: A\ndescription: B\n" + steps, "a.yaml");
    EXPECT_TRUE(scenario) << scenario.error();
    return playScenario(*scenario, stage, "virtual-mac run a.yaml", onlooker);
  }
  /// Returns the failures drawn in a picture.
  static std::vector<TimelineMark> failuresIn(const Timeline& timeline) {
    std::vector<TimelineMark> marks = timeline.marks;
    std::erase_if(marks, [](const auto& mark) { return mark.kind != TimelineMarkKind::Failure; });
    return marks;
  }

  BareStage stage;
  std::expected<Scenario, std::string> scenario = std::unexpected("");
};

TEST_F(ScenarioRunTest, AStoryThatGoesAsToldPasses) {
  const ScenarioOutcome outcome = play(R"(start: {battery: 50, adapter: off}
steps:
  - at: 00:10
    do: adapter on
    expect: [adapter connected, "journal \"adapter connected\""]
    within: 30m battery 60
    holds: 10m charging
  - at: 01:00
    expect: battery > 60
never: [asleep, battery < 40]
always: lid open
)");
  EXPECT_TRUE(outcome.passed) << outcome.report;
  EXPECT_EQ(outcome.report, "");
  EXPECT_EQ(outcome.expectations, 8U);
  EXPECT_EQ(outcome.virtualSeconds, 3600);
  EXPECT_GT(outcome.timeline.samples.size(), 20U);
}

TEST_F(ScenarioRunTest, AnExpectationThatFailsIsReportedWithLineTimeJournalAndCommand) {
  const ScenarioOutcome outcome = play(R"(start: {battery: 50}
steps:
  - at: 00:00:10
    do: adapter off
  - at: 00:01
    expect: gate paused
  - at: 00:10
    do: lid closed
)");
  EXPECT_FALSE(outcome.passed);
  EXPECT_THAT(outcome.report,
              HasSubstr("a.yaml:8: at 00:01:00, 60.000 s: expected \"gate paused\", but the "
                        "gate is charging\n"));
  EXPECT_THAT(outcome.report, HasSubstr("10.000 mac   adapter disconnected"));
  EXPECT_THAT(outcome.report, HasSubstr("run it again: virtual-mac run a.yaml\n"));
  EXPECT_FALSE(stage.machine().lid.isClosed()) << "the run goes on after a failure";
}

TEST_F(ScenarioRunTest, AGraceThatGoesBeyondTheEndIsWaitedFor) {
  stage.grace = 600;
  const std::string story = R"(start: {battery: 50}
steps:
  - at: 00:01
    within: 1s )";
  const ScenarioOutcome never = play(story + "gate paused\n");
  EXPECT_FALSE(never.passed) << "what nobody saw counts as held";
  EXPECT_THAT(never.report,
              HasSubstr("a.yaml:6: at 00:11:01, 661.000 s: expected within 1s \"gate paused\""));
  const ScenarioOutcome late = play(story + "battery 55\n");
  EXPECT_TRUE(late.passed) << late.report;
  EXPECT_EQ(late.expectations, 1U);
}

TEST_F(ScenarioRunTest, AFailureIsAMarkWithItsText) {
  const Timeline timeline = play(R"(steps:
  - at: 00:01
    expect: gate paused
  - at: 00:10
)")
                                .timeline;
  const std::vector<TimelineMark> failures = failuresIn(timeline);
  ASSERT_EQ(failures.size(), 1U);
  EXPECT_EQ(failures[0].time, 60);
  EXPECT_EQ(failures[0].text, "line 5: expected \"gate paused\", but the gate is charging");
  EXPECT_EQ(timeline.end, 62);
  EXPECT_TRUE(failuresIn(play("steps: [{at: 01:00, expect: lid open}]\n").timeline).empty());
}

TEST_F(ScenarioRunTest, AnOnlookerStopsTheRunWhereItIs) {
  const ScenarioOutcome outcome = play(
      R"(start: {battery: 50, adapter: off}
steps:
  - at: 00:01
    do: adapter on
    expect: adapter connected
  - at: 02:00
    do: lid closed
never: battery 0
)",
      [](double now) { return now > 600 ? std::optional<std::string>("Somebody") : std::nullopt; });
  EXPECT_FALSE(outcome.passed);
  EXPECT_TRUE(outcome.stopped);
  EXPECT_EQ(outcome.expectations, 1U) << "what was still watched has not held yet";
  EXPECT_LT(outcome.virtualSeconds, 7200);
  EXPECT_FALSE(stage.machine().lid.isClosed());
  EXPECT_THAT(outcome.report, HasSubstr("a.yaml:5: at 00:1"));
  EXPECT_THAT(outcome.report, HasSubstr(": stopped by Somebody\n"));
  const std::vector<TimelineMark> failures = failuresIn(outcome.timeline);
  ASSERT_EQ(failures.size(), 1U);
  EXPECT_EQ(failures[0].text, "stopped by Somebody");
  EXPECT_EQ(outcome.timeline.end, outcome.virtualSeconds) << "nothing is played after it";
}

/// A client fails to connect, because somebody stops the run at that moment.
class StoppedStage : public BareStage {
 public:
  bool stopped = false;
  void connect(const std::string&, const std::string&) override {
    stopped = true;
    throw std::runtime_error("nobody is there any more");
  }
};

TEST(StoppedRunTest, WhatBreaksWhileTheRunIsStoppedIsNoFailure) {
  StoppedStage stage;
  const auto scenario =
      parseScenario("name: A\ndescription: B\nsteps: [{at: 00:01, do: connect}]\n", "a.yaml");
  const auto look = [&stage](double) {
    return stage.stopped ? std::optional<std::string>("Somebody") : std::nullopt;
  };
  const ScenarioOutcome outcome = playScenario(*scenario, stage, "again", look);
  EXPECT_TRUE(outcome.stopped);
  EXPECT_THAT(outcome.report, HasSubstr("a.yaml:3: at 00:01:00, 60.000 s: stopped by Somebody\n"));
  EXPECT_THAT(outcome.report, Not(HasSubstr("nobody is there")));
  stage.stopped = false;
  const ScenarioOutcome failed = playScenario(*scenario, stage, "again");
  EXPECT_FALSE(failed.stopped);
  EXPECT_THAT(failed.report, HasSubstr("nobody is there any more"));
}

TEST_F(ScenarioRunTest, WhatIsGivenIsJudgedBeforeAnythingIsDone) {
  EXPECT_TRUE(play(R"(steps:
  - at: 00:01
    given: adapter connected
    do: adapter off
    expect: adapter disconnected
)")
                  .passed);
  EXPECT_THAT(play("steps: [{at: 00:02, given: adapter connected, do: adapter on}]\n").report,
              HasSubstr("expected \"adapter connected\", but the adapter is disconnected"));
}

TEST_F(ScenarioRunTest, WithinFailsAtItsDeadlineAndNotBefore) {
  const ScenarioOutcome outcome = play(R"(start: {battery: 50}
steps:
  - at: 00:01
    within: 90s asleep
  - at: 00:30
)");
  EXPECT_FALSE(outcome.passed);
  EXPECT_THAT(outcome.report, HasSubstr("at 00:02:30, 150.000 s: expected within 90s \"asleep\""));
}

TEST_F(ScenarioRunTest, HoldsFailsWhenItEnds) {
  const ScenarioOutcome outcome = play(R"(start: {battery: 50}
steps:
  - at: 00:01
    holds: 10m adapter connected
  - at: 00:05
    do: adapter off
)");
  EXPECT_FALSE(outcome.passed);
  EXPECT_THAT(outcome.report,
              HasSubstr("at 00:05:00, 300.000 s: expected for 600s \"adapter connected\", but "
                        "the adapter is disconnected"));
}

TEST_F(ScenarioRunTest, NeverAndAlwaysAreJudgedAtEveryMoment) {
  const ScenarioOutcome never = play(R"(start: {battery: 50, adapter: off}
steps: [{at: 05:00}]
never: battery 49
)");
  EXPECT_THAT(never.report, HasSubstr("expected never \"battery 49\", but the battery is at 49 %"));
  const ScenarioOutcome always = play(R"(steps:
  - at: 06:00
    do: [lid closed, lid open]
always: lid open
)");
  EXPECT_THAT(always.report, HasSubstr("expected always \"lid open\""));
}

TEST_F(ScenarioRunTest, WordsAreHeardOnlyWhileTheyAreListenedFor) {
  const std::string before = "steps:\n  - at: 00:01\n    do: adapter off\n  - at: 00:02\n";
  EXPECT_FALSE(play(before + "    within: 5s journal \"adapter disconnected\"\n").passed);
  EXPECT_TRUE(play("steps:\n  - at: 00:03\n    do: adapter on\n    within: 5s journal \"adapter "
                   "connected\"\n")
                  .passed);
}

TEST_F(ScenarioRunTest, ExpectationsOfALaterStepStillHearTheLatestActions) {
  EXPECT_TRUE(play("steps:\n  - at: 00:01\n    do: adapter off\n  - at: 00:02\n    expect: journal "
                   "\"adapter disconnected\"\n")
                  .passed);
  EXPECT_FALSE(play("steps:\n  - at: 00:03\n    do: adapter on\n  - at: 00:04\n    do: touch\n    "
                    "expect: journal \"adapter connected\"\n")
                   .passed);
}

TEST_F(ScenarioRunTest, RequestsAreExpectedToSucceed) {
  stage.answers = {{Answer::Kind::Ok, std::nullopt}};
  EXPECT_TRUE(play("steps: [{at: 00:01, do: set-limit 80}]\n").passed);
  stage.answers = {{Answer::Kind::Failed, korvel::ErrorObject{"D", 400, {}}}};
  EXPECT_THAT(play("steps: [{at: 00:02, do: set-limit 80}]\n").report,
              HasSubstr("\"set-limit 80\": expected success, but it failed with 400"));
  stage.answers = {};
  EXPECT_THAT(play("steps: [{at: 00:03, do: set-limit 80}]\n").report,
              HasSubstr("no answer came within 10 s"));
  EXPECT_TRUE(play("steps: [{at: 00:05, do: set-limit 80, reply: none}]\n").passed);
}

TEST_F(ScenarioRunTest, OtherRepliesAreExpectedByName) {
  const korvel::ErrorObject error{"D", 400, {{"NSLocalizedDescription", "Charge limit must be"}}};
  const auto reply = [&](const std::string& expected, Answer answer) {
    stage.answers = {std::move(answer)};
    return play("steps:\n  - after: 1s\n    do: reset\n    reply: " + expected + "\n").passed;
  };
  EXPECT_TRUE(reply("failed 400 \"must be\"", {Answer::Kind::Failed, error}));
  EXPECT_TRUE(reply("failed", {Answer::Kind::Failed, std::nullopt}));
  EXPECT_FALSE(reply("failed 503", {Answer::Kind::Failed, error}));
  EXPECT_FALSE(reply("failed 400 \"may be\"", {Answer::Kind::Failed, error}));
  EXPECT_FALSE(reply("failed 400", {Answer::Kind::Ok, std::nullopt}));
  EXPECT_TRUE(reply("lost", {Answer::Kind::Lost, std::nullopt}));
  EXPECT_FALSE(reply("lost", {Answer::Kind::Ok, std::nullopt}));
}

TEST_F(ScenarioRunTest, WhatCannotBeDoneFailsTheScenario) {
  EXPECT_THAT(
      play("steps: [{at: 00:01, do: fault smc-result QQQQ 1 on}]\n").report,
      HasSubstr("a.yaml:3: at 00:01:00, 60.000 s: \"fault smc-result QQQQ 1 on\" cannot be done"));
}

TEST_F(ScenarioRunTest, AViolationOfTheProtocolFailsTheScenario) {
  stage.told = {"a reply was dropped"};
  EXPECT_THAT(play("steps: [{at: 00:01}]\n").report, HasSubstr("a reply was dropped"));
}

TEST_F(ScenarioRunTest, TheStartIsWhatTheStoryFinds) {
  const ScenarioOutcome outcome = play(R"(start:
  battery: 33
  adapter: off
  display: on
  saved-state: '{"chargeLimit":70}'
  restart-after-crash: yes
steps:
  - at: 00:00
    expect: [battery 33, adapter disconnected, display connected, saved chargeLimit=70]
)");
  EXPECT_TRUE(outcome.passed) << outcome.report;
  EXPECT_TRUE(stage.machine().launchd.job.restartAfterCrash);
  EXPECT_TRUE(stage.machine().launchd.isRunning()) << "the story begins with a boot";
  EXPECT_EQ(outcome.timeline.samples.front().state.percent, 33);
}

}  // namespace
}  // namespace virtualmac
