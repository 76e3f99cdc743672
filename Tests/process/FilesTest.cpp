#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

namespace {

namespace fs = std::filesystem;

unsigned modeOf(const std::string& path) {
  struct stat facts{};
  EXPECT_EQ(::lstat(path.c_str(), &facts), 0) << path;
  return facts.st_mode & 07777U;
}

/// A machine on whose disk a test puts something before the helper first runs.
class FilesTest : public testing::Test {
 protected:
  FilesTest() { fs::create_directories(mac.supportDirectory()); }
  /// Expects the helper to work and to take a limit.
  void expectService() {
    if (mac.machinePid() == 0) mac.bringUp();
    RawClient client(mac);
    EXPECT_TRUE(succeeded(client.setChargeLimit(60)));
    const auto state = client.getState();
    ASSERT_TRUE(state);
    EXPECT_EQ(state->at("chargeLimit"), 60);
  }
  /// Expects the limit in a plain, private file.
  void expectSaved() {
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(mac.stateFile())));
    EXPECT_EQ(modeOf(mac.stateFile()), 0600U);
    EXPECT_EQ(modeOf(mac.stateDirectory()), 0700U);
    EXPECT_EQ(mac.state().value("chargeLimit", 0), 60);
    EXPECT_FALSE(fs::exists(fs::symlink_status(mac.stateFile() + ".tmp")));
  }
  void expectServiceAndSave() {
    expectService();
    expectSaved();
  }
  void makeDirectory() { fs::create_directory(mac.stateDirectory()); }
  std::string victim() {
    const std::string path = mac.root() + "/victim";
    writeFile(path, "precious");
    return path;
  }

  Mac mac{{.up = false}};
};

}  // namespace

TEST_F(FilesTest, AFileThatTheDriveCannotReadCostsTheRecordAndNothingElse) {
  expectServiceAndSave();
  mac.tell({"fault", "disk-call-fails", "readFile", "5", "on"});
  auto journal = mac.follow();
  mac.tell({"kill"});
  EXPECT_TRUE(journal.waitFor("state.json corrupt"));
  mac.tell({"fault", "disk-call-fails", "readFile", "5", "off"});
  expectServiceAndSave();
}

TEST_F(FilesTest, AFirstRunMakesAPrivateDirectoryAndFile) {
  expectServiceAndSave();
  EXPECT_EQ(mac.journalCount("state.json missing — first run", 1), 1U);
}

TEST_F(FilesTest, AnOpenDirectoryIsTightened) {
  makeDirectory();
  fs::permissions(mac.stateDirectory(), fs::perms::all);
  expectServiceAndSave();
}

TEST_F(FilesTest, ALeftoverTemporaryFileIsReplaced) {
  makeDirectory();
  writeFile(mac.stateFile() + ".tmp", "{\"chargeLimit\":");
  expectServiceAndSave();
}

TEST_F(FilesTest, GarbageReadsAsTheEmptyStateAndIsReplaced) {
  makeDirectory();
  writeFile(mac.stateFile(), "not JSON at all");
  expectServiceAndSave();
  EXPECT_EQ(mac.journalCount("Persistence fault \"state.json corrupt — ", 1), 1U);
}

TEST_F(FilesTest, AHugeFileReadsAsCorrupt) {
  makeDirectory();
  writeFile(mac.stateFile(), "");
  fs::resize_file(mac.stateFile(), std::uintmax_t{1} << 34U);
  expectServiceAndSave();
  EXPECT_EQ(mac.journalCount("state.json corrupt", 1), 1U);
}

// The link is replaced; its target is not touched.
TEST_F(FilesTest, ALinkInTheFilesPlaceIsReplacedAndNotFollowed) {
  makeDirectory();
  const std::string target = victim();
  fs::create_symlink(target, mac.stateFile());
  expectServiceAndSave();
  EXPECT_EQ(readFile(target), "precious");
}

TEST_F(FilesTest, ALinkInTheTemporaryFilesPlaceIsRemovedAndNotFollowed) {
  makeDirectory();
  const std::string target = victim();
  fs::create_symlink(target, mac.stateFile() + ".tmp");
  expectServiceAndSave();
  EXPECT_EQ(readFile(target), "precious");
}

// Reading a FIFO would block for ever.
TEST_F(FilesTest, AFifoInTheFilesPlaceDoesNotHoldTheHelperUp) {
  makeDirectory();
  ASSERT_EQ(::mkfifo(mac.stateFile().c_str(), 0600), 0);
  expectServiceAndSave();
}

// The failure is logged; the limit is enforced all the same.
TEST_F(FilesTest, ADirectoryInTheFilesPlaceIsReportedAndServedWithout) {
  makeDirectory();
  fs::create_directories(mac.stateFile() + "/full");
  mac.bringUp();
  {
    RawClient client(mac);
    EXPECT_TRUE(client.setChargeLimit(60));
    EXPECT_TRUE(client.call("pingWithReply:"));
  }
  EXPECT_GE(mac.journalCount("persistence.write failed: atomic rename failed: ", 1), 1U);
  EXPECT_TRUE(fs::is_directory(mac.stateFile() + "/full"));
  EXPECT_FALSE(fs::exists(mac.stateFile() + ".tmp"));
}

TEST_F(FilesTest, ADirectoryInTheTemporaryFilesPlaceIsReportedAndServedWithout) {
  makeDirectory();
  fs::create_directories(mac.stateFile() + ".tmp/full");
  expectService();
  EXPECT_GE(mac.journalCount("persistence.write failed: write failed: ", 1), 1U);
  EXPECT_FALSE(fs::exists(mac.stateFile()));
}

TEST_F(FilesTest, AFileInTheDirectorysPlaceIsReportedAndServedWithout) {
  writeFile(mac.stateDirectory(), "in the way");
  expectService();
  EXPECT_GE(mac.journalCount("persistence.write failed: ", 1), 1U);
  EXPECT_EQ(readFile(mac.stateDirectory()), "in the way");
}

TEST_F(FilesTest, AMissingParentIsReportedAndServedWithout) {
  expectService();
  fs::remove_all(mac.supportDirectory());
  expectService();
  EXPECT_GE(mac.journalCount("persistence.write failed: mkdir failed: ", 1), 1U);
}

// The machine's fault fails the call before it reaches the real file.
TEST_F(FilesTest, AFullDiskIsReportedAndTheOldFileStays) {
  expectService();
  mac.tell({"fault", "disk-full", "on"});
  RawClient client(mac);
  EXPECT_TRUE(client.setChargeLimit(90));
  EXPECT_GE(mac.journalCount("persistence.write failed: write failed: ", 1), 1U);
  EXPECT_EQ(mac.state().value("chargeLimit", 0), 60);
  mac.tell({"fault", "disk-full", "off"});
  EXPECT_TRUE(succeeded(client.setChargeLimit(70)));
  EXPECT_EQ(mac.state().value("chargeLimit", 0), 70);
}

TEST_F(FilesTest, ShortWritesAreContinued) {
  mac.bringUp();
  mac.tell({"fault", "disk-short-writes", "7", "on"});
  expectServiceAndSave();
}

}  // namespace processtests
