#include <cerrno>

#include "Platform/FileSystem.h"
#include "SeamContract.h"

namespace virtualmac {
namespace {

constexpr const char* folder = "/Library/Application Support/contract";
const std::string file = std::string(folder) + "/a.txt";
const std::string other = std::string(folder) + "/b.txt";

/// Makes the folder and any missing parent.
void makeFolder(korvel::FileSystem& files) {
  files.mkdir("/Library", 0755);
  files.mkdir("/Library/Application Support", 0755);
  ASSERT_EQ(files.mkdir(folder, 0700).value, 0);
}

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

TEST_P(FileSystemContract, ADirectoryIsMadeOnce) {
  makeFolder(platform().files);
  EXPECT_TRUE(platform().files.fileExists(folder));
  expectFailure(platform().files.mkdir(folder, 0700), EEXIST);
  expectFailure(platform().files.mkdir("/no/such/parent", 0700), ENOENT);
}

TEST_P(FileSystemContract, WhatIsWrittenIsRead) {
  makeFolder(platform().files);
  EXPECT_FALSE(platform().files.fileExists(file));
  write(platform().files, file, "hello");
  EXPECT_TRUE(platform().files.fileExists(file));
  EXPECT_EQ(platform().files.readFile(file), "hello");
}

TEST_P(FileSystemContract, AnExclusiveOpenFailsWhenTheFileIsThere) {
  makeFolder(platform().files);
  write(platform().files, file, "x");
  expectFailure(platform().files.openExclusive(file, 0600), EEXIST);
  expectFailure(platform().files.openExclusive("/no/such/folder/x", 0600), ENOENT);
}

TEST_P(FileSystemContract, AReadOnlyOpenNeedsTheFileAndTakesNoWrites) {
  makeFolder(platform().files);
  expectFailure(platform().files.openReadOnly(file), ENOENT);
  write(platform().files, file, "x");
  const int descriptor = static_cast<int>(platform().files.openReadOnly(file).value);
  ASSERT_GE(descriptor, 0);
  expectFailure(platform().files.write(descriptor, std::string_view("y")), EBADF);
  EXPECT_EQ(platform().files.close(descriptor).value, 0);
}

TEST_P(FileSystemContract, ADirectoryOpensForReadingAndSyncs) {
  makeFolder(platform().files);
  const int descriptor = static_cast<int>(platform().files.openReadOnly(folder).value);
  ASSERT_GE(descriptor, 0);
  EXPECT_EQ(platform().files.fsync(descriptor).value, 0);
  EXPECT_EQ(platform().files.close(descriptor).value, 0);
}

TEST_P(FileSystemContract, AClosedDescriptorIsNone) {
  makeFolder(platform().files);
  const int descriptor = static_cast<int>(platform().files.openExclusive(file, 0600).value);
  ASSERT_GE(descriptor, 0);
  ASSERT_EQ(platform().files.close(descriptor).value, 0);
  expectFailure(platform().files.close(descriptor), EBADF);
  expectFailure(platform().files.fsync(descriptor), EBADF);
}

TEST_P(FileSystemContract, UmaskGivesTheOldMask) {
  const std::uint32_t before = platform().files.umask(0077);
  EXPECT_EQ(platform().files.umask(before), 0077U);
}

TEST_P(FileSystemContract, ModesCanBeChangedOfWhatIsThere) {
  makeFolder(platform().files);
  write(platform().files, file, "x");
  EXPECT_EQ(platform().files.chmod(file, 0600).value, 0);
  expectFailure(platform().files.chmod(other, 0600), ENOENT);
}

TEST_P(FileSystemContract, UnlinkRemovesOnce) {
  makeFolder(platform().files);
  write(platform().files, file, "x");
  EXPECT_EQ(platform().files.unlink(file).value, 0);
  EXPECT_FALSE(platform().files.fileExists(file));
  expectFailure(platform().files.unlink(file), ENOENT);
}

TEST_P(FileSystemContract, AReplacementTakesThePlaceOfTheOriginal) {
  makeFolder(platform().files);
  write(platform().files, file, "old");
  write(platform().files, other, "new");
  EXPECT_TRUE(platform().files.replaceItem(file, other));
  EXPECT_EQ(platform().files.readFile(file), "new");
  EXPECT_FALSE(platform().files.fileExists(other));
}

TEST_P(FileSystemContract, AReplacementNeedsNoOriginal) {
  makeFolder(platform().files);
  write(platform().files, other, "new");
  EXPECT_TRUE(platform().files.replaceItem(file, other));
  EXPECT_EQ(platform().files.readFile(file), "new");
}

TEST_P(FileSystemContract, AFailedReplacementLeavesTheOriginal) {
  makeFolder(platform().files);
  write(platform().files, file, "old");
  EXPECT_FALSE(platform().files.replaceItem(file, other));
  EXPECT_EQ(platform().files.readFile(file), "old");
}

TEST_P(FileSystemContract, OnlyPlainFilesAreRead) {
  makeFolder(platform().files);
  const auto missing = platform().files.readFile(file);
  ASSERT_FALSE(missing);
  EXPECT_FALSE(missing.error().localizedDescription().empty());
  EXPECT_FALSE(platform().files.readFile(folder));
}

}  // namespace virtualmac
