#include "Tests/LongRun.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <numeric>

namespace {

std::map<std::string, std::string> variables;

const char* variable(const char* name) {
  const auto found = variables.find(name);
  return found == variables.end() ? nullptr : found->second.c_str();
}

std::vector<std::uint64_t> seedsFor(std::map<std::string, std::string> given) {
  variables = std::move(given);
  return longrun::seedsToPlay(variable, 5);
}

TEST(LongRunTest, PlaysTheUsualSeedsWhenNothingIsAsked) {
  EXPECT_EQ(seedsFor({}), (std::vector<std::uint64_t>{1, 2, 3, 4, 5}));
}

TEST(LongRunTest, PlaysOneSeedOrARange) {
  EXPECT_EQ(seedsFor({{"KORVEL_SEED", "9"}}), (std::vector<std::uint64_t>{9}));
  EXPECT_EQ(seedsFor({{"KORVEL_FIRST_SEED", "7"}, {"KORVEL_SEEDS", "3"}}),
            (std::vector<std::uint64_t>{7, 8, 9}));
}

TEST(LongRunTest, PartsOfARangeAreAllOfItAndShareNothing) {
  std::vector<std::uint64_t> all;
  for (const std::string part : {"1/3", "2/3", "3/3"}) {
    const auto seeds =
        seedsFor({{"KORVEL_FIRST_SEED", "11"}, {"KORVEL_SEEDS", "100"}, {"KORVEL_SHARD", part}});
    all.insert(all.end(), seeds.begin(), seeds.end());
  }
  std::ranges::sort(all);
  std::vector<std::uint64_t> wanted(100);
  std::iota(wanted.begin(), wanted.end(), 11);
  EXPECT_EQ(all, wanted);
}

TEST(LongRunTest, RefusesWhatIsNoNumber) {
  for (const std::string name : {"KORVEL_SEED", "KORVEL_FIRST_SEED", "KORVEL_SEEDS"}) {
    for (const std::string wrong : {"0", "-1", "ten", "10x"}) {
      std::string wanted = name;
      wanted.append(" takes a whole number from 1, not \"").append(wrong).append("\"");
      try {
        seedsFor({{name, wrong}});
        FAIL() << name << '=' << wrong << " was taken";
      } catch (const std::invalid_argument& refusal) {
        EXPECT_EQ(std::string(refusal.what()), wanted);
      }
    }
  }
}

}  // namespace
