#include "VirtualMac/Tools/LogPattern.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace virtualmac {
namespace {

using testing::ElementsAre;
using testing::Optional;

std::optional<std::vector<std::string>> arguments(std::string_view format, std::string_view text,
                                                  bool wasCut = false) {
  const auto found = LogPattern(format).match(text, wasCut);
  if (!found) return std::nullopt;
  std::vector<std::string> texts;
  for (const LogPattern::Value& each : *found) texts.push_back(each.text);
  return texts;
}

TEST(LogPatternTest, FindsTheArgumentsOfEveryConversion) {
  EXPECT_THAT(arguments("write %{public}s bytes=%{public}s", "write CHTE bytes=[1, 0]"),
              Optional(ElementsAre("CHTE", "[1, 0]")));
  EXPECT_THAT(arguments("%d %u %hhu %ld %{bool,public}d", "-5 4 255 -12345678901 1"),
              Optional(ElementsAre("-5", "4", "255", "-12345678901", "1")));
  EXPECT_THAT(arguments("Nothing in it", "Nothing in it"), Optional(ElementsAre()));
  EXPECT_THAT(arguments("pid=%d team=%s", "pid=3 team="), Optional(ElementsAre("3", "")));
}

TEST(LogPatternTest, AnEscapedPercentSignIsOne) {
  EXPECT_THAT(arguments("100%% target at %ld%%", "100% target at 7%"), Optional(ElementsAre("7")));
  EXPECT_EQ(arguments("100%% target", "100%% target"), std::nullopt);
}

TEST(LogPatternTest, RefusesEverythingThatIsNotWhole) {
  EXPECT_EQ(arguments("count=%ld)", "count=)"), std::nullopt);
  EXPECT_EQ(arguments("count=%ld)", "count=-)"), std::nullopt);
  EXPECT_EQ(arguments("count=%ld)", "count=4"), std::nullopt);
  EXPECT_EQ(arguments("count=%ld", "count=4 more"), std::nullopt);
  EXPECT_EQ(arguments("count=%ld", "a count=4"), std::nullopt);
  EXPECT_EQ(arguments("a", ""), std::nullopt);
}

TEST(LogPatternTest, ATextMayHoldTheWordsThatFollowIt) {
  EXPECT_THAT(arguments("%s failed — %s", "a failed — b failed — c"),
              Optional(ElementsAre("a", "b failed — c")));
  EXPECT_THAT(arguments("outcome %s — not applied", "outcome x — not applied — not applied"),
              Optional(ElementsAre("x — not applied")));
}

TEST(LogPatternTest, ATextThatWasCutFitsAsFarAsItGoes) {
  constexpr std::string_view format = "corrupt — %s; continuing with %ld";
  for (const std::string_view text : {"corrup", "corrupt — wor", "corrupt — words; contin",
                                      "corrupt — words; continuing with 1"}) {
    EXPECT_TRUE(arguments(format, text, true)) << text;
    EXPECT_EQ(arguments(format, text).has_value(), text.ends_with('1')) << text;
  }
  EXPECT_FALSE(arguments(format, "", true));
  EXPECT_FALSE(arguments(format, "other words", true));
}

TEST(LogPatternTest, AValueKnowsWhatStandsBeforeIt) {
  const auto found = LogPattern("write failed: %s [%s %ld]").match("write failed: no [Domain 28]");
  ASSERT_TRUE(found && found->size() == 3);
  EXPECT_EQ(found->back().before, "write failed: no [Domain");
  EXPECT_TRUE(found->back().isNumber);
  EXPECT_FALSE(found->front().isNumber);
}

TEST(LogPatternTest, IsShownWithAnEllipsisForEachArgument) {
  const LogPattern pattern("SMC write %{public}s at 100%%: %d");
  EXPECT_EQ(pattern.plain(), "SMC write … at 100%: …");
  EXPECT_EQ(pattern.fixedBytes(), std::string("SMC write  at 100%: ").size());
}

}  // namespace
}  // namespace virtualmac
