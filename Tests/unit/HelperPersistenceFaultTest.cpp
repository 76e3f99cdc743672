// Every step of a write fails in turn.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "Tests/unit/SampleStates.h"
#include "Tests/unit/StoreBench.h"

namespace korvel {
namespace {

using test::directory;
using test::fullState;
using test::statePath;
using test::temporaryPath;
using testing::StartsWith;
using virtualmac::SeamCall;
using Error = HelperPersistence::PersistenceError;

const std::string oldRecord = "the record before";
constexpr std::uint32_t oldMask = 0027;

// The texts of the numbers, as every system of ours says them.
const std::vector<std::pair<int, std::string>> errnos = {
    {EPERM, "Operation not permitted"}, {EIO, "Input/output error"},
    {EACCES, "Permission denied"},      {ENOTDIR, "Not a directory"},
    {EMFILE, "Too many open files"},    {EROFS, "Read-only file system"},
    {ENOSPC, "No space left on device"}};

struct Bench : test::StoreBench {
  Bench() {
    process.umask(oldMask);
    disk.makeDirectory(directory, 0755);
    disk.writeFile(statePath, oldRecord, 0600);
    disk.writeFile(temporaryPath, "left over", 0600);
  }
  Error failedWrite() {
    auto result = store.write(fullState());
    EXPECT_FALSE(result);
    EXPECT_EQ(process.currentUmask(), oldMask) << "the file mask must be restored";
    EXPECT_EQ(process.openDescriptors(), 0U) << "a descriptor leaked";
    return result ? Error{} : result.error();
  }
  [[nodiscard]] bool keepsOldRecord() const { return content(statePath) == oldRecord; }
};

void expectPosix(const Error& error, Error::Kind kind, int number, const std::string& prefix) {
  EXPECT_EQ(error.kind, kind);
  EXPECT_EQ(error.underlying.domain, "NSPOSIXErrorDomain");
  EXPECT_EQ(error.underlying.code, number);
  EXPECT_THAT(error.description(), StartsWith(prefix + error.underlying.localizedDescription()));
}

TEST(PersistenceFaultTest, PosixErrorsSayWhatTheSystemSays) {
  for (const auto& [number, text] : errnos) {
    Bench bench;
    bench.fail(SeamCall::fileMkdir, 1, number);
    const Error error = bench.failedWrite();
    EXPECT_EQ(error.underlying.localizedDescription(), text);
    EXPECT_EQ(error.description(),
              "mkdir failed: " + text + " [NSPOSIXErrorDomain " + std::to_string(number) + "]");
  }
}

TEST(PersistenceFaultTest, AnyFailureOfMakingTheDirectoryButItsExistenceEndsTheWrite) {
  for (const auto& [number, text] : errnos) {
    Bench bench;
    bench.fail(SeamCall::fileMkdir, 1, number);
    expectPosix(bench.failedWrite(), Error::Kind::DirectoryCreate, number, "mkdir failed: ");
    EXPECT_THAT(bench.mac.names(), testing::ElementsAre("umask", "mkdir", "umask"));
    EXPECT_TRUE(bench.keepsOldRecord());
  }
}

TEST(PersistenceFaultTest, ADirectoryThatCannotBeTightenedEndsTheWrite) {
  for (const auto& [number, text] : errnos) {
    Bench bench;
    bench.fail(SeamCall::fileChmod, 1, number);
    expectPosix(bench.failedWrite(), Error::Kind::DirectoryCreate, number, "mkdir failed: ");
    EXPECT_EQ(bench.mac.names().back(), "umask");
    EXPECT_TRUE(bench.keepsOldRecord());
  }
}

TEST(PersistenceFaultTest, ALeftOverThatCannotBeRemovedEndsTheWrite) {
  for (const auto& [number, text] : errnos) {
    Bench bench;
    bench.fail(SeamCall::fileUnlink, 1, number);
    expectPosix(bench.failedWrite(), Error::Kind::Write, number, "write failed: ");
    EXPECT_THAT(bench.mac.names(), testing::Not(testing::Contains("openExclusive")));
    EXPECT_TRUE(bench.keepsOldRecord());
  }
}

TEST(PersistenceFaultTest, AMissingLeftOverIsNoFailure) {
  Bench bench;
  bench.fail(SeamCall::fileUnlink, 1, ENOENT);
  bench.disk.remove(temporaryPath);
  EXPECT_TRUE(bench.store.write(fullState()));
}

TEST(PersistenceFaultTest, ATemporaryFileThatCannotBeMadeEndsTheWrite) {
  for (const int number : {EEXIST, EACCES, EMFILE, ENFILE, ENOSPC, EROFS, EINTR, EDQUOT}) {
    Bench bench;
    bench.fail(SeamCall::fileOpenExclusive, 1, number);
    expectPosix(bench.failedWrite(), Error::Kind::Write, number, "write failed: ");
    EXPECT_TRUE(bench.keepsOldRecord());
  }
}

TEST(PersistenceFaultTest, AFailedWriteRemovesTheTemporaryFile) {
  for (const int number : {EIO, ENOSPC, EDQUOT, EBADF, EFBIG, EAGAIN}) {
    for (const std::size_t before : {0U, 1U, 3U}) {
      Bench bench;
      bench.files.writes.assign(before, {7, 0});
      bench.files.writes.push_back({-1, number});
      expectPosix(bench.failedWrite(), Error::Kind::Write, number, "write failed: ");
      EXPECT_FALSE(bench.exists(temporaryPath));
      EXPECT_TRUE(bench.keepsOldRecord());
      EXPECT_THAT(bench.mac.names(), testing::Not(testing::Contains("fsync")));
    }
  }
}

TEST(PersistenceFaultTest, AWriteOfNothingIsAFailure) {
  Bench bench;
  bench.files.writes = {{7, 0}, {0, 0}};
  EXPECT_EQ(bench.failedWrite().kind, Error::Kind::Write);
  EXPECT_FALSE(bench.exists(temporaryPath));
  EXPECT_TRUE(bench.keepsOldRecord());
}

TEST(PersistenceFaultTest, OnlyMinusOneWithEINTRIsAnInterruption) {
  Bench bench;
  bench.files.writes = {{-2, EINTR}};
  EXPECT_EQ(bench.failedWrite().kind, Error::Kind::Write);
  Bench other;
  other.files.writes = {{0, EINTR}};
  EXPECT_EQ(other.failedWrite().kind, Error::Kind::Write);
}

TEST(PersistenceFaultTest, AFailedFlushRemovesTheTemporaryFile) {
  for (const int number : {EIO, ENOSPC, EDQUOT, EROFS, EINTR}) {
    Bench bench;
    bench.fail(SeamCall::fileFsync, 1, number);
    expectPosix(bench.failedWrite(), Error::Kind::Write, number, "write failed: ");
    EXPECT_FALSE(bench.exists(temporaryPath));
    EXPECT_TRUE(bench.keepsOldRecord());
  }
}

TEST(PersistenceFaultTest, TheFirstErrorIsReportedWhenCleaningUpFailsToo) {
  Bench bench;
  bench.fail(SeamCall::fileFsync, 1, ENOSPC);
  bench.fail(SeamCall::fileClose, 1, EIO);
  bench.fail(SeamCall::fileUnlink, 2, EPERM);
  expectPosix(bench.failedWrite(), Error::Kind::Write, ENOSPC, "write failed: ");
  EXPECT_TRUE(bench.keepsOldRecord());
}

TEST(PersistenceFaultTest, AFailedReplaceRemovesTheTemporaryFileAndCarriesItsError) {
  const ErrorObject reason{
      "NSCocoaErrorDomain", 512, {{localizedDescriptionKey, "The file couldn’t be replaced."}}};
  for (const bool cleanUpFails : {false, true}) {
    Bench bench;
    bench.disk.replaceFails = true;
    if (cleanUpFails) bench.fail(SeamCall::fileUnlink, 2, EIO);
    const Error error = bench.failedWrite();
    EXPECT_EQ(error.kind, Error::Kind::Rename);
    EXPECT_EQ(error.underlying, reason);
    EXPECT_EQ(error.description(),
              "atomic rename failed: The file couldn’t be replaced. [NSCocoaErrorDomain 512]");
    EXPECT_EQ(bench.exists(temporaryPath), cleanUpFails);
    EXPECT_TRUE(bench.keepsOldRecord());
    EXPECT_THAT(bench.mac.names(), testing::Not(testing::Contains("openReadOnly")));
  }
}

TEST(PersistenceFaultTest, AReadBackThatFailsCarriesItsError) {
  Bench bench;
  bench.mac.faults.failNth(SeamCall::fileRead, 1, {256, ""});
  const Error error = bench.failedWrite();
  EXPECT_EQ(error.kind, Error::Kind::Verify);
  EXPECT_EQ(error.underlying, (ErrorObject{"NSPOSIXErrorDomain", 256, {}}));
  EXPECT_THAT(error.description(),
              StartsWith("read-back verify failed: (NSPOSIXErrorDomain error 256)"));
  EXPECT_FALSE(bench.keepsOldRecord());
}

TEST(PersistenceFaultTest, AfterAnyFailureTheNextWriteSucceeds) {
  for (const SeamCall call :
       {SeamCall::fileMkdir, SeamCall::fileChmod, SeamCall::fileUnlink, SeamCall::fileOpenExclusive,
        SeamCall::fileWrite, SeamCall::fileFsync}) {
    Bench bench;
    bench.fail(call, 1, EIO);
    bench.failedWrite();
    EXPECT_TRUE(bench.store.write(fullState())) << describe(call).id;
    EXPECT_EQ(bench.store.read(), fullState()) << describe(call).id;
  }
}

struct Killed {};

TEST(PersistenceFaultTest, TheFileMaskIsRestoredWhenTheProcessUnwindsAtAnyCall) {
  std::size_t reached = 0;
  for (std::size_t fatal = 1; fatal <= 12; ++fatal) {
    Bench bench;
    std::size_t number = 0;
    bench.mac.faults.observe([&](SeamCall call) {
      if (call != SeamCall::fileUmask && ++number == fatal) throw Killed();
    });
    EXPECT_THROW(static_cast<void>(bench.store.write(fullState())), Killed) << fatal;
    EXPECT_EQ(bench.process.currentUmask(), oldMask) << fatal;
    reached = number;
  }
  EXPECT_EQ(reached, 12U);  // the last call of a write, reading back
}

// A call that wrote nothing may leave no errno behind, and 0 is the number of a success.
TEST(PersistenceFaultTest, AWriteOfNothingThatSaysNoReasonIsAnInputOutputError) {
  for (const std::int64_t returned : {0, -1}) {
    Bench bench;
    bench.files.writes = {{7, 0}, {returned, 0}};
    const Error error = bench.failedWrite();
    expectPosix(error, Error::Kind::Write, EIO, "write failed: ");
    EXPECT_EQ(error.description(),
              "write failed: Input/output error [NSPOSIXErrorDomain " + std::to_string(EIO) + "]");
  }
}

TEST(PersistenceFaultTest, AWriteOfNothingThatSaysItsReasonCarriesIt) {
  Bench bench;
  bench.files.writes = {{0, ENOSPC}};
  expectPosix(bench.failedWrite(), Error::Kind::Write, ENOSPC, "write failed: ");
}

TEST(PersistenceFaultTest, AnErrorOfAnUnknownKindReadsAsThatOfTheLastStep) {
  Error error;
  error.kind = static_cast<Error::Kind>(99);
  EXPECT_THAT(error.description(), StartsWith("read-back verify failed: "));
}

}  // namespace
}  // namespace korvel
