#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <string>

#include "SystemHost.h"
#include "SystemVariadicCall.h"
#include "TinMac/System/Numbers.h"

namespace tinmac::test {

namespace {

constexpr std::uint64_t macWriteOnly = 0x1;
constexpr std::uint64_t macCreate = 0x200;
constexpr std::uint64_t macExclusive = 0x800;

class SystemFiles : public testing::Test {
 public:
  ~SystemFiles() override { std::filesystem::remove_all(folder); }

 protected:
  SystemFiles() {
    std::string pattern = testing::TempDir() + "tin-files-XXXXXX";
    folder = ::mkdtemp(pattern.data());
    setMask(022);
  }

  static std::uint32_t setMask(std::uint32_t mask) {
    return bound<std::uint32_t(std::uint32_t)>("_umask")(mask);
  }
  static int open(const std::string& path, std::uint64_t flags, std::uint64_t mode) {
    return static_cast<int>(
        callVariadic(boundAddress("_open"), {slot(path.c_str()), flags, 0x5a5a}, mode));
  }
  static int error() { return *bound<int*()>("___error")(); }
  [[nodiscard]] std::string path(const char* name) const { return folder + "/" + name; }

  TestHost host;
  std::string folder;
};

TEST_F(SystemFiles, OpenTakesTheModeFromTheStackAndWhatIsWrittenIsRead) {
  const int descriptor = open(path("state"), macWriteOnly | macCreate | macExclusive, 0600);
  ASSERT_GE(descriptor, 0);
  const auto write = bound<std::int64_t(int, const void*, std::size_t)>("_write");
  EXPECT_EQ(write(descriptor, "limit", 5), 5);
  EXPECT_EQ(bound<int(int)>("_fsync")(descriptor), 0);
  EXPECT_EQ(bound<int(int)>("_close")(descriptor), 0);

  const int reader = open(path("state"), 0, 0);
  std::array<char, 16> bytes{};
  const auto read = bound<std::int64_t(int, void*, std::size_t)>("_read");
  EXPECT_EQ(read(reader, bytes.data(), bytes.size()), 5);
  EXPECT_STREQ(bytes.data(), "limit");
  MacStat status{};
  EXPECT_EQ(bound<int(int, MacStat*)>("_fstat")(reader, &status), 0);
  EXPECT_EQ(status.mode, 0100600);
  EXPECT_EQ(status.size, 5);
  EXPECT_EQ(bound<int(int)>("_close")(reader), 0);
}

TEST_F(SystemFiles, AFailureLeavesTheMacsErrorAndASuccessLeavesTheSlotAlone) {
  *bound<int*()>("___error")() = 0;
  const auto makeDirectory = bound<int(const char*, unsigned)>("_mkdir");
  EXPECT_EQ(makeDirectory(path("inner").c_str(), 0755), 0);
  EXPECT_EQ(error(), 0);
  EXPECT_EQ(open(path("inner/file"), macWriteOnly | macCreate, 0600) >= 0, true);
  // Not empty: 66 on a Mac, 39 on Linux.
  EXPECT_EQ(makeDirectory(path("full").c_str(), 0755), 0);
  const auto rename = bound<int(const char*, const char*)>("_rename");
  EXPECT_EQ(rename(path("full").c_str(), path("inner").c_str()), -1);
  EXPECT_EQ(error(), 66);
  errno = ENOENT;
  EXPECT_EQ(error(), 66);
  MacStat status{};
  EXPECT_EQ(bound<int(const char*, MacStat*)>("_stat")(folder.c_str(), &status), 0);
  EXPECT_EQ(error(), 66);
}

TEST_F(SystemFiles, TheMaskComesBackAndAppliesToANewFolder) {
  EXPECT_EQ(setMask(077), 022U);
  EXPECT_EQ(setMask(022), 077U);
  EXPECT_EQ(bound<int(const char*, unsigned)>("_mkdir")(path("a").c_str(), 0777), 0);
  EXPECT_EQ(bound<int(const char*, unsigned)>("_chmod")(path("a").c_str(), 0500), 0);
  MacStat status{};
  EXPECT_EQ(bound<int(const char*, MacStat*)>("_stat")(path("a").c_str(), &status), 0);
  EXPECT_EQ(status.mode, 040500);
  EXPECT_EQ(bound<int(const char*)>("_unlink")(path("none").c_str()), -1);
  EXPECT_EQ(error(), 2);
}

}  // namespace

}  // namespace tinmac::test
