#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VirtualMac/Scenarios/Scenario.h"

namespace virtualmac {
namespace {

using testing::HasSubstr;

const std::string head = "name: A\ndescription: B\n";

std::string errorsOf(const std::string& text) {
  const auto scenario = parseScenario(text, "a.yaml");
  return scenario ? "" : scenario.error();
}

TEST(ScenarioReaderTest, AWholeScenarioIsRead) {
  const auto scenario = parseScenario(R"(name: Lunch break
description: Unplugging above the limit.
profile: older-pair
seed: 7
start:
  battery: 80
  lid: close
  faults: [disk-full]
  helper-version: none
  restart-after-crash: yes
steps:
  - at: 00:00:05
    do: [connect, set-limit 80]
    within: 10s gate paused
  - after: 30m
    do: set-limit 10
    reply: failed 400 "between"
    holds: [1h gate paused, 5s adapter connected]
  - at: 1d 00:00
    expect: battery 80
never: CHIE=08 while asleep
always: [lid closed]
)",
                                      "a.yaml");
  ASSERT_TRUE(scenario) << scenario.error();
  EXPECT_EQ(scenario->name, "Lunch break");
  EXPECT_EQ(scenario->profile, "older-pair");
  EXPECT_EQ(scenario->seed, 7U);
  EXPECT_TRUE(scenario->restartAfterCrash);
  EXPECT_FALSE(scenario->helperVersion);
  ASSERT_EQ(scenario->start.size(), 3U);
  EXPECT_EQ(scenario->start[2].text(), "fault disk-full");
  ASSERT_EQ(scenario->steps.size(), 3U);
  EXPECT_EQ(scenario->steps[0].time, 5);
  EXPECT_EQ(scenario->steps[0].line, 12);
  EXPECT_EQ(scenario->steps[1].time, 5 + 1800);
  EXPECT_EQ(scenario->steps[1].reply.kind, ExpectedReply::Kind::Failed);
  EXPECT_EQ(scenario->steps[1].reply.code, 400);
  EXPECT_EQ(scenario->steps[1].holds[0].seconds, 3600);
  EXPECT_EQ(scenario->steps[1].holds[1].condition.text(), "adapter connected");
  EXPECT_EQ(scenario->never.size(), 1U);
  EXPECT_EQ(scenario->end, 86400);
}

TEST(ScenarioReaderTest, RepetitionsAreUnrolled) {
  const auto scenario = parseScenario(head + R"(steps:
  - at: 00:00
    do: connect
  - at: 08:00
    repeat: 3
    every: 1d
    steps:
      - at: 00:10
        do: adapter out
      - after: 1h
        do: adapter in
ends: 4d 00:00
)",
                                      "a.yaml");
  ASSERT_TRUE(scenario) << scenario.error();
  ASSERT_EQ(scenario->steps.size(), 7U);
  EXPECT_EQ(scenario->steps[1].time, 8 * 3600 + 600);
  EXPECT_EQ(scenario->steps[2].time, 9 * 3600 + 600);
  EXPECT_EQ(scenario->steps[5].time, 2 * 86400 + 8 * 3600 + 600);
  EXPECT_EQ(scenario->end, 4 * 86400);
}

TEST(ScenarioReaderTest, UnknownKeysAreNamedWithTheirLineAndWhatIsAllowed) {
  const std::string errors = errorsOf(head + "stpes: []\nstart:\n  batery: 3\n");
  EXPECT_THAT(errors,
              HasSubstr("a.yaml:3: a scenario has no key \"stpes\" (is it steps?); allowed: "
                        "name, description"));
  EXPECT_THAT(errors, HasSubstr("a.yaml:5: start has no key \"batery\" (is it battery?)"));
  EXPECT_THAT(errors, HasSubstr("the scenario has no steps"));
  EXPECT_THAT(errorsOf(head + "steps:\n  - at: 00:01\n    dont: x\n"),
              HasSubstr("a.yaml:5: a step has no key \"dont\" (is it do?)"));
  EXPECT_THAT(errorsOf(head + "name: C\nsteps: [{at: 00:01}]\n"), HasSubstr("\"name\" twice"));
}

TEST(ScenarioReaderTest, WrongValuesAreNamedWithTheirLine) {
  const auto step = [](const std::string& text) {
    return errorsOf(head + "steps:\n  - at: 00:01\n    " + text + "\n");
  };
  EXPECT_THAT(step("do: [connect, lid ajar]"), HasSubstr("a.yaml:5: \"ajar\" is not a lid's move"));
  EXPECT_THAT(step("do:\n      - connect\n      - fly"), HasSubstr("a.yaml:7: nobody can do"));
  EXPECT_THAT(step("within: gate paused"), HasSubstr("a.yaml:5: \"gate\" is not a length of time"));
  EXPECT_THAT(step("within: 5s reported chargeLimit=80"), HasSubstr("asked at one moment only"));
  EXPECT_THAT(step("expect: gate"), HasSubstr("gate is missing"));
  EXPECT_THAT(step("do: connect\n    reply: ok"), HasSubstr("a reply without a request"));
  EXPECT_THAT(step("do: clear\n    reply: maybe"), HasSubstr("ok, failed, lost or none"));
  EXPECT_THAT(step("expect: {gate: paused}"), HasSubstr("a phrase or a list of phrases"));
  EXPECT_THAT(errorsOf(head + "profile: toaster\nsteps: [{at: 00:01}]\n"), HasSubstr("a.yaml:3: "));
  EXPECT_THAT(errorsOf(head + "start: {restart-after-crash: perhaps}\nsteps: [{at: 00:01}]\n"),
              HasSubstr("neither yes nor no"));
}

TEST(ScenarioReaderTest, TimeGoesForward) {
  EXPECT_THAT(errorsOf(head + "steps:\n  - at: 00:02\n  - at: 00:01\n"),
              HasSubstr("a.yaml:5: this step is before the one in line 4"));
  EXPECT_THAT(errorsOf(head + "steps:\n  - do: connect\n"), HasSubstr("a step says when"));
  EXPECT_THAT(errorsOf(head + "steps:\n  - at: soon\n"), HasSubstr("is not a moment"));
  EXPECT_THAT(errorsOf(head + "steps:\n  - at: 00:02\n    holds: 1h awake\nends: 00:30\n"),
              HasSubstr("after the end"));
  EXPECT_THAT(errorsOf(head + "steps:\n  - at: 00:02\n    after: 5s\n"), HasSubstr("has one time"));
}

TEST(ScenarioReaderTest, EveryDefectIsToldAtOnce) {
  const std::string errors =
      errorsOf("name: A\nsteps:\n  - at: soon\n  - at: 00:01\n    do: fly\nnever: pigs\n");
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 5) << errors;
}

TEST(ScenarioReaderTest, BrokenYamlAndMissingFilesAreErrorsToo) {
  EXPECT_THAT(errorsOf("name: [A\n"), HasSubstr("a.yaml:"));
  EXPECT_THAT(errorsOf("just a text"), HasSubstr("a scenario is a mapping"));
  EXPECT_EQ(loadScenario("no/such.yaml").error(), "no/such.yaml: cannot be read\n");
}

}  // namespace
}  // namespace virtualmac
