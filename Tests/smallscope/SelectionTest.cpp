#include "Tests/smallscope/Selection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <stdexcept>
#include <string>

namespace smallscope {

namespace {

using testing::HasSubstr;

std::map<std::string, std::string> variables;

Selection selected(std::map<std::string, std::string> given) {
  variables = std::move(given);
  return selectionFrom([](const char* name) -> const char* {
    const auto found = variables.find(name);
    return found == variables.end() ? nullptr : found->second.c_str();
  });
}

std::string refusalOf(const std::map<std::string, std::string>& given) {
  try {
    selected(given);
    return "";
  } catch (const std::invalid_argument& wrong) {
    return wrong.what();
  }
}

TEST(SequenceTest, EveryNumberIsAnotherSequenceAndTheyAreAll) {
  const std::uint64_t count = stimuli().size();
  EXPECT_GE(count, 16U);
  EXPECT_EQ(sequenceCount(2), count + count * count);
  EXPECT_EQ(sequenceCount(), count + count * count + count * count * count);
  std::set<Sequence> all;
  for (std::uint64_t number = 0; number < sequenceCount(); ++number) {
    const Sequence sequence = sequenceOf(number);
    EXPECT_EQ(sequence.size() <= 2, number < sequenceCount(2));
    all.insert(sequence);
  }
  EXPECT_EQ(all.size(), sequenceCount());
}

TEST(SequenceTest, ReadsTheTextThatItWrites) {
  for (std::uint64_t number = 0; number < sequenceCount(2); ++number) {
    const Sequence sequence = sequenceOf(number);
    EXPECT_EQ(sequenceFrom(textOf(sequence)), sequence);
  }
  const Sequence longest = sequenceOf(sequenceCount() - 1);
  EXPECT_EQ(longest.size(), longestSequence);
  EXPECT_EQ(sequenceFrom(textOf(longest)), longest);
}

TEST(SequenceTest, NamesTheStimuliWhenOneIsUnknown) {
  for (const std::string wrong : {"limit,lunch", "limit,", ",", ""}) {
    EXPECT_THROW(sequenceFrom(wrong), std::invalid_argument) << wrong;
  }
  EXPECT_THAT(refusalOf({{"KORVEL_SEQUENCE", "limit,lunch"}}),
              HasSubstr("no stimulus is called \"lunch\"; there are: limit clear discharge"));
}

TEST(SelectionTest, PartsOfAFullRunAreAllOfItAndShareNothing) {
  constexpr std::uint64_t total = 1000;
  std::multiset<std::uint64_t> all;
  for (const std::string part : {"1/3", "2/3", "3/3"}) {
    const Selection selection = selected({{"KORVEL_FULL", "1"}, {"KORVEL_SHARD", part}});
    for (const std::uint64_t number : chosen(selection, total, 5, 0)) all.insert(number);
  }
  EXPECT_EQ(all.size(), total);
  for (std::uint64_t number = 0; number < total; ++number) EXPECT_EQ(all.count(number), 1U);
}

TEST(SelectionTest, TheSeedDrawsAFew) {
  const Selection first = selected({});
  EXPECT_EQ(chosen(first, 1000, 5, 0).size(), 5U);
  EXPECT_EQ(chosen(first, 1000, 5, 0), chosen(first, 1000, 5, 0));
  EXPECT_NE(chosen(first, 1000, 5, 0), chosen(first, 1000, 5, 1));
  EXPECT_NE(chosen(first, 1000, 5, 0), chosen(selected({{"KORVEL_SEED", "2"}}), 1000, 5, 0));
  EXPECT_EQ(chosen(first, 3, 5, 0).size(), 3U);
}

TEST(SelectionTest, SaysWhichValuesAVariableTakes) {
  for (const std::string wrong : {"0/3", "4/3", "1", "1/", "/3", "1/0", "1/3x", "a/3"}) {
    EXPECT_EQ(refusalOf({{"KORVEL_SHARD", wrong}}),
              "KORVEL_SHARD takes I/N with I from 1 to N, not \"" + wrong + '"');
  }
  EXPECT_EQ(refusalOf({{"KORVEL_SEED", "first"}}),
            "KORVEL_SEED takes a whole number from 1, not \"first\"");
  EXPECT_THAT(refusalOf({{"KORVEL_K", "3"}}), HasSubstr("KORVEL_K needs KORVEL_SEQUENCE"));
  const Selection one = selected({{"KORVEL_SEQUENCE", "limit,lid"}, {"KORVEL_K", "3"}});
  EXPECT_EQ(one.sequence, sequenceFrom("limit,lid"));
  EXPECT_EQ(one.killAt, 3U);
}

}  // namespace

}  // namespace smallscope
