#include "HelperPersistence.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <limits>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Tests/unit/SampleStates.h"
#include "Tests/unit/StoreBench.h"

namespace korvel {
namespace {

using test::directory;
using test::fullState;
using test::RecordedFiles;
using test::statePath;
using test::temporaryPath;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;
using virtualmac::SeamCall;

class HelperPersistenceTest : public testing::Test, protected test::StoreBench {
 protected:
  void putFile(const std::string& content) {
    disk.makeDirectory(directory, 0700);
    disk.writeFile(statePath, content, 0600);
  }
  std::string errorOfWrite(const HelperState& state) {
    const auto result = store.write(state);
    return result ? "written" : result.error().description();
  }
};

TEST_F(HelperPersistenceTest, PathsAreThePublishedOnes) {
  EXPECT_EQ(HelperPersistence::directory, directory);
  EXPECT_EQ(HelperPersistence::statePath, statePath);
  EXPECT_EQ(HelperPersistence::temporaryPath, temporaryPath);
}

TEST_F(HelperPersistenceTest, AWriteMakesItsCallsInTheirFixedOrder) {
  EXPECT_EQ(errorOfWrite(fullState()), "written");
  EXPECT_THAT(mac.names(),
              ElementsAre("umask", "mkdir", "unlink", "openExclusive", "write", "fsync", "close",
                          "replaceItem", "openReadOnly", "fsync", "close", "readFile", "umask"));
}

TEST_F(HelperPersistenceTest, AWrittenFileHoldsTheRecordForItsOwnerOnly) {
  EXPECT_EQ(errorOfWrite(fullState()), "written");
  EXPECT_EQ(mode(directory), 0700U);
  EXPECT_EQ(mode(statePath), 0600U);
  EXPECT_EQ(content(statePath), encodeFile(fullState()));
  EXPECT_FALSE(exists(temporaryPath));
  EXPECT_TRUE(process.openDescriptors() == 0);
  EXPECT_THAT(log.lines, IsEmpty());
}

/// The files of a process that was started without standard input, output and error: its own begin
/// with 0, not with 3.
class FilesFromDescriptor0 final : public RecordedFiles {
 public:
  using RecordedFiles::RecordedFiles;

  PosixResult openExclusive(const std::string& path, std::uint32_t mode) override {
    return lowered(RecordedFiles::openExclusive(path, mode));
  }
  PosixResult openReadOnly(const std::string& path) override {
    return lowered(RecordedFiles::openReadOnly(path));
  }
  PosixResult write(int descriptor, std::span<const char> bytes) override {
    return RecordedFiles::write(descriptor + 3, bytes);
  }
  PosixResult fsync(int descriptor) override { return RecordedFiles::fsync(descriptor + 3); }
  PosixResult close(int descriptor) override { return RecordedFiles::close(descriptor + 3); }

