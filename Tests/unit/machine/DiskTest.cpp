#include <gtest/gtest.h>

#include <cerrno>

#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

constexpr const char* directory = "/Library/Application Support/com.korvel.app.helper";
const std::string state = std::string(directory) + "/state.json";
const std::string temporary = state + ".tmp";

struct DiskTest : OnBench {
  /// Writes a file as the helper does, without its checks.
  void replace(const std::string& content) {
    files.mkdir(directory, 0700);
    const int descriptor = static_cast<int>(files.openExclusive(temporary, 0600).value);
    ASSERT_GE(descriptor, 0);
    ASSERT_EQ(files.write(descriptor, content).value, static_cast<std::int64_t>(content.size()));
    ASSERT_EQ(files.fsync(descriptor).value, 0);
    ASSERT_EQ(files.close(descriptor).value, 0);
    ASSERT_TRUE(files.replaceItem(state, temporary).has_value());
  }

  Disk& disk = mac.disk;
  FilesClient& files = helper->files;
};

TEST_F(DiskTest, AReplacedFileHasContentAndModeOfTheNewOne) {
  disk.writeFile(state, "old", 0644);
  replace("new");
  EXPECT_EQ(disk.content(state), "new");
  EXPECT_EQ(disk.facts(state)->mode, 0600U);
  EXPECT_EQ(disk.list(directory), std::vector<std::string>{"state.json"});
  EXPECT_EQ(files.openDescriptors(), 0U);
}

TEST_F(DiskTest, ModesAreMaskedAndTheOldMaskComesBack) {
  EXPECT_EQ(files.umask(077), 022U);
  files.mkdir(directory, 0777);
  EXPECT_EQ(disk.facts(directory)->mode, 0700U);
  EXPECT_EQ(files.umask(022), 077U);
  EXPECT_EQ(files.chmod(directory, 0751).value, 0);
  EXPECT_EQ(disk.facts(directory)->mode, 0751U);
}

TEST_F(DiskTest, MkdirToldWhatIsInTheWay) {
  EXPECT_EQ(files.mkdir(directory, 0700).value, 0);
  EXPECT_EQ(files.mkdir(directory, 0700).error, EEXIST);
  EXPECT_EQ(files.mkdir("/nowhere/below", 0700).error, ENOENT);
  disk.writeFile("/file", "x");
  EXPECT_EQ(files.mkdir("/file/below", 0700).error, ENOTDIR);
}

TEST_F(DiskTest, ExclusiveOpenRefusesWhateverIsThere) {
  disk.writeFile(temporary, "stale");
  EXPECT_EQ(files.openExclusive(temporary, 0600).error, EEXIST);
  disk.makeSymlink(temporary, "/elsewhere");
  EXPECT_EQ(files.openExclusive(temporary, 0600).error, EEXIST) << "links are not followed";
  EXPECT_FALSE(disk.facts("/elsewhere").has_value());
}

TEST_F(DiskTest, DescriptorsAreTheLowestFreeFromThree) {
  disk.makeDirectory(directory);
  EXPECT_EQ(files.openReadOnly(directory).value, 3);
  EXPECT_EQ(files.openReadOnly(directory).value, 4);
  EXPECT_EQ(files.close(3).value, 0);
  EXPECT_EQ(files.openReadOnly(directory).value, 3);
  EXPECT_EQ(files.close(9).error, EBADF);
  EXPECT_EQ(files.fsync(9).error, EBADF);
  const std::string byte = "x";
  EXPECT_EQ(files.write(3, byte).error, EBADF) << "opened for reading only";
}

TEST_F(DiskTest, UnlinkRemovesLinksAndNotDirectories) {
  disk.writeFile("/target", "x");
  disk.makeSymlink(temporary, "/target");
  EXPECT_EQ(files.unlink(temporary).value, 0);
  EXPECT_TRUE(disk.facts("/target").has_value());
  EXPECT_EQ(files.unlink(temporary).error, ENOENT);
  disk.makeDirectory(temporary);
  EXPECT_EQ(files.unlink(temporary).error, EPERM);
}

TEST_F(DiskTest, ReadingFollowsLinksAndRefusesAllButPlainFiles) {
  disk.writeFile("/target", "content");
  disk.makeSymlink(state, "/target");
  EXPECT_EQ(files.readFile(state), "content");
  disk.makeSymlink(state, "state.json");
  EXPECT_FALSE(files.readFile(state).has_value()) << "a link to itself";
  EXPECT_FALSE(files.fileExists(state));
  disk.makeFifo(state);
  EXPECT_TRUE(files.fileExists(state));
  EXPECT_EQ(files.readFile(state).error().code, 256);
  disk.makeDirectory(state);
  EXPECT_EQ(files.readFile(state).error().code, 256);
  disk.makeHugeFile(state);
  EXPECT_EQ(files.readFile(state).error().code, 263);
  EXPECT_EQ(files.readFile("/nothing").error().code, 260);
}

