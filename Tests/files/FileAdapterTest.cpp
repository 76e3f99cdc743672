// These tests cover effects of the Mac's file adapter on real files that the contract cannot see.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "Tests/files/FilesBelow.h"

namespace virtualmac {
namespace {

class FileAdapterTest : public testing::Test {
 protected:
  void write(const std::string& path, std::string_view text, std::uint32_t mode) {
    const korvel::PosixResult opened = files.openExclusive(path, mode);
    ASSERT_GE(opened.value, 0);
    files.write(static_cast<int>(opened.value), text);
    files.close(static_cast<int>(opened.value));
  }
  /// Reads the permission bits from the disk.
  unsigned modeOf(const std::string& path) {
    struct stat status{};
    EXPECT_EQ(::stat((files.directory() + path).c_str(), &status), 0);
    return status.st_mode & 07777U;
  }

  FilesBelow files;
};

TEST_F(FileAdapterTest, AReplacementKeepsItsOwnModeAndNotTheOldFiles) {
  write("/state", "old", 0600);
  files.chmod("/state", 0644);
  write("/state.tmp", "new", 0600);
  ASSERT_TRUE(files.replaceItem("/state", "/state.tmp"));
  EXPECT_EQ(modeOf("/state"), 0600U);
}

TEST_F(FileAdapterTest, TheMaskNarrowsWhatIsMade) {
  const std::uint32_t before = files.umask(0077);
  write("/file", "x", 0666);
  EXPECT_EQ(files.mkdir("/folder", 0777).value, 0);
  files.umask(before);
  EXPECT_EQ(modeOf("/file"), 0600U);
  EXPECT_EQ(modeOf("/folder"), 0700U);
}

TEST_F(FileAdapterTest, AFailureSaysWhyInThePlatformsWords) {
  const auto failed = files.replaceItem("/state", "/missing");
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.error().domain, "NSPOSIXErrorDomain");
  EXPECT_EQ(failed.error().code, ENOENT);
  EXPECT_EQ(failed.error().localizedDescription(), "No such file or directory");
}

TEST_F(FileAdapterTest, APipeInTheFilesPlaceDoesNotHoldTheReader) {
  ASSERT_EQ(::mkfifo((files.directory() + "/state").c_str(), 0600), 0);
  const auto content = files.readFile("/state");
  ASSERT_FALSE(content);
  EXPECT_EQ(content.error().code, EINVAL);
}

TEST_F(FileAdapterTest, ADirectoryIsNotRead) {
  files.mkdir("/state", 0700);
  const auto content = files.readFile("/state");
  ASSERT_FALSE(content);
  EXPECT_EQ(content.error().code, EISDIR);
}

TEST_F(FileAdapterTest, SixteenMebibytesAreReadAndNotAByteMore) {
  constexpr std::uintmax_t largest = std::uintmax_t{16} << 20U;
  write("/large", "x", 0600);
  std::filesystem::resize_file(files.directory() + "/large", largest);
  const auto whole = files.readFile("/large");
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->size(), largest);
  std::filesystem::resize_file(files.directory() + "/large", largest + 1);
  const auto tooLarge = files.readFile("/large");
  ASSERT_FALSE(tooLarge);
  EXPECT_EQ(tooLarge.error().code, EFBIG);
}

TEST_F(FileAdapterTest, ADanglingLinkIsNoFile) {
  std::filesystem::create_symlink("nowhere", files.directory() + "/link");
  EXPECT_FALSE(files.fileExists("/link"));
  EXPECT_FALSE(files.readFile("/link"));
}

TEST_F(FileAdapterTest, ReadingLeavesNoDescriptorOpen) {
  write("/file", "x", 0600);
  const auto lowestFree = [this] {
    const auto opened = files.openReadOnly("/file").value;
    files.close(static_cast<int>(opened));
    return opened;
  };
  const auto before = lowestFree();
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(files.readFile("/file"));
    EXPECT_FALSE(files.readFile(""));
  }
  EXPECT_EQ(lowestFree(), before);
}

}  // namespace
}  // namespace virtualmac
