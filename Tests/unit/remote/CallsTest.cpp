#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Remote/DiskWatch.h"
#include "VirtualMac/Remote/MachineHalf.h"
#include "VirtualMac/Remote/RemoteInterface.h"

namespace virtualmac {
namespace {

/// Sends bytes made by hand to the machine's half.
class CallsTest : public testing::Test {
 protected:
  static constexpr CallNumber callCount = seamCallCount + hostCallCount;
  struct Served {
    std::string failure;
    std::string result;
  };
  Served serve(auto call, const WireWriter& arguments) {
    return serveNumber(callNumber(call), arguments.body());
  }
  Served serveNumber(CallNumber number, const std::string& arguments) {
    WireReader reader(arguments);
    WireWriter writer;
    half.serve(number, reader, writer);
    return {reader.failure(), writer.body()};
  }

  Journal journal{[this] { return machine.totalSeconds(); }};
  Machine machine{loadProfile("newer-keys").value(), journal};
  DiskWatch disk{journal, "/nowhere"};
  std::shared_ptr<HelperProcess> process = machine.startProcess(412);
  MachineHalf half{machine, *process, journal, disk};
};

}  // namespace

TEST_F(CallsTest, TheSeamsCallsKeepTheirNumbers) {
  EXPECT_EQ(callNumber(SeamCall::codeRelease), static_cast<std::size_t>(SeamCall::codeRelease));
  EXPECT_EQ(callNumber(HostCall::announceFileCall), seamCallCount);
}

TEST_F(CallsTest, ResultsAndOutArgumentsComeBack) {
  WireWriter match;
  const std::string matched = serve(SeamCall::smcMatchAppleSMC, match).result;
  WireReader matchedReader(matched);
  const std::int64_t name = matchedReader.i64();
  ASSERT_NE(name, 0);
  WireWriter open;
  open.i64(name);
  open.i64(99);  // The connection as it was.
  const Served opened = serve(SeamCall::smcOpen, open);
  EXPECT_EQ(opened.failure, "");
  WireReader reader(opened.result);
  EXPECT_EQ(reader.i64(), korvel::kernSuccess);
  EXPECT_NE(reader.i64(), 99);
  EXPECT_TRUE(reader.finish());
}

TEST_F(CallsTest, ACallWithWrongArgumentsIsNotMade) {
  WireWriter call;
  call.text("SleepDisabled");
  call.u8(2);
  EXPECT_EQ(serve(SeamCall::settingsSet, call).failure, "a Boolean that is neither 0 nor 1");
  WireWriter tooMuch;
  tooMuch.text("SleepDisabled");
  tooMuch.u8(1);
  tooMuch.u8(1);
  EXPECT_EQ(serve(SeamCall::settingsSet, tooMuch).failure, "bytes left over after the last value");
  WireWriter tooLittle;
  tooLittle.text("SleepDisabled");
  EXPECT_EQ(serve(SeamCall::settingsSet, tooLittle).failure,
            "truncated: a value reaches beyond the end");
  EXPECT_FALSE(machine.power.sleepDisabled());
  WireWriter right;
  right.text("SleepDisabled");
  right.u8(1);
  EXPECT_EQ(serve(SeamCall::settingsSet, right).failure, "");
  EXPECT_TRUE(machine.power.sleepDisabled());
}

TEST_F(CallsTest, ANumberThatItsTypeCannotHoldIsAFailure) {
  WireWriter call;
  call.i64(std::int64_t{1} << 40U);
  EXPECT_EQ(serve(SeamCall::registryObjectRelease, call).failure,
            "a number that its type cannot hold");
}

TEST_F(CallsTest, ATimeThatNoMachineHasIsAFailure) {
  const auto failureOf = [](const MachineTime& time) {
    WireWriter writer;
    put(writer, time);
    WireReader reader(writer.body());
    MachineTime told;
    get(reader, told);
    return reader.failure();
  };
  constexpr std::int64_t latest = INT64_MAX / 2;
  EXPECT_EQ(failureOf({.steadyNanoseconds = latest, .uptime = latest, .speed = 10000}), "");
  EXPECT_EQ(failureOf({.speed = 0.01}), "");
  for (const double speed : {0.0, -1.0, 0.001, 10001.0, 1e300, HUGE_VAL, std::nan("")})
    EXPECT_EQ(failureOf({.speed = speed}), "a speed that no machine has") << speed;
  for (const std::int64_t moment : {std::int64_t{-1}, INT64_MIN, latest + 1, INT64_MAX}) {
    EXPECT_EQ(failureOf({.steadyNanoseconds = moment}), "a moment that no clock tells");
    EXPECT_EQ(failureOf({.uptime = moment}), "a moment that no clock tells");
  }
}

TEST_F(CallsTest, UnknownNumbersAndFileCallsAreFailures) {
  EXPECT_EQ(serveNumber(callCount, "").failure, "no call has this number");
  EXPECT_EQ(serveNumber(0xFFFF, "").failure, "no call has this number");
  EXPECT_EQ(serve(SeamCall::fileUnlink, {}).failure,
            "file calls are made in the helper's own process");
}

// No sequence of bytes may do anything but make a call fail or succeed.
TEST_F(CallsTest, NoiseForEveryCallIsSurvived) {
  half.setTimeSource([] { return MachineTime{}; });
  Random random(1);
  for (CallNumber number = 0; number < callCount; ++number) {
    for (int round = 0; round < 50; ++round) {
      std::string noise(random.below(60), '\0');
      for (char& byte : noise) byte = static_cast<char>(random.next());
      serveNumber(number, noise);
    }
  }
  EXPECT_TRUE(process->isAlive());
}

TEST_F(CallsTest, FaultsOfTheDiskTakeTheFileCallsPlace) {
  const auto verdict = [&](SeamCall call) {
    WireWriter arguments;
    put(arguments, call);
    const Served served = serve(HostCall::announceFileCall, arguments);
    WireReader reader(served.result);
    FileVerdict answer;
    get(reader, answer);
    EXPECT_TRUE(reader.finish()) << reader.failure();
    return answer;
  };
  EXPECT_FALSE(verdict(SeamCall::fileWrite).fault);
  machine.disk.full = true;
  EXPECT_EQ(verdict(SeamCall::fileWrite).fault->code, ENOSPC);
  EXPECT_FALSE(verdict(SeamCall::fileUnlink).fault);
  EXPECT_EQ(verdict(SeamCall::fileMkdir).changeRefusal, ENOSPC);
  EXPECT_EQ(verdict(SeamCall::fileUnlink).changeRefusal, 0);
  machine.disk.full = false;
  machine.disk.readOnly = true;
  EXPECT_EQ(verdict(SeamCall::fileOpenExclusive).fault->code, EROFS);
  EXPECT_EQ(verdict(SeamCall::fileMkdir).changeRefusal, EROFS);
  EXPECT_EQ(verdict(SeamCall::fileUnlink).changeRefusal, EROFS);
  EXPECT_FALSE(verdict(SeamCall::fileUnlink).fault) << "a name that is not there is told as that";
  machine.disk.readOnly = false;
  machine.disk.failCall("fsync", EIO);
  EXPECT_EQ(verdict(SeamCall::fileFsync).fault->code, EIO);
  machine.disk.shortWriteBytes = 3;
  EXPECT_EQ(verdict(SeamCall::fileWrite).writeLimit, 3U);
  machine.disk.replaceFails = true;
  EXPECT_TRUE(verdict(SeamCall::fileReplaceItem).fault);
}

TEST_F(CallsTest, ALatencyBelongsToTheCallThatItIsSetFor) {
  machine.setLatencySeconds(SeamCall::fileFsync, 2);
  machine.setLatencySeconds(SeamCall::smcOpen, 3);
  WireWriter fsync;
  put(fsync, SeamCall::fileFsync);
  const auto announce = callNumber(HostCall::announceFileCall);
  EXPECT_EQ(half.latencySeconds(announce, fsync.body()), 2);
  EXPECT_EQ(half.latencySeconds(announce, ""), 0);
  EXPECT_EQ(half.latencySeconds(callNumber(SeamCall::smcOpen), ""), 3);
  EXPECT_EQ(half.latencySeconds(callNumber(HostCall::time), ""), 0);
}

TEST_F(CallsTest, GivingBackTakesTimeWhileACallThatGivesBackDoes) {
  EXPECT_FALSE(half.givingBackTakesTime());
  machine.setLatencySeconds(SeamCall::smcOpen, 3);
  EXPECT_FALSE(half.givingBackTakesTime());
  machine.setLatencySeconds(SeamCall::codeRelease, 1);
  machine.setLatencySeconds(SeamCall::fileUmask, 2);
  machine.setLatencySeconds(SeamCall::codeRelease, 0);
  EXPECT_TRUE(half.givingBackTakesTime());
  machine.setLatencySeconds(SeamCall::fileUmask, 0);
  EXPECT_FALSE(half.givingBackTakesTime());
}

TEST_F(CallsTest, RequirementsAreJudgedByTheMachinesSignatures) {
  machine.signatures.setPid(77, "app");
  machine.signatures.setPid(78, "other-team");
  const auto judged = [&](std::int64_t pid, std::string_view text) {
    WireWriter arguments;
    arguments.i64(pid);
    arguments.text(text);
    const std::string result = serve(HostCall::judge, arguments).result;
    WireReader reader(result);
    PeerVerdict verdict{};
    get(reader, verdict);
    EXPECT_TRUE(reader.finish());
    return verdict;
  };
  const std::string team = R"(certificate leaf[subject.OU] = "ABCDE12345")";
  EXPECT_EQ(judged(77, team), PeerVerdict::Satisfies);
  EXPECT_EQ(judged(78, team), PeerVerdict::Fails);
  EXPECT_EQ(judged(79, team), PeerVerdict::Unknown);
  EXPECT_EQ(judged(77, "certificate leaf["), PeerVerdict::Fails);
  machine.signatures.removePid(77);
  EXPECT_EQ(judged(77, team), PeerVerdict::Unknown) << "it has ended";
}

// The state file lies on a real disk. The machine reports a helper's change once, field by field,
// even when the helper died before announcing it.
TEST(DiskWatchTest, TellsWhatReplacementsChanged) {
  std::string root = "/tmp/korvel-watch-XXXXXX";
  ASSERT_NE(::mkdtemp(root.data()), nullptr);
  const std::string folder = "/Library/Application Support/com.korvel.app.helper";
  std::filesystem::create_directories(root + folder);
  Journal journal([] { return 0.0; });
  DiskWatch watch(journal, root);
  const auto put = [&](const char* text) {
    std::ofstream(root + folder + "/state.json.tmp") << text;
    std::filesystem::rename(root + folder + "/state.json.tmp", root + folder + "/state.json");
  };
  put(R"({"chargeLimit": 80, "topUpActive": false})");
  watch.replaced(folder + "/state.json");
  put(R"({"chargeLimit": 70, "topUpActive": false})");
  watch.look();
  watch.look();
  EXPECT_EQ(journal.text(),
            "0.000 disk  state.json created: chargeLimit=80 topUpActive=false\n"
            "0.000 disk  state.json replaced: chargeLimit=70\n");
  std::filesystem::remove_all(root);
}

}  // namespace virtualmac
