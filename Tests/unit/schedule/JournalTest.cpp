#include "VirtualMac/Schedule/Journal.h"

#include <gtest/gtest.h>

namespace virtualmac {
namespace {

TEST(JournalTest, ALineIsTimePaddedKindAndText) {
  EXPECT_EQ(journalLine({12.345, "smc", "CHTE <- 01 00 00 00"}),
            "12.345 smc   CHTE <- 01 00 00 00");
  EXPECT_EQ(journalLine({0, "reply", "ping 1"}), "0.000 reply ping 1");
  EXPECT_EQ(journalLine({0.0005, "x", "rounds up"}), "0.001 x     rounds up");
  EXPECT_EQ(journalLine({86400 * 400.0, "mac", "far"}), "34560000.000 mac   far");
}

TEST(JournalTest, ATextOfSeveralLinesIsWrittenAsOne) {
  EXPECT_EQ(journalLine({1, "log", std::string("a\nb\r\tc\0d\x1f", 9) + "\x7f\xc3\xa9"}),
            "1.000 log   a b  c d \x7f\xc3\xa9");
  Journal journal([] { return 0.0; });
  journal.record("log", "one\n0.000 proc  two");
  EXPECT_EQ(journal.text(), "0.000 log   one 0.000 proc  two\n");
}

TEST(JournalTest, ATextThatBeginsWithASpaceComesBackFromItsLine) {
  for (const char* kind : {"mac", "reply", "notices"}) {
    for (const char* text : {"one", " one", "     one", " ", ""}) {
      const auto told = journalEntryFrom(journalLine({1, kind, text}));
      ASSERT_TRUE(told);
      EXPECT_EQ(told->kind, kind);
      EXPECT_EQ(told->text, text);
    }
  }
  EXPECT_EQ(journalEntryFrom("1.000 mac one")->text, "one") << "a kind without its padding";
}

TEST(JournalTest, ATimeThatNoJournalWritesIsNoLine) {
  EXPECT_EQ(journalEntryFrom("9007199254739.999 mac   far")->time, 9007199254739.999);
  for (const char* time : {"9007199254740.000", "9223372036854775.807", "9223372036854775807.000",
                           "18446744073709551616.000", "-1.500", "-1.-50", "1.-50", "1.+50", ".500",
                           "1.5", "1.5000", "1e3.000"}) {
    EXPECT_FALSE(journalEntryFrom(std::string(time) + " mac   never")) << time;
  }
}

TEST(JournalTest, TextHoldsAllLinesOrThoseOfSomeKinds) {
  double now = 0;
  Journal journal([&now] { return now; });
  journal.record("smc", "one");
  now = 1.5;
  journal.record("log", "two");
  journal.record("disk", "three");
  EXPECT_EQ(journal.text(), "0.000 smc   one\n1.500 log   two\n1.500 disk  three\n");
  EXPECT_EQ(journal.text("smc disk"), "0.000 smc   one\n1.500 disk  three\n");
  EXPECT_EQ(journal.text("sm"), "");
}

TEST(JournalTest, TheHashIsOfTheLinesAndGoesOnOverClear) {
  const auto hashOf = [](bool keep, bool clear, const char* last) {
    Journal journal([] { return 0.0; });
    journal.keepEntries(keep);
    journal.record("smc", "one");
    if (clear) journal.clear();
    journal.record("smc", last);
    return journal.hash();
  };
  EXPECT_EQ(hashOf(true, false, "two"), hashOf(false, true, "two"));
  EXPECT_NE(hashOf(true, false, "two"), hashOf(true, false, "three"));
}

TEST(JournalTest, AnEmptyJournalHasTheOffsetBasis) {
  EXPECT_EQ(Journal([] { return 0.0; }).hash(), 14695981039346656037ULL);
}

TEST(JournalTest, ListenersSeeEveryEntryAlsoUnkeptOnes) {
  Journal journal([] { return 2.0; });
  journal.keepEntries(false);
  std::string seen;
  journal.addListener([&seen](const Journal::Entry& entry) { seen += journalLine(entry); });
  journal.record("mac", "lid closed");
  EXPECT_EQ(seen, "2.000 mac   lid closed");
  EXPECT_TRUE(journal.entries().empty());
}

}  // namespace
}  // namespace virtualmac
