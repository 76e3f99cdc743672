// Every step of a write fails in turn.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "HelperPersistence.h"
#include "Tests/unit/FakesFiles.h"
#include "Tests/unit/FakesLog.h"
#include "Tests/unit/SampleStates.h"

namespace korvel {
namespace {

using test::fullState;
using testing::StartsWith;
using Error = HelperPersistence::PersistenceError;

const std::string directory = "/Library/Application Support/com.korvel.app.helper";
const std::string statePath = directory + "/state.json";
const std::string temporaryPath = directory + "/state.json.tmp";
const std::string oldRecord = "the record before";
constexpr std::uint32_t oldMask = 0027;

// The texts of the numbers, as every system of ours says them.
const std::vector<std::pair<int, std::string>> errnos = {
    {EPERM, "Operation not permitted"}, {EIO, "Input/output error"},
    {EACCES, "Permission denied"},      {ENOTDIR, "Not a directory"},
    {EMFILE, "Too many open files"},    {EROFS, "Read-only file system"},
    {ENOSPC, "No space left on device"}};

struct Bench {
  test::FakeLog log;
  test::FakeFiles files;
  HelperPersistence store{files, Logger(log, "Persistence")};

  Bench() {
    files.mask = oldMask;
    files.nodes[directory] = {true, 0755, ""};
    files.nodes[statePath] = {false, 0600, oldRecord};
    files.nodes[temporaryPath] = {false, 0600, "left over"};
  }
  Error failedWrite() {
    auto result = store.write(fullState());
    EXPECT_FALSE(result);
    EXPECT_EQ(files.mask, oldMask) << "the file mask must be restored";
    EXPECT_TRUE(files.descriptors.empty()) << "a descriptor leaked";
    return result ? Error{} : result.error();
  }
  [[nodiscard]] bool keepsOldRecord() const {
    return files.nodes.at(statePath).content == oldRecord;
  }
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
    bench.files.failures["mkdir 1"] = number;
    const Error error = bench.failedWrite();
    EXPECT_EQ(error.underlying.localizedDescription(), text);
    EXPECT_EQ(error.description(),
              "mkdir failed: " + text + " [NSPOSIXErrorDomain " + std::to_string(number) + "]");
  }
}

TEST(PersistenceFaultTest, AnyFailureOfMakingTheDirectoryButItsExistenceEndsTheWrite) {
  for (const auto& [number, text] : errnos) {
    Bench bench;
    bench.files.failures["mkdir 1"] = number;
    expectPosix(bench.failedWrite(), Error::Kind::DirectoryCreate, number, "mkdir failed: ");
    EXPECT_THAT(bench.files.calls, testing::ElementsAre("umask", "mkdir", "umask"));
    EXPECT_TRUE(bench.keepsOldRecord());
  }
}

TEST(PersistenceFaultTest, ADirectoryThatCannotBeTightenedEndsTheWrite) {
  for (const auto& [number, text] : errnos) {
    Bench bench;
    bench.files.failures["chmod 1"] = number;
    expectPosix(bench.failedWrite(), Error::Kind::DirectoryCreate, number, "mkdir failed: ");
    EXPECT_EQ(bench.files.calls.back(), "umask");
    EXPECT_TRUE(bench.keepsOldRecord());
  }
}

TEST(PersistenceFaultTest, ALeftOverThatCannotBeRemovedEndsTheWrite) {
  for (const auto& [number, text] : errnos) {
    Bench bench;
    bench.files.failures["unlink 1"] = number;
    expectPosix(bench.failedWrite(), Error::Kind::Write, number, "write failed: ");
    EXPECT_THAT(bench.files.calls, testing::Not(testing::Contains("openExclusive")));
    EXPECT_TRUE(bench.keepsOldRecord());
  }
}

TEST(PersistenceFaultTest, AMissingLeftOverIsNoFailure) {
  Bench bench;
  bench.files.failures["unlink 1"] = ENOENT;
  bench.files.nodes.erase(temporaryPath);
  EXPECT_TRUE(bench.store.write(fullState()));
}

TEST(PersistenceFaultTest, ATemporaryFileThatCannotBeMadeEndsTheWrite) {
  for (const int number : {EEXIST, EACCES, EMFILE, ENFILE, ENOSPC, EROFS, EINTR, EDQUOT}) {
    Bench bench;
    bench.files.failures["openExclusive 1"] = number;
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
      EXPECT_FALSE(bench.files.nodes.contains(temporaryPath));
      EXPECT_TRUE(bench.keepsOldRecord());
      EXPECT_THAT(bench.files.calls, testing::Not(testing::Contains("fsync")));
    }
  }
}

