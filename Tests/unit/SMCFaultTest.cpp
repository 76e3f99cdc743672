// Every kind of failure at every call of every operation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "SMCWriter.h"
#include "Tests/unit/FakesLog.h"
#include "Tests/unit/ScriptedSMC.h"

namespace korvel {
namespace {

using test::reopened;
using test::reopenFailed;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using Answer = test::ScriptedSMC::Answer;

const std::vector<KernReturn> staleCodes = {ioReturnNoDevice, ioReturnNotOpen};
const std::vector<KernReturn> otherCodes = {
    ioReturnError, ioReturnNotPrivileged, ioReturnBadArgument, 268435459, 1, -1};

/// One writer over one SMC, with its operations' outcomes as text.
struct Bench {
  test::FakeLog log;
  test::ScriptedSMC smc;
  std::unique_ptr<SMCWriter> writer;

  Bench() {
    smc.add("CHTE", 4, {5, 0, 0, 0});
    writer = std::make_unique<SMCWriter>(smc, Logger(log, "SMCWriter"));
    smc.forgetCalls();
  }
  std::string read() {
    const auto result = writer->readKey("CHTE");
    return result ? "read " + decimalList(*result) : result.error().description();
  }
  std::string write() {
    const WriterResult result = writer->writeKey("CHTE", ByteList{1, 0, 0, 0});
    return result ? "written" : result.error().description();
  }
  std::string verify() {
    const VerifiedWrite write = writer->writeKeyAndVerify("CHTE", ByteList{1, 0, 0, 0});
    return (write.result ? "written" : write.result.error().description()) +
           (write.verified ? ", verified" : ", not verified");
  }
  /// Fills the key-info cache.
  void warm() {
    EXPECT_TRUE(writer->isPresent("CHTE"));
    smc.forgetCalls();
  }
  void expectNothingLeaked() const {
    EXPECT_LE(smc.connections(), 1U);
    EXPECT_EQ(smc.services(), 0U);
  }
};

struct Operation {
  std::string name;
  std::function<std::string(Bench&)> run;
  std::vector<std::string> commands;  ///< Of an undisturbed run on a fresh connection.
  std::string outcome;
};

std::vector<Operation> operations() {
  return {{"readKey", &Bench::read, {"info", "read"}, "read [5, 0, 0, 0]"},
          {"writeKey", &Bench::write, {"info", "write"}, "written"},
          {"writeKeyAndVerify",
           &Bench::verify,
           {"info", "read", "write", "read"},
           "written, verified"}};
}

/// Runs `check` for every operation and every one of its calls.
void forEveryCall(const std::function<void(const Operation&, std::size_t)>& check) {
  for (const Operation& operation : operations()) {
    for (std::size_t call = 1; call <= operation.commands.size(); ++call) {
      SCOPED_TRACE(operation.name + ", call " + std::to_string(call) + " (" +
                   operation.commands[call - 1] + ")");
      check(operation, call);
    }
  }
}

/// The report of a failed command by an operation that ends with it.
std::string reported(const std::string& command, const Answer& answer) {
  if (command == "info") {
    if (answer.code == 0 && answer.result == 132) return "SMC key CHTE not found on this host";
    return "kSMCGetKeyInfo failed (kIOReturn=" + std::to_string(answer.code) + ")";
  }
  return "kSMCWriteKey failed (kIOReturn=" + std::to_string(answer.code) +
         ", smcResult=" + std::to_string(answer.result) + ")";
}

/// The outcome of an operation when one call of it fails for good.
std::string expectedOutcome(const Operation& operation, std::size_t call, const Answer& answer) {
  const std::string& command = operation.commands[call - 1];
  if (operation.name != "writeKeyAndVerify") return reported(command, answer);
  if (call <= 2) return "written, verified";  // the first read only saves a write
  return command == "write" ? reported(command, answer) + ", not verified"
                            : "written, not verified";
}

struct SMCFaultTest : testing::Test, Bench {};

TEST_F(SMCFaultTest, UndisturbedOperationsMakeTheirCallsAndNoOthers) {
  for (const Operation& operation : operations()) {
    Bench bench;
    EXPECT_EQ(operation.run(bench), operation.outcome);
    EXPECT_EQ(bench.smc.callNumber, operation.commands.size());
    EXPECT_EQ(bench.smc.lookUps(), 0U);
  }
}

TEST_F(SMCFaultTest, AStaleCallIsCuredByOneReopenAndOneRetry) {
  for (const KernReturn code : staleCodes) {
    forEveryCall([&](const Operation& operation, std::size_t call) {
      Bench bench;
      bench.smc.answers[call] = {code, 9};
      EXPECT_EQ(operation.run(bench), operation.outcome);
      EXPECT_EQ(bench.smc.lookUps(), 1U);
      EXPECT_THAT(bench.log.lines, Contains(reopened).Times(1));
      EXPECT_THAT(bench.log.lines, Not(Contains(testing::HasSubstr("failed"))));
      bench.expectNothingLeaked();
    });
  }
}

TEST_F(SMCFaultTest, AStaleCallThatStaysStaleIsRetriedOnce) {
  for (const KernReturn code : staleCodes) {
    forEveryCall([&](const Operation& operation, std::size_t call) {
      Bench bench;
      bench.smc.answers[call] = {ioReturnNotOpen, 1};
      bench.smc.answers[call + 3] = {code, 9};  // after match and open: the retry
      EXPECT_EQ(operation.run(bench), expectedOutcome(operation, call, {code, 9}));
      EXPECT_EQ(bench.smc.lookUps(), 1U);
      bench.expectNothingLeaked();
    });
  }
}

TEST_F(SMCFaultTest, ARetryThatFailsOtherwiseReportsTheSecondCode) {
  forEveryCall([&](const Operation& operation, std::size_t call) {
    Bench bench;
    bench.smc.answers[call] = {ioReturnNoDevice, 1};
    bench.smc.answers[call + 3] = {ioReturnError, 9};
    EXPECT_EQ(operation.run(bench), expectedOutcome(operation, call, {ioReturnError, 9}));
    EXPECT_EQ(bench.smc.lookUps(), 1U);
  });
}

TEST_F(SMCFaultTest, ARetryIsJudgedLikeAFirstCall) {
  forEveryCall([&](const Operation& operation, std::size_t call) {
    for (const int result : {1, 132, 255}) {
      Bench bench;
      const Answer refused{kernSuccess, static_cast<std::uint8_t>(result)};
      bench.smc.answers[call] = {ioReturnNoDevice, 1};
      bench.smc.answers[call + 3] = refused;
      EXPECT_EQ(operation.run(bench), expectedOutcome(operation, call, refused));
    }
  });
}

TEST_F(SMCFaultTest, AnyOtherCodeIsReportedAtOnce) {
  for (const KernReturn code : otherCodes) {
    forEveryCall([&](const Operation& operation, std::size_t call) {
      Bench bench;
      bench.smc.answers[call] = {code, 9};
      EXPECT_EQ(operation.run(bench), expectedOutcome(operation, call, {code, 9}));
      EXPECT_EQ(bench.smc.lookUps(), 0U);
      EXPECT_EQ(bench.smc.connections(), 1U);
    });
  }
}

TEST_F(SMCFaultTest, EverySMCResultIsReportedAtOnce) {
  for (int result = 1; result <= 255; ++result) {
    forEveryCall([&](const Operation& operation, std::size_t call) {
      Bench bench;
      const Answer refused{kernSuccess, static_cast<std::uint8_t>(result)};
      bench.smc.answers[call] = refused;
      EXPECT_EQ(operation.run(bench), expectedOutcome(operation, call, refused));
      EXPECT_EQ(bench.smc.lookUps(), 0U);
    });
  }
}

TEST_F(SMCFaultTest, AReopenThatFindsNoServiceReportsTheFirstCode) {
  for (const Operation& operation : operations()) {
    if (operation.name == "writeKeyAndVerify") continue;  // it goes on: see below
    for (std::size_t call = 1; call <= operation.commands.size(); ++call) {
      Bench bench;
      bench.smc.answers[call] = {ioReturnNotOpen, 9};
      bench.smc.answers[call + 1] = {ioReturnNoDevice};
      EXPECT_EQ(operation.run(bench), expectedOutcome(operation, call, {ioReturnNotOpen, 9}));
      EXPECT_EQ(bench.smc.connections(), 0U);
      EXPECT_EQ(bench.smc.callNumber, call + 1);
      EXPECT_EQ(bench.log.lines[0], "fault SMCWriter: AppleSMC service not found at init");
      EXPECT_EQ(bench.log.lines[1], reopenFailed);
    }
  }
}

TEST_F(SMCFaultTest, AReopenThatIsRefusedReportsTheFirstCode) {
  for (const Operation& operation : operations()) {
    if (operation.name == "writeKeyAndVerify") continue;
    for (std::size_t call = 1; call <= operation.commands.size(); ++call) {
      Bench bench;
      bench.smc.answers[call] = {ioReturnNoDevice, 9};
      bench.smc.answers[call + 2] = {ioReturnNotPrivileged};
      EXPECT_EQ(operation.run(bench), expectedOutcome(operation, call, {ioReturnNoDevice, 9}));
      EXPECT_EQ(bench.smc.connections(), 0U);
      EXPECT_EQ(bench.smc.services(), 0U);
      EXPECT_EQ(bench.log.lines[0], "fault SMCWriter: IOServiceOpen(AppleSMC) failed: -536870207");
      EXPECT_EQ(bench.log.lines[1], reopenFailed);
    }
  }
}

TEST_F(SMCFaultTest, AVerifiedWriteWhoseFirstReadLostTheSMCTriesAgainForTheWrite) {
  smc.answers[1] = {ioReturnNotOpen};
  smc.answers[2] = {ioReturnNoDevice};  // the reopen of the read
  EXPECT_EQ(verify(), "written, verified");
  EXPECT_EQ(smc.lookUps(), 2U);
}

TEST_F(SMCFaultTest, AVerifiedWriteThatLosesTheSMCForGoodReportsItsAbsence) {
  smc.answers[1] = {ioReturnNotOpen};
  smc.answers[2] = {ioReturnNoDevice};
  smc.answers[3] = {ioReturnNoDevice};
  EXPECT_EQ(verify(), "AppleSMC service unavailable, not verified");
}

TEST_F(SMCFaultTest, AfterAFailedReopenTheNextOperationTriesAgain) {
  smc.answers[1] = {ioReturnNotOpen};
  smc.answers[2] = {ioReturnNoDevice};
  EXPECT_EQ(read(), "kSMCGetKeyInfo failed (kIOReturn=-536870195)");
  EXPECT_EQ(read(), "read [5, 0, 0, 0]");
  EXPECT_EQ(smc.lookUps(), 2U);
  EXPECT_EQ(log.lines.back(), reopened);
}

TEST_F(SMCFaultTest, AReopenEmptiesTheCacheButTheRetryKeepsItsKeyInfo) {
  warm();
  smc.answers[1] = {ioReturnNotOpen};
  EXPECT_EQ(write(), "written");
  EXPECT_THAT(smc.calls, ElementsAre("write CHTE [1, 0, 0, 0]", "close", "match", "open",
                                     "write CHTE [1, 0, 0, 0]"));
  smc.forgetCalls();
  smc.answers.clear();
  EXPECT_EQ(read(), "read [1, 0, 0, 0]");
  EXPECT_THAT(smc.calls, ElementsAre("info CHTE", "read CHTE"));
}

TEST_F(SMCFaultTest, AWriteThatStaysStaleLogsItsFailureOnce) {
  warm();
  smc.answersByCommand["write"] = {ioReturnNotOpen, 0};
  EXPECT_EQ(write(), "kSMCWriteKey failed (kIOReturn=-536870195, smcResult=0)");
  EXPECT_THAT(
      log.lines,
      ElementsAre(reopened, "fault SMCWriter: kSMCWriteKey CHTE IOConnect failed: -536870195"));
  EXPECT_EQ(smc.count("write CHTE [1, 0, 0, 0]"), 2U);
}

TEST_F(SMCFaultTest, AWriteWhoseReopenFailsLogsItsOwnFailureToo) {
  warm();
  smc.answers[1] = {ioReturnNoDevice, 0};
  smc.answers[2] = {ioReturnNoDevice};
  EXPECT_EQ(write(), "kSMCWriteKey failed (kIOReturn=-536870208, smcResult=0)");
  EXPECT_THAT(log.lines,
              ElementsAre("fault SMCWriter: AppleSMC service not found at init", reopenFailed,
                          "fault SMCWriter: kSMCWriteKey CHTE IOConnect failed: -536870208"));
}

TEST_F(SMCFaultTest, EachCommandOfAnOperationMayRecoverOnce) {
  smc.answers[1] = {ioReturnNotOpen};   // key info
  smc.answers[5] = {ioReturnNoDevice};  // after match, open, key info: the read
  EXPECT_EQ(read(), "read [5, 0, 0, 0]");
  EXPECT_THAT(smc.calls, ElementsAre("info CHTE", "close", "match", "open", "info CHTE",
                                     "read CHTE", "close", "match", "open", "read CHTE"));
}

TEST_F(SMCFaultTest, AFailedKeyInfoIsNotRemembered) {
  for (const Answer answer : {Answer{ioReturnError, 0}, Answer{0, 132}, Answer{0, 1}}) {
    Bench bench;
    bench.smc.answers[1] = answer;
    EXPECT_EQ(bench.read(), reported("info", answer));
    EXPECT_EQ(bench.read(), "read [5, 0, 0, 0]");
    EXPECT_THAT(bench.smc.calls, ElementsAre("info CHTE", "info CHTE", "read CHTE"));
  }
}

}  // namespace
}  // namespace korvel
