#include "VirtualMac/Tools/LogLine.h"

#include <gtest/gtest.h>

namespace virtualmac {
namespace {

struct Form {
  const char* line;
  const char* category;
  const char* level;
};

class EveryForm : public testing::TestWithParam<Form> {};

TEST_P(EveryForm, GivesTheTextAndWhatItSaysOfItsPlace) {
  const PrintedLogLine line = logLineFrom(GetParam().line);
  EXPECT_EQ(line.text, "SMC write CHTE bytes=[1, 0, 0, 0]");
  EXPECT_EQ(line.category, GetParam().category);
  EXPECT_EQ(line.level, GetParam().level);
  EXPECT_EQ(line.otherSource, "");
  EXPECT_FALSE(line.wasCut);
}

INSTANTIATE_TEST_SUITE_P(
    LogLineTest, EveryForm,
    testing::Values(
        Form{"SMC write CHTE bytes=[1, 0, 0, 0]", "", ""},
        Form{"  SMC write CHTE bytes=[1, 0, 0, 0]\r\n", "", ""},
        Form{"SMCWriter: SMC write CHTE bytes=[1, 0, 0, 0]", "SMCWriter", ""},
        Form{"12.500 log   SMCWriter default \"SMC write CHTE bytes=[1, 0, 0, 0]\"", "SMCWriter",
             "default"},
        Form{"SMCWriter default \"SMC write CHTE bytes=[1, 0, 0, 0]\"", "SMCWriter", "default"},
        Form{
            R"({"time":1,"kind":"log","text":"SMCWriter fault \"SMC write CHTE bytes=[1, 0, 0, 0]\""})",
            "SMCWriter", "fault"},
        Form{"2026-11-22 10:52:21.123456+0000 0x1a2b     Default     0x0                  123    0 "
             "   KorvelHelper: [com.korvel.app.helper:SMCWriter] SMC write CHTE bytes=[1, 0, 0, 0]",
             "SMCWriter", "default"},
        Form{"2026-11-22 10:52:21.123456+0000 0x1a2b     Error       0x0                  123    0 "
             "   KorvelHelper: [com.korvel.app.helper:SMCWriter] SMC write CHTE bytes=[1, 0, 0, 0]",
             "SMCWriter", "error"},
        Form{"2026-11-22 10:52:21.123 F  KorvelHelper[123:1a2b] [com.korvel.app.helper:SMCWriter] "
             "SMC write CHTE bytes=[1, 0, 0, 0]",
             "SMCWriter", "fault"},
        Form{"2026-11-22 10:52:21.123 Df KorvelHelper[123:1a2b] [com.korvel.app.helper:SMCWriter] "
             "SMC write CHTE bytes=[1, 0, 0, 0]",
             "SMCWriter", "default"},
        Form{"2026-11-22 10:52:21.123456+0000  localhost KorvelHelper[123] <Error>: "
             "[com.korvel.app.helper:SMCWriter] SMC write CHTE bytes=[1, 0, 0, 0]",
             "SMCWriter", "error"},
        Form{R"({"subsystem":"com.korvel.app.helper","category":"SMCWriter","messageType":"Fault",)"
             R"("eventMessage":"SMC write CHTE bytes=[1, 0, 0, 0]"})",
             "SMCWriter", "fault"}));

TEST(LogLineTest, ALineOfAnotherKindSaysSo) {
  EXPECT_EQ(logLineFrom("1.000 smc   CHTE <- 01 00 00 00").otherSource, "the journal's kind smc");
  EXPECT_EQ(logLineFrom(R"({"time":1,"kind":"mac","text":"lid closed"})").otherSource,
            "the journal's kind mac");
}

TEST(LogLineTest, AMessageThatNamesALevelIsNoFormOfItsOwn) {
  const PrintedLogLine line = logLineFrom("a SMCWriter fault is told");
  EXPECT_EQ(line.text, "a SMCWriter fault is told");
  EXPECT_EQ(line.level, "");
}

TEST(LogLineTest, TheMacsMarkOfACutIsNoText) {
  const PrintedLogLine line = logLineFrom("setChargeLimit(80) pid=12 signi<…>");
  EXPECT_EQ(line.text, "setChargeLimit(80) pid=12 signi");
  EXPECT_TRUE(line.wasCut);
}

TEST(LogLineTest, WhatIsNoJSONIsText) {
  for (const char* line : {"{", "{}", "[1]", R"({"kind":7})", R"({"kind":"log","text":3})"}) {
    EXPECT_FALSE(logLineFrom(line).text.empty() && logLineFrom(line).otherSource.empty()) << line;
  }
}

}  // namespace
}  // namespace virtualmac
