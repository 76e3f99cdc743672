#include <gtest/gtest.h>

#include <filesystem>

#include "Tests/process/Mac.h"

namespace processtests {

namespace {

/// The runs of a machine that was up twice: the first one closed the lid.
class JournalFilesTest : public testing::Test {
 protected:
  JournalFilesTest() {
    EXPECT_EQ(mac.journalCount("KorvelHelper starting", 1), 1U);
    mac.tell({"set", "lid", "closed"});
    mac.tell({"down"});
    mac.tell({"up"});
    mac.tell({"set", "adapter", "off"});
  }
  [[nodiscard]] std::string kept() const { return mac.root() + "/journals/0001.journal"; }

  Mac mac;
};

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

}  // namespace

TEST_F(JournalFilesTest, TheJournalOfTheRunBeforeIsKeptAndCanBeRead) {
  const std::string saved = readFile(kept());
  EXPECT_TRUE(saved.starts_with("# {\"journal\":1,\"run\":\"")) << firstLine(saved);
  EXPECT_NE(firstLine(saved), firstLine(readFile(mac.root() + "/journal")));
  const Result then = mac.command({"journal", "--journal", kept()});
  EXPECT_EQ(then.status, 0) << then.err;
  EXPECT_EQ(then.out, saved.substr(saved.find('\n') + 1));
  EXPECT_NE(then.out.find("mac   lid closed"), std::string::npos);
  EXPECT_EQ(then.out.find("adapter disconnected"), std::string::npos);
  const Result now = mac.command({"journal", "--kinds", "mac"});
  EXPECT_NE(now.out.find("adapter disconnected"), std::string::npos);
  EXPECT_EQ(now.out.find("lid closed"), std::string::npos);
}

TEST_F(JournalFilesTest, ASavedJournalIsFilteredLikeTheMachinesOwn) {
  const Result deeds = mac.command({"journal", "--journal", kept(), "--kinds", "mac"});
  EXPECT_NE(deeds.out.find("lid closed"), std::string::npos);
  EXPECT_EQ(deeds.out.find(" log "), std::string::npos);
  const Result boot = mac.command({"log", "--journal", kept(), "--category", "Boot"});
  EXPECT_NE(boot.out.find("KorvelHelper starting"), std::string::npos);
  EXPECT_EQ(boot.out.find("HelperImpl"), std::string::npos);
  const Result until = mac.command({"--json", "journal", "--journal", kept(), "--until", "closed"});
  EXPECT_EQ(until.status, 0);
  const std::size_t last = until.out.rfind('\n', until.out.size() - 2) + 1;
  EXPECT_EQ(nlohmann::json::parse(until.out.substr(last)).at("text"), "lid closed");
  EXPECT_EQ(mac.command({"journal", "--journal", kept(), "--until", "no such words"}).status, 1);
}

TEST_F(JournalFilesTest, ASavedJournalIsDrawn) {
  const std::string picture = mac.root() + "/saved.svg";
  expectSays(mac.command({"timeline", picture, "--journal", kept()}), 0, {});
  EXPECT_NE(readFile(picture).find("<svg"), std::string::npos);
}

TEST_F(JournalFilesTest, ASavedJournalIsNotFollowed) {
  for (const char* option : {"--follow", "--new"}) {
    expectSays(mac.command({"log", "--journal", kept(), option}), 2, {"--journal", option});
  }
}

TEST_F(JournalFilesTest, AFileThatIsNoJournalIsNamed) {
  const std::string file = mac.root() + "/notes";
  writeFile(file, "no journal\n");
  const std::string picture = mac.root() + "/none.svg";
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"journal"}, {"log"}, {"timeline", picture}}) {
    std::vector<std::string> words = command;
    words.insert(words.end(), {"--journal", file});
    expectSays(mac.command(words), 1, {file + ": holds no line of a journal"});
    words.back() = file + ".none";
    expectSays(mac.command(words), 1, {file + ".none: cannot be read: No such file"});
  }
  EXPECT_FALSE(std::filesystem::exists(picture));
}

TEST_F(JournalFilesTest, AMachineDoesNotBeginOverAJournalThatCannotBeKept) {
  mac.tell({"down"});
  std::filesystem::remove_all(mac.root() + "/journals");
  writeFile(mac.root() + "/journals", "in the way");
  const std::string before = readFile(mac.root() + "/journal");
  expectSays(mac.command({"up"}), 1, {mac.root() + "/journals: the journal of the run before"});
  EXPECT_EQ(readFile(mac.root() + "/journal"), before);
}

}  // namespace processtests
