#include "VirtualMac/Machine/SavedJournal.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {
namespace {

std::expected<SavedJournal, std::string> savedIn(const std::string& text) {
  std::istringstream stream(text);
  return SavedJournal::from(stream, "a.journal");
}

std::string headLine() {
  Journal journal([] { return 0.0; });
  const Machine mac(*loadProfile("desktop"), journal);
  return journalHead(mac, {.run = "0123456789abcdef"}) + '\n';
}

TEST(SavedJournalTest, HasAHeadAndTheEffectsWithTheirLines) {
  const auto saved =
      savedIn(headLine() + "0.000 mac   lid closed\n\nnothing\n12.345 log   A default \"b\"\r\n");
  ASSERT_TRUE(saved) << saved.error();
  ASSERT_TRUE(saved->head);
  EXPECT_EQ(saved->head->profile, "desktop");
  ASSERT_EQ(saved->entries.size(), 2U);
  EXPECT_TRUE(saved->entries[0].tells(EffectID::lidClosed));
  EXPECT_EQ(saved->entries[1].message(), "b");
  EXPECT_EQ(saved->lines, (std::vector<std::size_t>{2, 5}));
}

TEST(SavedJournalTest, APartHasNoHead) {
  const auto saved = savedIn("5.000 mac   lid closed\n" + headLine());
  ASSERT_TRUE(saved) << saved.error();
  EXPECT_FALSE(saved->head);
  EXPECT_EQ(saved->entries.size(), 1U);
}

TEST(SavedJournalTest, AFileThatTellsNothingIsNamed) {
  for (const std::string& text : {std::string(), std::string("hello\n"), headLine()}) {
    const auto saved = savedIn(text);
    ASSERT_FALSE(saved) << text;
    EXPECT_EQ(saved.error(), "a.journal: holds no line of a journal");
  }
}

TEST(SavedJournalTest, AFileThatCannotBeReadIsNamedWithTheReason) {
  const std::string missing = testing::TempDir() + "no-such.journal";
  EXPECT_EQ(SavedJournal::read(missing).error(),
            missing + ": cannot be read: No such file or directory");
  const std::string folder = testing::TempDir();
  EXPECT_EQ(SavedJournal::read(folder).error(), folder + ": cannot be read: it is a directory");
}

}  // namespace
}  // namespace virtualmac
