#include "VirtualMac/Server/JournalArchive.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace virtualmac {
namespace {

namespace fs = std::filesystem;

/// A root directory of a test's own, without a machine.
struct JournalArchiveTest : testing::Test {
  JournalArchiveTest() { fs::create_directories(root.path); }
  ~JournalArchiveTest() override { fs::remove_all(root.path); }

  static void write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
  }
  static std::string read(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
  }
  static std::string run(int number) {
    return "# head\n" + std::to_string(number) + ".000 mac   lid closed\n";
  }
  void keep() const {
    const auto kept = keepJournal(root);
    EXPECT_TRUE(kept) << kept.error();
  }
  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const auto& each : fs::directory_iterator(root.journals()))
      all.push_back(each.path().filename().string());
    std::ranges::sort(all);
    return all;
  }

  RootDirectory root{testing::TempDir() + "journal-archive-" +
                     testing::UnitTest::GetInstance()->current_test_info()->name()};
};

TEST_F(JournalArchiveTest, KeepsTheLastTenInTheOrderOfTheirNumbers) {
  for (int each = 1; each <= 12; ++each) {
    write(root.journal(), run(each));
    keep();
    EXPECT_FALSE(fs::exists(root.journal()));
  }
  const std::vector<std::string> kept = names();
  ASSERT_EQ(kept.size(), 10U);
  EXPECT_EQ(kept.front(), "0003.journal");
  EXPECT_EQ(kept.back(), "0012.journal");
  EXPECT_EQ(read(root.journals() + "/0003.journal"), run(3));
  EXPECT_EQ(read(root.journals() + "/0012.journal"), run(12));
}

TEST_F(JournalArchiveTest, GoesOnAfterTheHighestNumberAndLeavesOtherFilesAlone) {
  fs::create_directories(root.journals());
  write(root.journals() + "/9999.journal", run(1));
  write(root.journals() + "/notes.journal", "mine");
  write(root.journals() + "/12.journal", "mine");
  write(root.journal(), run(2));
  keep();
  EXPECT_EQ(names(), (std::vector<std::string>{"10000.journal", "12.journal", "9999.journal",
                                               "notes.journal"}));
}

TEST_F(JournalArchiveTest, OneThatTellsNothingIsNotKept) {
  keep();
  EXPECT_FALSE(fs::exists(root.journals()));
  write(root.journal(), "# {\"journal\":1}\n");
  keep();
  EXPECT_FALSE(fs::exists(root.journals()));
  EXPECT_TRUE(fs::exists(root.journal()));
}

TEST_F(JournalArchiveTest, WhatCannotBeKeptStaysAndIsNamed) {
  write(root.journal(), run(1));
  write(root.journals(), "a file in the folder's place");
  const auto kept = keepJournal(root);
  ASSERT_FALSE(kept);
  EXPECT_NE(kept.error().find(root.journals() + ": the journal of the run before cannot be kept: "),
            std::string::npos)
      << kept.error();
  EXPECT_EQ(read(root.journal()), run(1));
}

}  // namespace
}  // namespace virtualmac
