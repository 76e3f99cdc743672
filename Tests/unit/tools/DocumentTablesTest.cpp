#include "VirtualMac/Tools/DocumentTables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace virtualmac {
namespace {

using testing::ElementsAre;

TEST(DocumentTablesTest, ATableKnowsItsPlaceTheWordsAboveItAndItsRows) {
  const auto tables = tablesIn(
      "# Title\n\n## One\n\n| A | B |\n|---|---|\n| `a b` | c, d |\n| e |  |\n\n"
      "## Two\n`lost`\n### Below\nAfter `x=` and\n`y`.\n\n| C |\n|---|\n| f |\n");
  ASSERT_EQ(tables.size(), 2U);
  EXPECT_EQ(tables[0].section, "One");
  EXPECT_EQ(tables[0].subsection, "");
  EXPECT_THAT(tables[0].rows, ElementsAre(ElementsAre("`a b`", "c, d"), ElementsAre("e", "")));
  EXPECT_EQ(tables[1].section, "Two");
  EXPECT_EQ(tables[1].subsection, "Below");
  EXPECT_THAT(tables[1].words, ElementsAre("x=", "y"));
  EXPECT_THAT(tables[1].rows, ElementsAre(ElementsAre("f")));
}

TEST(DocumentTablesTest, TextWithoutATableHasNone) {
  EXPECT_TRUE(tablesIn("").empty());
  EXPECT_TRUE(tablesIn("## One\n\nA | is no table\n").empty());
}

TEST(DocumentTablesTest, ALongerFenceHoldsShorterOnes) {
  EXPECT_THAT(codeSpans("a `b` `` c `d` `` and ` "), ElementsAre("b", "c `d`"));
  EXPECT_THAT(codeSpans("none"), ElementsAre());
}

}  // namespace
}  // namespace virtualmac
