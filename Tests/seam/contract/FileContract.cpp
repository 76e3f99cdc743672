#include <cerrno>

#include "Platform/FileSystem.h"
#include "SeamContract.h"

namespace virtualmac {
namespace {

constexpr const char* folder = "/Library/Application Support/contract";
const std::string file = std::string(folder) + "/a.txt";
const std::string other = std::string(folder) + "/b.txt";

void write(korvel::FileSystem& files, const std::string& path, std::string_view text,
           std::uint32_t mode = 0600) {
  const korvel::PosixResult opened = files.openExclusive(path, mode);
  ASSERT_GE(opened.value, 0) << path << ": errno " << opened.error;
  const int descriptor = static_cast<int>(opened.value);
  EXPECT_EQ(files.write(descriptor, text).value, static_cast<std::int64_t>(text.size()));
  EXPECT_EQ(files.fsync(descriptor).value, 0);
  EXPECT_EQ(files.close(descriptor).value, 0);
}

void expectFailure(const korvel::PosixResult& result, int error) {
  EXPECT_EQ(result.value, -1);
  EXPECT_EQ(result.error, error);
}

}  // namespace

void FileSystemContract::SetUp() {
  files.mkdir("/Library", 0755);
  files.mkdir("/Library/Application Support", 0755);
  ASSERT_EQ(files.mkdir(folder, 0700).value, 0);
}

TEST_P(FileSystemContract, ADirectoryIsMadeOnce) {
  EXPECT_TRUE(files.fileExists(folder));
  expectFailure(files.mkdir(folder, 0700), EEXIST);
  expectFailure(files.mkdir("/no/such/parent", 0700), ENOENT);
}

TEST_P(FileSystemContract, WhatIsWrittenIsRead) {
  EXPECT_FALSE(files.fileExists(file));
  write(files, file, "hello");
  EXPECT_TRUE(files.fileExists(file));
  EXPECT_EQ(files.readFile(file), "hello");
}

TEST_P(FileSystemContract, AnExclusiveOpenFailsWhenTheFileIsThere) {
  write(files, file, "x");
  expectFailure(files.openExclusive(file, 0600), EEXIST);
  expectFailure(files.openExclusive("/no/such/folder/x", 0600), ENOENT);
}

TEST_P(FileSystemContract, AReadOnlyOpenNeedsTheFileAndTakesNoWrites) {
  expectFailure(files.openReadOnly(file), ENOENT);
  write(files, file, "x");
  const int descriptor = static_cast<int>(files.openReadOnly(file).value);
  ASSERT_GE(descriptor, 0);
  expectFailure(files.write(descriptor, std::string_view("y")), EBADF);
  EXPECT_EQ(files.close(descriptor).value, 0);
}

TEST_P(FileSystemContract, ADirectoryOpensForReadingAndSyncs) {
  const int descriptor = static_cast<int>(files.openReadOnly(folder).value);
  ASSERT_GE(descriptor, 0);
  EXPECT_EQ(files.fsync(descriptor).value, 0);
  EXPECT_EQ(files.close(descriptor).value, 0);
}

TEST_P(FileSystemContract, AClosedDescriptorIsNone) {
  const int descriptor = static_cast<int>(files.openExclusive(file, 0600).value);
  ASSERT_GE(descriptor, 0);
  ASSERT_EQ(files.close(descriptor).value, 0);
  expectFailure(files.close(descriptor), EBADF);
  expectFailure(files.fsync(descriptor), EBADF);
}

TEST_P(FileSystemContract, UmaskGivesTheOldMask) {
  const std::uint32_t before = files.umask(0077);
  EXPECT_EQ(files.umask(before), 0077U);
}

TEST_P(FileSystemContract, ModesCanBeChangedOfWhatIsThere) {
  write(files, file, "x");
  EXPECT_EQ(files.chmod(file, 0600).value, 0);
  expectFailure(files.chmod(other, 0600), ENOENT);
}

TEST_P(FileSystemContract, UnlinkRemovesOnce) {
  write(files, file, "x");
  EXPECT_EQ(files.unlink(file).value, 0);
  EXPECT_FALSE(files.fileExists(file));
  expectFailure(files.unlink(file), ENOENT);
}

TEST_P(FileSystemContract, AReplacementTakesThePlaceOfTheOriginal) {
  write(files, file, "old");
  write(files, other, "new");
  EXPECT_TRUE(files.replaceItem(file, other));
  EXPECT_EQ(files.readFile(file), "new");
  EXPECT_FALSE(files.fileExists(other));
}

TEST_P(FileSystemContract, AReplacementNeedsNoOriginal) {
  write(files, other, "new");
  EXPECT_TRUE(files.replaceItem(file, other));
  EXPECT_EQ(files.readFile(file), "new");
}

TEST_P(FileSystemContract, AFailedReplacementLeavesTheOriginal) {
  write(files, file, "old");
  EXPECT_FALSE(files.replaceItem(file, other));
  EXPECT_EQ(files.readFile(file), "old");
}

TEST_P(FileSystemContract, OnlyPlainFilesAreRead) {
  const auto missing = files.readFile(file);
  ASSERT_FALSE(missing);
  EXPECT_FALSE(missing.error().localizedDescription().empty());
  EXPECT_FALSE(files.readFile(folder));
}

}  // namespace virtualmac