TEST_F(DiskTest, ReplacingTakesAnyFileButNoDirectory) {
  disk.makeSymlink(state, "/target");
  disk.writeFile("/target", "kept");
  replace("new");
  EXPECT_EQ(disk.facts(state)->kind, FileKind::Plain);
  EXPECT_EQ(disk.content("/target"), "kept");
  disk.makeFifo(state);
  replace("newer");
  EXPECT_EQ(disk.content(state), "newer");
  disk.makeDirectory(state);
  disk.writeFile(temporary, "newest");
  EXPECT_FALSE(files.replaceItem(state, temporary).has_value());
  EXPECT_EQ(disk.content(temporary), "newest");
  EXPECT_EQ(files.replaceItem(state, "/nothing").error().code, 4);
}

TEST_F(DiskTest, AFullDiskTakesNoBytes) {
  files.mkdir(directory, 0700);
  const int descriptor = static_cast<int>(files.openExclusive(temporary, 0600).value);
  fault("disk-full");
  EXPECT_EQ(files.write(descriptor, std::string("bytes")).error, ENOSPC);
  EXPECT_EQ(files.mkdir("/other", 0700).error, ENOSPC);
  fault("disk-full", false);
  EXPECT_EQ(files.write(descriptor, std::string("bytes")).value, 5);
}

TEST_F(DiskTest, AReadOnlyDiskReadsButChangesNothing) {
  disk.writeFile(state, "kept");
  fault("disk-readonly");
  EXPECT_EQ(files.mkdir("/other", 0700).error, EROFS);
  EXPECT_EQ(files.mkdir(directory, 0700).error, EEXIST);
  EXPECT_EQ(files.chmod(directory, 0700).error, EROFS);
  EXPECT_EQ(files.openExclusive(temporary, 0600).error, EROFS);
  EXPECT_EQ(files.unlink(state).error, EROFS);
  EXPECT_FALSE(files.replaceItem(state, temporary).has_value());
  EXPECT_EQ(files.readFile(state), "kept");
}

TEST_F(DiskTest, AnyCallFailsOnDemand) {
  disk.makeDirectory(directory);
  fault("disk-call-fails fsync 5");
  const int descriptor = static_cast<int>(files.openReadOnly(directory).value);
  EXPECT_EQ(files.fsync(descriptor).error, EIO);
  EXPECT_EQ(files.fsync(descriptor).value, -1);
  fault("disk-call-fails fsync", false);
  EXPECT_EQ(files.fsync(descriptor).value, 0);
  fault("disk-call-fails close 4");
  EXPECT_EQ(files.close(descriptor).error, EINTR);
  EXPECT_EQ(files.openDescriptors(), 0U) << "closed all the same";
}

TEST_F(DiskTest, ShortWritesTakeAFewBytesAtATime) {
  disk.makeDirectory(directory);
  fault("disk-short-writes 3");
  const int descriptor = static_cast<int>(files.openExclusive(temporary, 0600).value);
  EXPECT_EQ(files.write(descriptor, std::string("abcde")).value, 3);
  EXPECT_EQ(files.write(descriptor, std::string("de")).value, 2);
  EXPECT_EQ(disk.content(temporary), "abcde");
}

TEST_F(DiskTest, TheJournalTellsWhichFieldsDiffer) {
  replace(R"({"chargeLimit": 80, "helperVersion": "2.0.0"})");
  replace(R"({"chargeLimit": 75, "helperVersion": "2.0.0", "reason": "too warm"})");
  replace(R"({"chargeLimit": 75, "helperVersion": "2.0.0"})");
  replace(R"({"helperVersion": "2.0.0", "chargeLimit": 75})");
  replace("garbage");
  EXPECT_EQ(takeLines("disk"),
            "0.000 disk  state.json created: chargeLimit=80 helperVersion=2.0.0\n"
            "0.000 disk  state.json replaced: chargeLimit=75 reason=\"too warm\"\n"
            "0.000 disk  state.json replaced: reason gone\n"
            "0.000 disk  state.json replaced: no field differs\n"
            "0.000 disk  state.json replaced: 7 bytes\n");
  files.unlink(state);
  EXPECT_EQ(takeLines("disk"), "0.000 disk  state.json removed\n");
}

}  // namespace
}  // namespace virtualmac
