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
  lid: closed
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
  EXPECT_EQ(scenario->start[2].action.text(), "fault disk-full on");
  ASSERT_EQ(scenario->steps.size(), 3U);
  EXPECT_EQ(scenario->steps[0].time, 5);
  EXPECT_EQ(scenario->steps[0].line, 12);
  EXPECT_EQ(scenario->steps[1].time, 5 + 1800);
  EXPECT_EQ(scenario->steps[1].reply.kind, Answer::Kind::Failed);
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
        do: adapter off
      - after: 1h
        do: adapter on
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
  EXPECT_THAT(
      errors,
      HasSubstr(
          "a.yaml:3: a scenario's key \"stpes\" is unknown, did you mean \"steps\"? (allowed: "
          "name, description"));
  EXPECT_THAT(errors,
              HasSubstr("a.yaml:5: start's key \"batery\" is unknown, did you mean \"battery\"?"));
  EXPECT_THAT(errors, HasSubstr("the scenario has no steps"));
  EXPECT_THAT(errorsOf(head + "steps:\n  - at: 00:01\n    dont: x\n"),
              HasSubstr("a.yaml:5: a step's key \"dont\" is unknown, did you mean \"do\"?"));
  EXPECT_THAT(errorsOf(head + "name: C\nsteps: [{at: 00:01}]\n"), HasSubstr("\"name\" twice"));
}

TEST(ScenarioReaderTest, WrongValuesAreNamedWithTheirLine) {
  const auto step = [](const std::string& text) {
    return errorsOf(head + "steps:\n  - at: 00:01\n    " + text + "\n");
  };
  EXPECT_THAT(step("do: [connect, lid ajar]"),
              HasSubstr("a.yaml:5: lid \"ajar\" is unknown (allowed: open, closed)"));
  EXPECT_THAT(step("do:\n      - connect\n      - fly"),
              HasSubstr("a.yaml:7: action \"fly\" is unknown (allowed: "));
  EXPECT_THAT(step("within: gate paused"), HasSubstr("a.yaml:5: \"gate\" is not a length of time"));
  EXPECT_THAT(step("within: 5s reported chargeLimit=80"), HasSubstr("asked at one moment only"));
  EXPECT_THAT(step("expect: gate"), HasSubstr("gate is missing"));
  EXPECT_THAT(step("do: connect\n    reply: ok"), HasSubstr("a reply without a request"));
  EXPECT_THAT(step("do: clear-limit\n    reply: maybe"), HasSubstr("ok, failed, lost, none"));
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

std::string repeated(const std::string& times, const std::string& steps) {
  return "{repeat: " + times + ", every: 1m, steps: [" + steps + "]}";
}

TEST(ScenarioReaderTest, AStoryHasAsManyStepsAsStatedAndNoMore) {
  const auto story = [](const std::string& more) {
    const std::string fifty = "{after: 0s}, {after: 0s}, {after: 0s}, {after: 0s}, {after: 0s}";
    return parseScenario(head + "steps: [" + repeated("2000", fifty + ", " + fifty) + ", " +
                             repeated("8000", fifty + ", " + fifty) + more + "]\n",
                         "a.yaml");
  };
  const auto full = story("");
  ASSERT_TRUE(full) << full.error();
  EXPECT_EQ(full->steps.size(), 100'000U);
  const auto overfull = story(", {after: 0s}");
  ASSERT_FALSE(overfull);
  EXPECT_EQ(overfull.error(),
            "a.yaml:3: the scenario has more than 100000 steps once its repetitions are "
            "unrolled\n");
}

// 10 000 times 10 000 repetitions would take too long and exceed any memory.
TEST(ScenarioReaderTest, RepetitionsWithinEachOtherEndAtTheBound) {
  std::string steps = "{after: 1s}";
  for (int level = 0; level < 20; ++level) steps = repeated("10000", steps);
  EXPECT_THAT(errorsOf(head + "steps: [" + steps + "]\n"), HasSubstr("more than 100000 steps"));
  EXPECT_EQ(errorsOf(head + "steps: [" + repeated("10000", repeated("10000", "")) + "]\n"),
            "a.yaml:3: a repetition has no steps\na.yaml:1: the scenario has no steps\n");
}

TEST(ScenarioReaderTest, AStoryHasAsManyPhrasesAsStatedAndNoMore) {
  std::string many;
  for (int each = 0; each < 9999; ++each) many += (each == 0 ? "touch" : ", touch");
  // The repetition in line 3 has as many phrases as a story may have; line 4 is one too many.
  EXPECT_EQ(errorsOf(head + "steps: [" + repeated("30", "{after: 0s, do: [" + many + "]}") +
                     ",\n{after: 0s}]\n"),
            "a.yaml:4: the scenario has more than 300000 phrases once its repetitions are "
            "unrolled\n");
}

TEST(ScenarioReaderTest, ATextIsTakenAsDeepAsStatedAndNoDeeper) {
  const auto nested = [](std::size_t depth) {
    return errorsOf(std::string(depth, '[') + std::string(depth, ']'));
  };
  EXPECT_THAT(nested(498), HasSubstr("a scenario is a mapping"));
  EXPECT_EQ(nested(499), "a.yaml:1: nested more than 498 deep\n");
  EXPECT_EQ(nested(20'000), "a.yaml:1: nested more than 498 deep\n");
  std::string mappings;
  for (int level = 0; level < 20'000; ++level) mappings += "{a: ";
  EXPECT_EQ(errorsOf(mappings), "a.yaml:1: nested more than 498 deep\n");
}

TEST(ScenarioReaderTest, AliasesAreRefused) {
  const std::string refused = "aliases (*name) are not taken; to tell something often, repeat it\n";
  EXPECT_EQ(errorsOf(head + "steps: &all\n  - &one {at: 00:01}\n  - *one\n"),
            "a.yaml:5: " + refused);
  EXPECT_EQ(errorsOf("steps: &all [*all]\n"), "a.yaml:1: " + refused);
  EXPECT_EQ(errorsOf(head + "start: {<<: *none}\n").substr(0, 9), "a.yaml:3:");
}

TEST(ScenarioReaderTest, NoMomentIsBeyondACentury) {
  const std::string text = "later or longer than 36500 days, which is a century";
  EXPECT_EQ(errorsOf(head + "steps:\n  - at: 36500d 00:00\n"), "");
  EXPECT_THAT(errorsOf(head + "steps:\n  - at: 36501d 00:00\n"),
              HasSubstr("a.yaml:4: \"36501d 00:00\" is " + text));
  EXPECT_THAT(errorsOf(head + "steps:\n  - at: " + std::string(400, '9') + "d 00:00\n"),
              HasSubstr(text));
  EXPECT_THAT(errorsOf(head + "steps: [{at: 00:01, holds: 36501d awake}]\n"), HasSubstr(text));
  EXPECT_EQ(errorsOf(head + "steps: [{after: 36500d}, {after: 1s}]\n"),
            "a.yaml:3: this step is " + text + "\n");
}

TEST(ScenarioReaderTest, AFileIsNoLongerThanStated) {
  EXPECT_EQ(loadScenario("/dev/zero").error(), "/dev/zero: larger than 1048576 bytes\n");
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
