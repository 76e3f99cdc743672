#include "KorvelHelperProtocol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "SMCWriter.h"

namespace korvel {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

TEST(ProtocolTest, PublishedIdentifiersAreThoseThatClientsKnow) {
  EXPECT_EQ(KorvelHelperMachServiceName, "com.korvel.app.helper");
  EXPECT_EQ(KorvelHelperBundleIdentifier, "com.korvel.app.helper");
  EXPECT_EQ(KorvelAppBundleIdentifier, "com.korvel.app");
}

TEST(ProtocolTest, ErrorCodesAreThoseThatClientsKnow) {
  EXPECT_EQ(KorvelHelperError::domain, "KorvelHelperError");
  EXPECT_EQ(KorvelHelperError::codeOutOfRange, 400);
  EXPECT_EQ(KorvelHelperError::codeSMCWriteFailed, 500);
  EXPECT_EQ(KorvelHelperError::codePMAssertionFailed, 501);
  EXPECT_EQ(KorvelHelperError::codePersistenceFailed, 502);
  EXPECT_EQ(KorvelHelperError::codeUnsupportedCapability, 503);
}

TEST(ProtocolTest, SelectorsAreThoseThatClientsCall) {
  namespace Selector = KorvelHelperSelector;
  EXPECT_THAT(
      (std::vector<std::string_view>{
          Selector::ping, Selector::capabilities, Selector::setChargeLimit,
          Selector::clearChargeLimit, Selector::forceDischarge, Selector::setClamshellKeepAwake,
          Selector::releaseLimitUntilFullThenRestore, Selector::cancelTopUp, Selector::getState,
          Selector::resetAllSMCKeys, Selector::quit}),
      ElementsAre(
          "pingWithReply:", "capabilitiesWithReply:", "setChargeLimit:reply:",
          "clearChargeLimitWithReply:", "forceDischarge:reply:", "setClamshellKeepAwake:reply:",
          "releaseLimitUntilFullThenRestoreWithReply:", "cancelTopUpWithReply:",
          "getStateWithReply:", "resetAllSMCKeysWithReply:", "quit"));
}

TEST(ProtocolTest, AFreshInterfaceHasNoSettings) {
  const XPCInterface interface = makeHelperInterface();
  EXPECT_EQ(interface.protocolName, "KorvelHelperProtocol");
  EXPECT_TRUE(interface.replyClasses.empty());
}

TEST(ProtocolTest, ReplyClassesAreSetInTheirFixedOrder) {
  XPCInterface interface = makeHelperInterface();
  applyTypedReplyClasses(interface);
  const std::vector<ReplyClass> data = {ReplyClass::Data};
  const std::vector<ReplyClass> error = {ReplyClass::Error, ReplyClass::String, ReplyClass::Number,
                                         ReplyClass::Dictionary};
  using Row = std::tuple<std::string, unsigned, std::vector<ReplyClass>>;
  std::vector<Row> rows;
  for (const ReplyClassSetting& setting : interface.replyClasses) {
    rows.emplace_back(std::string(setting.selector), setting.argumentIndex, setting.classes);
  }
  EXPECT_THAT(rows, ElementsAreArray(
                        std::vector<Row>{{"capabilitiesWithReply:", 0, data},
                                         {"getStateWithReply:", 0, data},
                                         {"setChargeLimit:reply:", 1, error},
                                         {"clearChargeLimitWithReply:", 1, error},
                                         {"forceDischarge:reply:", 1, error},
                                         {"releaseLimitUntilFullThenRestoreWithReply:", 1, error},
                                         {"resetAllSMCKeysWithReply:", 1, error},
                                         {"cancelTopUpWithReply:", 1, error}}));
}

TEST(ProtocolTest, KeepAwakeRepliesKeepTheDefaultClasses) {
  XPCInterface interface = makeHelperInterface();
  applyTypedReplyClasses(interface);
  ASSERT_EQ(interface.replyClasses.size(), 8U);
  for (const ReplyClassSetting& setting : interface.replyClasses) {
    EXPECT_NE(setting.selector, "setClamshellKeepAwake:reply:");
  }
}

TEST(MakeErrorTest, CarriesDomainCodeAndMessage) {
  const ErrorObject error = makeError(400, "out of range", {});
  EXPECT_EQ(error.domain, "KorvelHelperError");
  EXPECT_EQ(error.code, 400);
  EXPECT_EQ(error.userInfo,
            (PropertyValue::Dictionary{{"NSLocalizedDescription", "out of range"}}));
  EXPECT_EQ(error.localizedDescription(), "out of range");
}

TEST(MakeErrorTest, CopiesEveryDetail) {
  const ErrorObject error = makeError(500, "message", {{"smcResult", 133}, {"note", "text"}});
  EXPECT_EQ(error.userInfo,
            (PropertyValue::Dictionary{
                {"NSLocalizedDescription", "message"}, {"smcResult", 133}, {"note", "text"}}));
}

TEST(MakeErrorTest, AGivenDescriptionWinsOverTheMessage) {
  const ErrorObject error = makeError(400, "message", {{"NSLocalizedDescription", "given"}});
  EXPECT_EQ(error.localizedDescription(), "given");
  EXPECT_EQ(error.userInfo.size(), 1U);
}

struct ErrorCase {
  WriterError error;
  std::int64_t code;
  std::string text;
};

std::vector<ErrorCase> everyWriterError() {
  return {
      {WriterError::ForbiddenKey{"BCLM"}, 500, "Refused to write forbidden SMC key BCLM"},
      {WriterError::KeyInfoFailed{ioReturnNotOpen}, 500,
       "kSMCGetKeyInfo failed (kIOReturn=-536870195)"},
      {WriterError::KeyNotFound{"CHTE"}, 503, "SMC key CHTE not found on this host"},
      {WriterError::WriteFailed{ioReturnError, 133}, 500,
       "kSMCWriteKey failed (kIOReturn=-536870212, smcResult=133)"},
      {WriterError::PayloadSizeMismatch{2, 3}, 500, "Payload size mismatch (expected=2, actual=3)"},
      {WriterError::OutOfRange{19}, 400, "Charge limit 19 outside [20, 100]"},
      {WriterError::NativeControlFailed{"why"}, 500, "Native charge control failed: why"},
      {WriterError::SMCUnavailable{}, 503, "AppleSMC service unavailable"}};
}

TEST(SMCErrorTest, EveryCaseHasItsDescription) {
  for (const ErrorCase& row : everyWriterError()) EXPECT_EQ(row.error.description(), row.text);
}

TEST(SMCErrorTest, EveryCaseHasItsCodeAndItsDescriptionAsText) {
  for (const ErrorCase& row : everyWriterError()) {
    const ErrorObject error = smcNSError(row.error);
    EXPECT_EQ(error.domain, "KorvelHelperError");
    EXPECT_EQ(error.code, row.code) << row.text;
    EXPECT_EQ(error.localizedDescription(), row.text);
  }
}

TEST(SMCErrorTest, OnlyAFailedWriteCarriesItsSMCResultAsANumber) {
  for (const ErrorCase& row : everyWriterError()) {
    const ErrorObject error = smcNSError(row.error);
    const bool failedWrite = std::holds_alternative<WriterError::WriteFailed>(row.error.which());
    EXPECT_EQ(error.userInfo.size(), failedWrite ? 2U : 1U) << row.text;
    EXPECT_EQ(PropertyValue(error.userInfo)["smcResult"],
              failedWrite ? PropertyValue(133) : PropertyValue())
        << row.text;
  }
}

}  // namespace
}  // namespace korvel
