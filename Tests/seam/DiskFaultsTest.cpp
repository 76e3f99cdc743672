#include "DiskFaults.h"

#include <cerrno>

#include "Platform/FileSystem.h"
#include "VirtualMac/Machine/Faults.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {
namespace {

constexpr const char* folder = "/faulty";
constexpr const char* file = "/faulty/a.txt";
constexpr const char* missing = "/faulty/b.txt";

void expectFailure(const korvel::PosixResult& result, int error) {
  EXPECT_EQ(result.value, -1);
  EXPECT_EQ(result.error, error);
}

void makeFile(korvel::FileSystem& files) {
  ASSERT_EQ(files.mkdir(folder, 0700).value, 0);
  const korvel::PosixResult opened = files.openExclusive(file, 0600);
  ASSERT_GE(opened.value, 0) << opened.error;
  EXPECT_EQ(files.close(static_cast<int>(opened.value)).value, 0);
}

void switchFault(SeamRig& rig, std::string_view line, bool on) {
  rig.machine([&](Machine& mac) { EXPECT_TRUE(setFault(mac, line, on).has_value()) << line; });
}

}  // namespace

TEST_P(DiskFaults, AReadOnlyDiskMakesAndRemovesNothing) {
  korvel::FileSystem& files = platform().files;
  makeFile(files);
  switchFault(*rig, "disk-readonly", true);
  expectFailure(files.mkdir("/other", 0700), EROFS);
  expectFailure(files.mkdir(folder, 0700), EEXIST);
  expectFailure(files.unlink(file), EROFS);
  expectFailure(files.unlink(missing), ENOENT);
  EXPECT_TRUE(files.fileExists(file));
  switchFault(*rig, "disk-readonly", false);
  EXPECT_EQ(files.unlink(file).value, 0);
  EXPECT_EQ(files.mkdir("/other", 0700).value, 0);
}

TEST_P(DiskFaults, AFullDiskMakesNoDirectoryButRemovesFiles) {
  korvel::FileSystem& files = platform().files;
  makeFile(files);
  switchFault(*rig, "disk-full", true);
  expectFailure(files.mkdir("/other", 0700), ENOSPC);
  expectFailure(files.mkdir(folder, 0700), EEXIST);
  EXPECT_EQ(files.unlink(file).value, 0);
}

TEST_P(DiskFaults, AFailingLookSaysThatNothingIsThere) {
  korvel::FileSystem& files = platform().files;
  makeFile(files);
  switchFault(*rig, "disk-call-fails fileExists 5", true);
  EXPECT_FALSE(files.fileExists(file));
  switchFault(*rig, "disk-call-fails fileExists", false);
  EXPECT_TRUE(files.fileExists(file));
}

}  // namespace virtualmac
