#include "VirtualMac/Scenarios/Phrase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace virtualmac {
namespace {

TEST(PhraseTest, WordsAreSplitAtSpacesAndQuotationsStayWhole) {
  Phrase phrase(R"(log  "a \"b\" c" end)");
  EXPECT_EQ(phrase.take("it"), "log");
  EXPECT_TRUE(phrase.peekIsQuoted());
  EXPECT_EQ(phrase.take("it"), "a \"b\" c");
  EXPECT_EQ(phrase.take("it"), "end");
  EXPECT_TRUE(phrase.atEnd());
  EXPECT_FALSE(phrase.complaint());
}

TEST(PhraseTest, AQuotationWithinAWordBelongsToIt) {
  Phrase phrase(R"(saved reason="too warm, really" x)");
  phrase.take("it");
  EXPECT_FALSE(phrase.peekIsQuoted());
  EXPECT_EQ(phrase.take("it"), "reason=too warm, really");
  EXPECT_EQ(phrase.take("it"), "x");
  Phrase empty("\"\"");
  EXPECT_TRUE(empty.peekIsQuoted());
  EXPECT_EQ(empty.take("it"), "");
  EXPECT_FALSE(empty.complaint());
}

TEST(PhraseTest, TheFirstComplaintIsKept) {
  Phrase phrase("lid ajar now");
  phrase.take("it");
  phrase.takeOneOf("lid", {"open", "closed"});
  phrase.takeEnd();
  EXPECT_EQ(phrase.complaint(), "lid \"ajar\" is unknown (allowed: open, closed)");
}

TEST(PhraseTest, MissingAndSuperfluousWordsAreComplainedAbout) {
  Phrase missing("");
  missing.take("a client");
  EXPECT_EQ(missing.complaint(), "a client is missing");
  Phrase superfluous("extra");
  superfluous.takeEnd();
  EXPECT_EQ(superfluous.complaint(), "nothing belongs here after it: \"extra\"");
  EXPECT_EQ(Phrase("log \"unfinished").complaint(), "a quotation that does not end");
}

TEST(PhraseTest, NumbersHaveBounds) {
  const auto taken = [](const char* text) {
    Phrase phrase(text);
    const double number = phrase.takeNumber("percent", 0, 100);
    return phrase.complaint() ? -1 : number;
  };
  EXPECT_EQ(taken("0"), 0);
  EXPECT_EQ(taken("79.5"), 79.5);
  EXPECT_EQ(taken("100"), 100);
  EXPECT_EQ(taken("100.1"), -1);
  EXPECT_EQ(taken("-1"), -1);
  EXPECT_EQ(taken("eighty"), -1);
  EXPECT_EQ(taken(""), -1);
}

TEST(PhraseTest, MomentsCountFromTheStart) {
  EXPECT_EQ(momentFrom("00:42"), 42 * 60);
  EXPECT_EQ(momentFrom("00:00:05"), 5);
  EXPECT_EQ(momentFrom("23:59:59"), 86399);
  EXPECT_EQ(momentFrom("1d 02:00:05"), 86400 + 7205);
  EXPECT_EQ(momentFrom("00:42:10.5"), 42 * 60 + 10.5);
  for (const char* wrong :
       {"", "42", "24:00", "00:60", "00:00:60", "0:42", "1d", "xd 00:00", "1.5d 00:00", "00-42",
        "-1d 00:00", "00:42:1", "00:42:10.", "00:42.5", "00:42:10.x", "00:42:10.5.5"}) {
    EXPECT_FALSE(momentFrom(wrong)) << wrong;
  }
  EXPECT_THAT(momentFrom("soon").error(),
              testing::HasSubstr("00:42, 00:42:10, 00:42:10.5 or 1d 02:00:05"));
}

TEST(PhraseTest, DurationsHaveUnits) {
  EXPECT_EQ(durationFrom("5s"), 5);
  EXPECT_EQ(durationFrom("0.5s"), 0.5);
  EXPECT_EQ(durationFrom("90m"), 5400);
  EXPECT_EQ(durationFrom("1h30m"), 5400);
  EXPECT_EQ(durationFrom("2d"), 172800);
  for (const char* wrong : {"", "5", "s", "5x", "5s3", "-5s", "1.s"}) {
    EXPECT_FALSE(durationFrom(wrong)) << wrong;
  }
}

}  // namespace
}  // namespace virtualmac