TEST(PersistenceFaultTest, AWriteOfNothingIsAFailure) {
  Bench bench;
  bench.files.writes = {{7, 0}, {0, 0}};
  EXPECT_EQ(bench.failedWrite().kind, Error::Kind::Write);
  EXPECT_FALSE(bench.files.nodes.contains(temporaryPath));
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
    bench.files.failures["fsync 1"] = number;
    expectPosix(bench.failedWrite(), Error::Kind::Write, number, "write failed: ");
    EXPECT_FALSE(bench.files.nodes.contains(temporaryPath));
    EXPECT_TRUE(bench.keepsOldRecord());
  }
}

TEST(PersistenceFaultTest, TheFirstErrorIsReportedWhenCleaningUpFailsToo) {
  Bench bench;
  bench.files.failures = {{"fsync 1", ENOSPC}, {"close 1", EIO}, {"unlink 2", EPERM}};
  expectPosix(bench.failedWrite(), Error::Kind::Write, ENOSPC, "write failed: ");
  EXPECT_TRUE(bench.keepsOldRecord());
}

TEST(PersistenceFaultTest, AFailedReplaceRemovesTheTemporaryFileAndCarriesItsError) {
  const ErrorObject reason{
      "NSCocoaErrorDomain", 512, {{localizedDescriptionKey, "couldn’t be saved"}}};
  for (const bool cleanUpFails : {false, true}) {
    Bench bench;
    bench.files.replaceError = reason;
    if (cleanUpFails) bench.files.failures["unlink 2"] = EIO;
    const Error error = bench.failedWrite();
    EXPECT_EQ(error.kind, Error::Kind::Rename);
    EXPECT_EQ(error.underlying, reason);
    EXPECT_EQ(error.description(),
              "atomic rename failed: couldn’t be saved [NSCocoaErrorDomain 512]");
    EXPECT_EQ(bench.files.nodes.contains(temporaryPath), cleanUpFails);
    EXPECT_TRUE(bench.keepsOldRecord());
    EXPECT_THAT(bench.files.calls, testing::Not(testing::Contains("openReadOnly")));
  }
}

TEST(PersistenceFaultTest, AReadBackThatFailsCarriesItsError) {
  Bench bench;
  bench.files.readError = ErrorObject{"NSCocoaErrorDomain", 256, {}};
  const Error error = bench.failedWrite();
  EXPECT_EQ(error.kind, Error::Kind::Verify);
  EXPECT_EQ(error.underlying, *bench.files.readError);
  EXPECT_THAT(error.description(),
              StartsWith("read-back verify failed: (NSCocoaErrorDomain error 256)"));
  EXPECT_FALSE(bench.keepsOldRecord());
}

TEST(PersistenceFaultTest, AfterAnyFailureTheNextWriteSucceeds) {
  for (const char* call :
       {"mkdir 1", "chmod 1", "unlink 1", "openExclusive 1", "write 1", "fsync 1"}) {
    Bench bench;
    bench.files.failures[call] = EIO;
    bench.failedWrite();
    EXPECT_TRUE(bench.store.write(fullState())) << call;
    EXPECT_EQ(bench.store.read(), fullState()) << call;
  }
}

struct Killed {};

TEST(PersistenceFaultTest, TheFileMaskIsRestoredWhenTheProcessUnwindsAtAnyCall) {
  std::size_t reached = 0;
  for (std::size_t fatal = 1; fatal <= 12; ++fatal) {
    Bench bench;
    std::size_t number = 0;
    bench.files.beforeCall = [&](const std::string&) {
      if (++number == fatal) throw Killed();
    };
    EXPECT_THROW(static_cast<void>(bench.store.write(fullState())), Killed) << fatal;
    EXPECT_EQ(bench.files.mask, oldMask) << fatal;
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

}  // namespace
}  // namespace korvel
