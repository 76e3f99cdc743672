#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string_view>

#include "Tests/scenarios/UpgradeStories.h"
#include "VirtualMac/Scenarios/InProcessStage.h"
#include "VirtualMac/Scenarios/ScenarioRun.h"

namespace upgrade {

namespace {

using testing::HasSubstr;
using virtualmac::InProcessStage;
using virtualmac::playScenario;
using virtualmac::ScenarioOutcome;

/// The normal run plays one story of so many; KORVEL_FULL=1 plays all.
constexpr std::size_t normalStep = 41;
constexpr std::size_t mostReports = 3;

bool isFull() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  const char* value = std::getenv("KORVEL_FULL");
  return value != nullptr && std::string_view(value) == "1";
}

ScenarioOutcome play(const std::string& text) {
  const auto scenario = virtualmac::parseScenario(text, "upgrade.yaml");
  if (!scenario) throw std::runtime_error(scenario.error() + text);
  InProcessStage stage(*scenario);
  return playScenario(*scenario, stage, "virtual-mac run upgrade.yaml, with the story below");
}

class UpgradeMatrix : public testing::TestWithParam<Moment> {};

TEST_P(UpgradeMatrix, NothingIsLostAndNothingStaysStuck) {
  const std::vector<Case> all = casesOf(GetParam());
  const std::vector<Case> chosen = isFull() ? all : everyNth(all, normalStep);
  std::size_t held = 0;
  std::size_t failures = 0;
  for (const Case& each : chosen) {
    const std::string story = each.story();
    const ScenarioOutcome outcome = play(story);
    held += outcome.expectations;
    if (outcome.passed) continue;
    if (++failures > mostReports) continue;
    ADD_FAILURE() << each.name() << '\n' << outcome.report << '\n' << story;
  }
  EXPECT_EQ(failures, 0U);
  EXPECT_GE(held, chosen.size() * 15);
  std::cout << GetParam().name << ": " << chosen.size() << " of " << all.size() << " stories, "
            << held << " expectations held\n";
  RecordProperty("stories", static_cast<int>(chosen.size()));
}

std::string momentName(const testing::TestParamInfo<Moment>& info) {
  std::string name;
  bool isFirst = true;
  for (const char character : info.param.name) {
    if (character == '-') {
      isFirst = true;
      continue;
    }
    name += isFirst ? static_cast<char>(std::toupper(static_cast<unsigned char>(character)))
                    : character;
    isFirst = false;
  }
  return name;
}

/// A Mac that does not do as it is told makes the stories fail.
TEST(UpgradeStoriesTest, FailWhereAMacDoesNotObey) {
  const Moment& between = moments().at(3);
  ASSERT_EQ(between.name, "between");
  std::string story;
  for (const Case& each : casesOf(between)) {
    const bool fits = each.work == Work::Discharging && each.client == Client::Today &&
                      each.file.name == "file-of-today" && each.versions.name == "to-newer" &&
                      each.interruption == Interruption::None;
    if (fits) story = each.story();
  }
  ASSERT_TRUE(play(story).passed);
  const auto reportWith = [&](const std::string& fault, const std::string& before) {
    std::string spoiled = story;
    const std::size_t at = spoiled.find(before);
    if (at == std::string::npos) throw std::runtime_error("there is no " + before);
    return play(spoiled.insert(at, "  - at: 00:00:50\n    do: fault " + fault + " on\n")).report;
  };
  const std::string update = "  - at: 00:01:00\n";
  EXPECT_THAT(reportWith("smc-silent-refusal CHTE", update), HasSubstr("the gate is"));
  EXPECT_THAT(reportWith("smc-silent-refusal CHIE", update), HasSubstr("the inflow is inhibited"));
  EXPECT_THAT(reportWith("settings-refused", update), HasSubstr("SleepDisabled is on"));
  EXPECT_THAT(reportWith("disk-full", update), HasSubstr("saved helperVersion is 2.0.0"));
}

INSTANTIATE_TEST_SUITE_P(Moments, UpgradeMatrix, testing::ValuesIn(moments()), momentName);

}  // namespace

}  // namespace upgrade
