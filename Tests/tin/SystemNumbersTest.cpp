#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "SystemHost.h"
#include "TinMac/System/Numbers.h"

namespace tinmac::test {

namespace {

TEST(SystemNumbers, ErrorsThatDifferAreTranslatedBothWays) {
  EXPECT_EQ(macError(EAGAIN), 35);
  EXPECT_EQ(macError(ELOOP), 62);
  EXPECT_EQ(macError(ENAMETOOLONG), 63);
  EXPECT_EQ(macError(EDEADLK), 11);
  EXPECT_EQ(macError(EOVERFLOW), 84);
  EXPECT_EQ(linuxError(35), EAGAIN);
  EXPECT_EQ(linuxError(45), EOPNOTSUPP);
  EXPECT_EQ(linuxError(13), EACCES);
}

TEST(SystemNumbers, TheTextOfAnErrorIsTheMacs) {
  const auto text = bound<const char*(int)>("_strerror");
  EXPECT_STREQ(text(16), "Resource busy");
  EXPECT_STREQ(text(66), "Directory not empty");
  std::array<char, 8> room{};
  EXPECT_EQ(bound<int(int, char*, std::size_t)>("_strerror_r")(13, room.data(), room.size()), 34);
  EXPECT_STREQ(room.data(), "Permiss");
}

TEST(SystemNumbersDeathTest, AnErrorWithoutCounterpartTraps) {
  EXPECT_DEATH(macError(EKEYEXPIRED), "tin-mac: an error of Linux that the Mac's table lacks: 127");
  EXPECT_DEATH(linuxError(81), "tin-mac: an error of the Mac that the table lacks: 81");
}

TEST(SystemNumbers, FlagsOfOpenAreTranslated) {
  EXPECT_EQ(linuxOpenFlags(0x1 | 0x200 | 0x800), O_WRONLY | O_CREAT | O_EXCL);
  EXPECT_EQ(linuxOpenFlags(0x4 | 0x1000000), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_EQ(linuxOpenFlags(0x2 | 0x8 | 0x400), O_RDWR | O_APPEND | O_TRUNC);
}

TEST(SystemNumbersDeathTest, AFlagOfOpenWithoutCounterpartTraps) {
  EXPECT_DEATH(linuxOpenFlags(0x200000), "tin-mac: flags of open that the table lacks: 2097152");
}

TEST(SystemNumbers, SignalsThatDifferAreTranslatedBothWays) {
  EXPECT_EQ(macSignal(SIGUSR1), 30);
  EXPECT_EQ(macSignal(SIGBUS), 10);
  EXPECT_EQ(linuxSignal(20), SIGCHLD);
  EXPECT_EQ(linuxSignal(15), SIGTERM);
}

TEST(SystemNumbersDeathTest, ASignalWithoutCounterpartTraps) {
  EXPECT_DEATH(linuxSignal(29), "tin-mac: a signal of the Mac that Linux lacks: 29");
}

TEST(SystemNumbers, EveryFactOfAFileHasItsPlace) {
  struct stat facts{};
  facts.st_dev = makedev(8, 3);
  facts.st_mode = 0100644;
  facts.st_nlink = 2;
  facts.st_ino = 0x123456789aULL;
  facts.st_uid = 501;
  facts.st_gid = 20;
  facts.st_rdev = makedev(1, 5);
  facts.st_atim = {.tv_sec = 11, .tv_nsec = 1};
  facts.st_mtim = {.tv_sec = 12, .tv_nsec = 2};
  facts.st_ctim = {.tv_sec = 13, .tv_nsec = 3};
  facts.st_size = 4097;
  facts.st_blocks = 16;
  facts.st_blksize = 4096;
  const MacStat status = macStat(facts);
  std::array<std::uint64_t, 18> words{};
  std::memcpy(words.data(), &status, sizeof(status));
  const std::array<std::uint64_t, 18> expected = {0x000281a4'08000003,
                                                  0x123456789a,
                                                  0x00000014'000001f5,
                                                  0x01000005,
                                                  11,
                                                  1,
                                                  12,
                                                  2,
                                                  13,
                                                  3,
                                                  13,
                                                  3,
                                                  4097,
                                                  16,
                                                  4096,
                                                  0,
                                                  0,
                                                  0};
  EXPECT_EQ(words, expected);
}

TEST(SystemNumbersDeathTest, AFactThatDoesNotFitTraps) {
  struct stat facts{};
  facts.st_nlink = 65536;
  EXPECT_DEATH(macStat(facts), "does not fit the Mac's structure: st_nlink: 65536");
}

}  // namespace

}  // namespace tinmac::test
