#include "SMCWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Tests/unit/FakesLog.h"
#include "Tests/unit/ScriptedSMC.h"

namespace korvel {
namespace {

using test::reopened;
using test::reopenFailed;
using testing::ElementsAre;
using testing::IsEmpty;

class SMCWriterTest : public testing::Test {
 protected:
  SMCWriterTest() {
    smc.add("CHTE", 4);
    smc.add("CH0B", 1);
    smc.add("TWOB", 2);
  }
  SMCWriter opened() { return SMCWriter(smc, Logger(log, "SMCWriter")); }
  static std::string errorOf(const WriterResult& result) {
    return result ? "success" : result.error().description();
  }
  static std::string errorOf(const std::expected<ByteList, WriterError>& result) {
    return result ? decimalList(*result) : result.error().description();
  }
  static std::string outcomeOf(const VerifiedWrite& written) {
    return errorOf(written.result) + (written.verified ? ", verified" : ", not verified");
  }

  test::FakeLog log;
  test::ScriptedSMC smc;
};

TEST_F(SMCWriterTest, OpensOneConnectionForItsLife) {
  {
    const SMCWriter writer = opened();
    EXPECT_EQ(smc.connections(), 1U);
    EXPECT_EQ(smc.services(), 0U);
  }
  EXPECT_THAT(smc.calls, ElementsAre("match", "open", "close"));
  EXPECT_EQ(smc.connections(), 0U);
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SMCWriterTest, AMissingServiceIsLoggedAndLeavesItUnconnected) {
  smc.answers[1] = {ioReturnNoDevice};
  {
    const SMCWriter writer = opened();
  }
  EXPECT_THAT(smc.calls, ElementsAre("match"));
  EXPECT_THAT(log.lines, ElementsAre("fault SMCWriter: AppleSMC service not found at init"));
}

TEST_F(SMCWriterTest, ARefusedOpenIsLoggedAndTheServiceReleased) {
  smc.answers[2] = {ioReturnNotPrivileged};
  {
    const SMCWriter writer = opened();
  }
  EXPECT_THAT(smc.calls, ElementsAre("match", "open"));
  EXPECT_EQ(smc.services(), 0U);
  EXPECT_THAT(log.lines,
              ElementsAre("fault SMCWriter: IOServiceOpen(AppleSMC) failed: -536870207"));
}

TEST_F(SMCWriterTest, ReadGivesTheKeysBytes) {
  smc.add("CHTE", 4, {1, 2, 3, 4});
  SMCWriter writer = opened();
  EXPECT_EQ(writer.readKey("CHTE"), (ByteList{1, 2, 3, 4}));
  EXPECT_THAT(smc.calls, ElementsAre("match", "open", "info CHTE", "read CHTE"));
}

TEST_F(SMCWriterTest, ReadOfAKeyLargerThanTheBlockGivesThirtyTwoBytes) {
  ByteList bytes;
  for (std::uint8_t value = 1; value <= 40; ++value) bytes.push_back(value);
  smc.add("BIGK", 40, bytes);
  SMCWriter writer = opened();
  bytes.resize(32);
  EXPECT_EQ(writer.readKey("BIGK"), bytes);
}

TEST_F(SMCWriterTest, ReadOfAnEmptyKeyGivesNothing) {
  smc.add("NONE", 0);
  SMCWriter writer = opened();
  EXPECT_EQ(writer.readKey("NONE"), ByteList{});
}

TEST_F(SMCWriterTest, KeyInfoIsAskedOnceAConnection) {
  SMCWriter writer = opened();
  smc.forgetCalls();
  EXPECT_TRUE(writer.readKey("CHTE"));
  EXPECT_TRUE(writer.readKey("CHTE"));
  EXPECT_TRUE(writer.writeKey("CHTE", ByteList{1}));
  EXPECT_THAT(smc.calls,
              ElementsAre("info CHTE", "read CHTE", "read CHTE", "write CHTE [1, 0, 0, 0]"));
}

TEST_F(SMCWriterTest, WriteIsLoggedWithTheBytesThatWereAskedFor) {
  SMCWriter writer = opened();
  EXPECT_TRUE(writer.writeKey("CHTE", ByteList{1, 0}));
  EXPECT_EQ(smc.held("CHTE"), (ByteList{1, 0, 0, 0}));
  EXPECT_THAT(log.lines, ElementsAre("default SMCWriter: SMC write CHTE bytes=[1, 0]"));
}

TEST_F(SMCWriterTest, AShortPayloadIsPaddedWithZeros) {
  smc.add("TWOB", 2, {9, 9});
  SMCWriter writer = opened();
  EXPECT_TRUE(writer.writeKey("TWOB", ByteList{80}));
  EXPECT_EQ(smc.held("TWOB"), (ByteList{80, 0}));
}

TEST_F(SMCWriterTest, ALongPayloadIsRefusedBeforeAnythingIsSent) {
  SMCWriter writer = opened();
  smc.forgetCalls();
  EXPECT_EQ(errorOf(writer.writeKey("TWOB", ByteList{1, 2, 3})),
            "Payload size mismatch (expected=2, actual=3)");
  EXPECT_THAT(smc.calls, ElementsAre("info TWOB"));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SMCWriterTest, AnEmptyPayloadWritesZeros) {
  smc.add("CH0B", 1, {2});
  SMCWriter writer = opened();
  EXPECT_TRUE(writer.writeKey("CH0B", {}));
  EXPECT_EQ(smc.held("CH0B"), ByteList{0});
  EXPECT_THAT(log.lines, ElementsAre("default SMCWriter: SMC write CH0B bytes=[]"));
}

TEST_F(SMCWriterTest, BytesPastTheBlocksPayloadAreDropped) {
  smc.add("BIGK", 40);
  SMCWriter writer = opened();
  const ByteList payload(40, 7);
  EXPECT_TRUE(writer.writeKey("BIGK", payload));
  ByteList expected(40);
  std::fill_n(expected.begin(), 32, std::uint8_t{7});
  EXPECT_EQ(smc.held("BIGK"), expected);
}

TEST_F(SMCWriterTest, ForbiddenKeysAreRefusedLoudlyAndNeverSent) {
  SMCWriter writer = opened();
  smc.forgetCalls();
  for (const std::string key : {"BCLM", "CHWA", "DISC"}) {
    log.lines.clear();
    EXPECT_EQ(errorOf(writer.writeKey(key, ByteList{1})),
              "Refused to write forbidden SMC key " + key);
    EXPECT_THAT(log.lines, ElementsAre("fault SMCWriter: Refused to write forbidden SMC key " +
                                       key + " — FR-017"));
  }
  EXPECT_THAT(smc.calls, IsEmpty());
}

TEST_F(SMCWriterTest, VerifiedWritesRefuseForbiddenKeysSilently) {
  SMCWriter writer = opened();
  smc.forgetCalls();
  for (const std::string key : {"BCLM", "CHWA", "DISC"}) {
    EXPECT_EQ(outcomeOf(writer.writeKeyAndVerify(key, ByteList{1})),
              "Refused to write forbidden SMC key " + key + ", not verified");
  }
  EXPECT_THAT(smc.calls, IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SMCWriterTest, ForbiddenKeysAreRefusedWithoutAConnectionToo) {
  smc.answers[1] = {ioReturnNoDevice};
  SMCWriter writer = opened();
  smc.forgetCalls();
  EXPECT_EQ(errorOf(writer.writeKey("BCLM", ByteList{1})),
            "Refused to write forbidden SMC key BCLM");
  EXPECT_THAT(smc.calls, IsEmpty());
}

TEST_F(SMCWriterTest, ForbiddenKeysMayBeRead) {
  smc.add("BCLM", 1, {100});
  SMCWriter writer = opened();
  EXPECT_EQ(writer.readKey("BCLM"), ByteList{100});
}

TEST_F(SMCWriterTest, AMissingKeyIsNamedAndAskedForAgain) {
  SMCWriter writer = opened();
  smc.forgetCalls();
  EXPECT_EQ(errorOf(writer.readKey("CHIE")), "SMC key CHIE not found on this host");
  EXPECT_EQ(errorOf(writer.writeKey("CHIE", ByteList{0})), "SMC key CHIE not found on this host");
  EXPECT_THAT(smc.calls, ElementsAre("info CHIE", "info CHIE"));
  smc.add("CHIE", 1);
  EXPECT_TRUE(writer.writeKey("CHIE", ByteList{0}));
}

TEST_F(SMCWriterTest, AnotherKeyInfoResultIsAFailureWithoutItsNumber) {
  SMCWriter writer = opened();
  for (const int result : {1, 131, 133, 255}) {
    smc.answersByCommand["info"] = {kernSuccess, static_cast<std::uint8_t>(result)};
    EXPECT_EQ(errorOf(writer.readKey("CHTE")), "kSMCGetKeyInfo failed (kIOReturn=0)") << result;
  }
}

TEST_F(SMCWriterTest, ARefusedReadReportsThroughTheWriteError) {
  SMCWriter writer = opened();
  smc.answersByCommand["read"] = {kernSuccess, 132};
  EXPECT_EQ(errorOf(writer.readKey("CHTE")), "kSMCWriteKey failed (kIOReturn=0, smcResult=132)");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SMCWriterTest, ARefusedWriteIsLoggedWithItsResult) {
  SMCWriter writer = opened();
  smc.answersByCommand["write"] = {kernSuccess, 133};
  EXPECT_EQ(errorOf(writer.writeKey("CHTE", ByteList{1})),
            "kSMCWriteKey failed (kIOReturn=0, smcResult=133)");
  EXPECT_THAT(log.lines, ElementsAre("fault SMCWriter: kSMCWriteKey CHTE smcResult=133"));
}

TEST_F(SMCWriterTest, AFailedWriteCallIsLoggedAndCarriesTheResultByte) {
  SMCWriter writer = opened();
  smc.answersByCommand["write"] = {ioReturnError, 7};
  EXPECT_EQ(errorOf(writer.writeKey("CHTE", ByteList{1})),
            "kSMCWriteKey failed (kIOReturn=-536870212, smcResult=7)");
  EXPECT_THAT(log.lines,
              ElementsAre("fault SMCWriter: kSMCWriteKey CHTE IOConnect failed: -536870212"));
}

TEST_F(SMCWriterTest, VerifiedWriteOfTheHeldValueWritesNothing) {
  smc.add("CHTE", 4, {1, 0, 0, 0});
  SMCWriter writer = opened();
  smc.forgetCalls();
  EXPECT_EQ(outcomeOf(writer.writeKeyAndVerify("CHTE", ByteList{1, 0, 0, 0})), "success, verified");
  EXPECT_THAT(smc.calls, ElementsAre("info CHTE", "read CHTE"));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SMCWriterTest, VerifiedWriteReadsWritesAndReadsBack) {
  SMCWriter writer = opened();
  smc.forgetCalls();
  EXPECT_EQ(outcomeOf(writer.writeKeyAndVerify("CHTE", ByteList{1, 0, 0, 0})), "success, verified");
  EXPECT_THAT(smc.calls,
              ElementsAre("info CHTE", "read CHTE", "write CHTE [1, 0, 0, 0]", "read CHTE"));
}

TEST_F(SMCWriterTest, AWriteThatReadsBackDifferentlyIsASuccessNotVerified) {
  smc.controller().key("CHTE")->silentlyRefuses = true;
  SMCWriter writer = opened();
  EXPECT_EQ(outcomeOf(writer.writeKeyAndVerify("CHTE", ByteList{1, 0, 0, 0})),
            "success, not verified");
}

TEST_F(SMCWriterTest, AByteBehindTheWrittenOnesMakesAReadBackUnverified) {
  smc.add("TWOB", 2, {80, 1});
  smc.controller().key("TWOB")->silentlyRefuses = true;
  SMCWriter writer = opened();
  EXPECT_EQ(outcomeOf(writer.writeKeyAndVerify("TWOB", ByteList{80})), "success, not verified");
}

TEST_F(SMCWriterTest, AFailedVerifiedWriteIsNotVerified) {
  SMCWriter writer = opened();
  smc.answersByCommand["write"] = {kernSuccess, 1};
  EXPECT_EQ(outcomeOf(writer.writeKeyAndVerify("CHTE", ByteList{1})),
            "kSMCWriteKey failed (kIOReturn=0, smcResult=1), not verified");
}

TEST_F(SMCWriterTest, WithoutAnSMCEveryOperationTriesToReopenAndReportsItsAbsence) {
  smc.answers[1] = {ioReturnNoDevice};
  SMCWriter writer = opened();
  log.lines.clear();
  smc.forgetCalls();
  for (std::size_t number = 1; number <= 5; ++number) smc.answers[number] = {ioReturnNoDevice};
  EXPECT_EQ(errorOf(writer.readKey("CHTE")), "AppleSMC service unavailable");
  EXPECT_EQ(errorOf(writer.writeKey("CHTE", ByteList{1})), "AppleSMC service unavailable");
  EXPECT_FALSE(writer.isPresent("CHTE"));
  EXPECT_EQ(outcomeOf(writer.writeKeyAndVerify("CHTE", ByteList{1})),
            "AppleSMC service unavailable, not verified");
  EXPECT_THAT(smc.calls, ElementsAre("match", "match", "match", "match", "match"));
  EXPECT_EQ(log.lines.size(), 10U);
  EXPECT_THAT((std::vector<std::string>(log.lines.begin(), log.lines.begin() + 2)),
              ElementsAre("fault SMCWriter: AppleSMC service not found at init", reopenFailed));
}

TEST_F(SMCWriterTest, AnSMCThatAppearsIsFoundByTheNextOperation) {
  smc.answers[1] = {ioReturnNoDevice};
  SMCWriter writer = opened();
  log.lines.clear();
  EXPECT_EQ(errorOf(writer.readKey("CH0B")), "[0]");
  EXPECT_THAT(log.lines, ElementsAre(reopened));
}

TEST_F(SMCWriterTest, PresenceNeedsOnlyTheKeyInfo) {
  SMCWriter writer = opened();
  smc.forgetCalls();
  EXPECT_TRUE(writer.isPresent("CHTE"));
  EXPECT_FALSE(writer.isPresent("CHIE"));
  EXPECT_THAT(smc.calls, ElementsAre("info CHTE", "info CHIE"));
}

TEST(MatchRuleTest, ReadBytesMustBeginWithTheWrittenOnesAndGoOnWithZeros) {
  using Bytes = ByteList;
  EXPECT_TRUE(matches(Bytes{0x50, 0x00}, Bytes{0x50}));
  EXPECT_TRUE(matches(Bytes{0x50}, Bytes{0x50}));
  EXPECT_TRUE(matches(Bytes{0, 0}, Bytes{}));
  EXPECT_TRUE(matches(Bytes{1, 2, 0, 0, 0}, Bytes{1, 2}));
  EXPECT_FALSE(matches(Bytes{0x50, 0x01}, Bytes{0x50}));
  EXPECT_FALSE(matches(Bytes{1, 2, 0, 0, 1}, Bytes{1, 2}));
  EXPECT_FALSE(matches(Bytes{1}, Bytes{1, 0}));
  EXPECT_FALSE(matches(Bytes{2, 0}, Bytes{1, 0}));
  EXPECT_FALSE(matches(Bytes{}, Bytes{}));
  EXPECT_FALSE(matches(Bytes{}, Bytes{1}));
  EXPECT_FALSE(matches(Bytes{1}, Bytes{}));
}

// Every pair of lists of up to three bytes from a small alphabet, against the rule in words.
TEST(MatchRuleTest, EveryShortPairFollowsTheRule) {
  std::vector<ByteList> lists = {{}};
  for (std::size_t index = 0; lists[index].size() < 3; ++index) {
    for (const int value : {0, 1, 80}) {
      ByteList longer = lists[index];
      longer.push_back(static_cast<std::uint8_t>(value));
      lists.push_back(longer);
    }
  }
  ASSERT_EQ(lists.size(), 1U + 3U + 9U + 27U);
  for (const ByteList& read : lists) {
    for (const ByteList& written : lists) {
      ByteList padded = written;
      if (padded.size() < read.size()) padded.resize(read.size());
      EXPECT_EQ(matches(read, written), !read.empty() && read == padded)
          << decimalList(read) << " " << decimalList(written);
    }
  }
}

}  // namespace
}  // namespace korvel