 private:
  static PosixResult lowered(PosixResult opened) {
    if (opened.value >= 0) opened.value -= 3;
    return opened;
  }
};

TEST_F(HelperPersistenceTest, AFileWhoseDescriptorIs0IsWrittenAndFlushedLikeAnyOther) {
  FilesFromDescriptor0 low{mac.seam.files, mac.calls};
  HelperPersistence lowStore{low, Logger(log, "Persistence")};
  EXPECT_TRUE(lowStore.write(fullState()).has_value());
  EXPECT_THAT(mac.names(),
              ElementsAre("umask", "mkdir", "unlink", "openExclusive", "write", "fsync", "close",
                          "replaceItem", "openReadOnly", "fsync", "close", "readFile", "umask"));
  EXPECT_EQ(content(statePath), encodeFile(fullState()));
  EXPECT_EQ(process.openDescriptors(), 0U);
  EXPECT_THAT(log.lines, IsEmpty());
}

// The mask alone would hide a mode that is too wide, until somebody changes the mask.
TEST_F(HelperPersistenceTest, DirectoryAndFileAreMadeWithPrivateModesWhateverTheMask) {
  EXPECT_EQ(errorOfWrite(fullState()), "written");
  EXPECT_EQ(errorOfWrite(fullState()), "written");
  std::vector<std::string> making;
  std::ranges::copy_if(mac.calls, std::back_inserter(making), [](const std::string& call) {
    return call.ends_with(" 384") || call.ends_with(" 448");  // 0600 and 0700
  });
  const std::string made = directory + " 448";
  const std::string opened = "openExclusive " + temporaryPath + " 384";
  EXPECT_THAT(making,
              ElementsAre("mkdir " + made, opened, "mkdir " + made, "chmod " + made, opened));
}

TEST_F(HelperPersistenceTest, TheFileIsPrettySortedAndHasISODates) {
  EXPECT_EQ(errorOfWrite(fullState()), "written");
  EXPECT_THAT(content(statePath),
              testing::AllOf(StartsWith("{\n  \"chargeLimit\" : 75,\n  \"forceDischarge"),
                             testing::HasSubstr("\"lastWriteAt\" : \"2026-05-09T06:13:20Z\""),
                             EndsWith("\"topUpActive\" : true\n}")));
}

TEST_F(HelperPersistenceTest, TheFileMaskIsPrivateDuringAWriteAndRestoredAfterIt) {
  std::vector<std::uint32_t> masksOfCreation;
  mac.faults.observe([&](SeamCall call) {
    if (call == SeamCall::fileOpenExclusive) masksOfCreation.push_back(process.currentUmask());
  });
  for (const std::uint32_t mask : {0U, 0022U, 0777U}) {
    disk.remove(directory);
    process.umask(mask);
    EXPECT_EQ(errorOfWrite(fullState()), "written");
    EXPECT_THAT(std::exchange(masksOfCreation, {}), ElementsAre(0077U));
    EXPECT_EQ(process.currentUmask(), mask);
    EXPECT_EQ(mode(statePath), 0600U);
  }
}

TEST_F(HelperPersistenceTest, ADirectoryThatIsTooOpenIsTightened) {
  disk.makeDirectory(directory, 0755);
  EXPECT_EQ(errorOfWrite(fullState()), "written");
  EXPECT_EQ(mode(directory), 0700U);
}

TEST_F(HelperPersistenceTest, ATemporaryFileLeftByACrashIsRemoved) {
  putFile("{}");
  disk.writeFile(temporaryPath, "half a record", 0644);
  EXPECT_EQ(errorOfWrite(fullState()), "written");
  EXPECT_EQ(content(statePath), encodeFile(fullState()));
  EXPECT_EQ(mode(statePath), 0600U);
  EXPECT_FALSE(exists(temporaryPath));
}

TEST_F(HelperPersistenceTest, AWrittenRecordReadsBackEqual) {
  for (const HelperState& state : {HelperState::empty(), fullState()}) {
    EXPECT_EQ(errorOfWrite(state), "written");
    EXPECT_EQ(store.read(), state);
  }
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(HelperPersistenceTest, AMissingFileReadsAsTheEmptyRecord) {
  EXPECT_EQ(store.read(), HelperState::empty());
  EXPECT_THAT(log.lines, ElementsAre("default Persistence: state.json missing — first run or "
                                     "post-uninstall reinstall; continuing with empty defaults"));
  EXPECT_THAT(mac.names(), ElementsAre("fileExists"));
}

TEST_F(HelperPersistenceTest, AFileThatIsNoJSONReadsAsTheEmptyRecordAndIsLeftInPlace) {
  putFile("not a record");
  EXPECT_EQ(store.read(), HelperState::empty());
  EXPECT_THAT(log.lines,
              ElementsAre("fault Persistence: state.json corrupt — not valid JSON at byte 1; "
                          "continuing with empty defaults until next setChargeLimit"));
  EXPECT_EQ(content(statePath), "not a record");
}

TEST_F(HelperPersistenceTest, AnEmptyFileIsCorrupt) {
  putFile("");
  EXPECT_EQ(store.read(), HelperState::empty());
  EXPECT_THAT(log.lines, ElementsAre(StartsWith("fault Persistence: state.json corrupt — ")));
}

TEST_F(HelperPersistenceTest, AFileThatLacksAFieldIsCorruptAndTheLineNamesIt) {
  putFile(R"({"chargeLimit":80,"sailingBand":5,"forceDischargeActive":false,)"
          R"("heatPauseActive":false})");
  EXPECT_EQ(store.read(), HelperState::empty());
  EXPECT_THAT(log.lines,
              ElementsAre("fault Persistence: state.json corrupt — missing key \"lastWriteAt\"; "
                          "continuing with empty defaults until next setChargeLimit"));
}

TEST_F(HelperPersistenceTest, AFileThatCannotBeReadIsCorruptWithTheReason) {
  putFile("");
  mac.faults.failNth(SeamCall::fileRead, 1, {5, "disk gone"});
  EXPECT_EQ(store.read(), HelperState::empty());
  EXPECT_THAT(log.lines,
              ElementsAre("fault Persistence: state.json corrupt — disk gone [NSPOSIXErrorDomain "
                          "5]; continuing with empty defaults until next setChargeLimit"));
}

TEST_F(HelperPersistenceTest, TheNextWriteReplacesACorruptFile) {
  putFile("not a record");
  EXPECT_EQ(errorOfWrite(fullState()), "written");
  EXPECT_EQ(store.read(), fullState());
}

TEST_F(HelperPersistenceTest, ShortWritesGoOnWithTheRest) {
  for (std::size_t piece = 1; piece <= 64; piece *= 2) {
    disk.remove(directory);
    mac.calls.clear();
    files.writes.assign(2000, {static_cast<std::int64_t>(piece), 0});
    EXPECT_EQ(errorOfWrite(fullState()), "written");
    EXPECT_EQ(content(statePath), encodeFile(fullState()));
    const std::size_t size = encodeFile(fullState()).size();
    EXPECT_EQ(mac.count("write"), static_cast<std::ptrdiff_t>((size + piece - 1) / piece));
  }
}

TEST_F(HelperPersistenceTest, InterruptedWritesAreRetried) {
  files.writes = {{-1, EINTR}, {3, 0}, {-1, EINTR}, {-1, EINTR}, {5, 0}};
  EXPECT_EQ(errorOfWrite(fullState()), "written");
  EXPECT_EQ(content(statePath), encodeFile(fullState()));
  EXPECT_EQ(mac.count("write"), 6);
}

TEST_F(HelperPersistenceTest, ARecordThatCannotBeEncodedIsNotWritten) {
  putFile("old");
  HelperState state;
  state.lastWriteAt = Date{std::numeric_limits<double>::quiet_NaN()};
  EXPECT_EQ(errorOfWrite(state),
            "write failed: the state holds a date that is not a number "
            "[com.korvel.app.helper.persistence -2]");
  EXPECT_EQ(content(statePath), "old");
  EXPECT_THAT(mac.names(), ElementsAre("umask", "mkdir", "chmod", "umask"));
  EXPECT_EQ(process.currentUmask(), 0022U);
}

TEST_F(HelperPersistenceTest, AFailedDirectoryFlushIsLoggedAndTheWriteStands) {
  fail(SeamCall::fileOpenReadOnly, 1, EMFILE);
  EXPECT_EQ(errorOfWrite(fullState()), "written");
  EXPECT_THAT(log.lines, ElementsAre("error Persistence: fsync parent dir: open(" + directory +
                                     ") errno=" + std::to_string(EMFILE)));
  EXPECT_EQ(store.read(), fullState());
}

TEST_F(HelperPersistenceTest, AFailedFlushOfTheOpenedDirectoryIsIgnored) {
  fail(SeamCall::fileFsync, 2, EIO);
  EXPECT_EQ(errorOfWrite(fullState()), "written");
  EXPECT_TRUE(process.openDescriptors() == 0);
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(HelperPersistenceTest, FailedClosesAreIgnored) {
  fail(SeamCall::fileClose, 1, EIO);
  fail(SeamCall::fileClose, 2, EINTR);
  EXPECT_EQ(errorOfWrite(fullState()), "written");
  EXPECT_TRUE(process.openDescriptors() == 0);
}

TEST_F(HelperPersistenceTest, AReadBackThatDiffersIsNamedWithBothSizes) {
  const std::size_t size = encodeFile(fullState()).size();
  for (const std::string& onDisk : {std::string(), std::string("{}"), std::string(size, ' ')}) {
    mac.faults.observe([&](SeamCall call) {
      if (call == SeamCall::fileRead) disk.writeFile(statePath, onDisk);
    });
    const auto result = store.write(fullState());
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().kind, HelperPersistence::PersistenceError::Kind::Verify);
    EXPECT_EQ(result.error().underlying.domain, "com.korvel.app.helper.persistence");
    EXPECT_EQ(result.error().underlying.code, -1);
    EXPECT_EQ(result.error().underlying.localizedDescription(),
              "on-disk bytes (" + std::to_string(onDisk.size()) +
                  ") differ from intended payload (" + std::to_string(size) + ")");
    EXPECT_THAT(
        result.error().description(),
        StartsWith("read-back verify failed: " + result.error().underlying.localizedDescription()));
    EXPECT_EQ(process.currentUmask(), 0022U);
  }
}

// A newer helper may have written more, and a number that nobody here can hold is none of ours.
TEST_F(HelperPersistenceTest, ValuesThatNoDecoderHoldsUnderUnknownKeysCostTheUserNothing) {
  for (const std::string value : {"1e999", R"("\ud800")"}) {
    putFile("{\"later\" : " + value + "," + encodeFile(fullState()).substr(1));
    EXPECT_EQ(store.read(), fullState()) << value;
  }
  EXPECT_THAT(log.lines, IsEmpty());
}

}  // namespace
}  // namespace korvel
