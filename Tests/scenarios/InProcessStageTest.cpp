#include "VirtualMac/Scenarios/InProcessStage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VirtualMac/Scenarios/ScenarioRun.h"

namespace virtualmac {
namespace {

using testing::HasSubstr;

ScenarioOutcome play(const std::string& steps) {
  const auto scenario = parseScenario("name: A\ndescription: B\n" + steps, "a.yaml");
  EXPECT_TRUE(scenario) << scenario.error();
  InProcessStage stage(*scenario);
  return playScenario(*scenario, stage, "again");
}

TEST(InProcessStageTest, TheHelperItselfAnswers) {
  const ScenarioOutcome outcome = play(R"(start: {battery: 85}
steps:
  - at: 00:00:10
    do: [connect, set-limit 70]
    expect: [gate paused, CHTE=01, reported chargeLimit=70, saved chargeLimit=70]
  - at: 00:00:20
    do: set-limit 5
    reply: failed 400 "between 20 and 100"
)");
  EXPECT_TRUE(outcome.passed) << outcome.report;
}

TEST(InProcessStageTest, TheSameScenarioGivesTheSameJournal) {
  const std::string story = "steps: [{at: 00:01, do: [connect, set-limit 80]}, {at: 02:00}]\n";
  const std::uint64_t first = play(story).journalHash;
  EXPECT_EQ(play(story).journalHash, first);
  EXPECT_NE(play("steps: [{at: 00:01, do: [connect, set-limit 81]}, {at: 02:00}]\n").journalHash,
            first);
}

TEST(InProcessStageTest, WhatNobodyCanDoIsSaid) {
  const auto report = [](const std::string& action) {
    return play("steps: [{at: 00:00:10, do: [connect]}, {at: 00:00:20, do: [" + action + "]}]\n")
        .report;
  };
  EXPECT_THAT(report("connect"), HasSubstr("\"app\" is connected already"));
  EXPECT_THAT(report("disconnect other"), HasSubstr("\"other\" is not connected"));
  EXPECT_THAT(report("clear-limit by other"), HasSubstr("\"other\" is not connected"));
  EXPECT_THAT(report("connect other as martian"), HasSubstr("identity \"martian\" is unknown"));
  EXPECT_THAT(report("helper start"), HasSubstr("a helper is already running"));
  for (const char* action : {"kill", "kill TERM", "update 2.1.0"}) {
    EXPECT_THAT(report(std::string("kill, ") + action), HasSubstr("no helper is running"));
  }
}

TEST(InProcessStageTest, ARequestAfterACrashStartsTheHelperAgain) {
  const ScenarioOutcome outcome = play(R"(start: {battery: 85}
steps:
  - at: 00:00:10
    do: connect
  - at: 00:00:20
    do: kill
    expect: helper stopped
  - at: 00:00:30
    do: set-limit 80
    expect: [helper running, gate paused]
)");
  EXPECT_TRUE(outcome.passed) << outcome.report;
}

TEST(InProcessStageTest, ACrashedHelperIsStartedAgainOnlyWhereTheStorySaysSo) {
  const std::string kill = "steps: [{at: 00:00:10, do: connect}, {at: 00:00:20, do: kill, expect: ";
  EXPECT_TRUE(play(kill + "helper stopped}]\n").passed);
  EXPECT_TRUE(play("start: {restart-after-crash: yes}\n" + kill + "helper running}]\n").passed);
}

}  // namespace
}  // namespace virtualmac
