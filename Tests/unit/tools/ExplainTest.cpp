#include "VirtualMac/Tools/Explain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <nlohmann/json.hpp>

#include "HelperPersistence.h"
#include "HelperRecords.h"
#include "PowerUIChargeBackend.h"
#include "SMCWriter.h"

namespace virtualmac {
namespace {

using korvel::WriterError;
using testing::AllOf;
using testing::Contains;
using testing::Field;
using testing::HasSubstr;
using testing::Not;

/// The texts and codes in a line; a line that is none of the log's is a failure.
std::vector<ExplainedPart> partsOf(const std::string& line) {
  const auto found = explain(line);
  if (!found) {
    ADD_FAILURE() << found.error();
    return {};
  }
  return found->parts;
}

std::string errorOf(const std::string& line) {
  const auto found = explain(line);
  return found ? "explained as " + found->message->format : found.error();
}

TEST(ExplainTest, EveryReasonOfTheHardwareIsExplained) {
  const std::vector<WriterError> all = {
      WriterError::ForbiddenKey{"BCLM"},
      WriterError::KeyInfoFailed{-536870212},
      WriterError::KeyNotFound{"CHTE"},
      WriterError::WriteFailed{0, 134},
      WriterError::PayloadSizeMismatch{1, 4},
      WriterError::OutOfRange{7},
      WriterError::NativeControlFailed{"PowerUI rejected charge limit 80"},
      WriterError::SMCUnavailable{}};
  ASSERT_EQ(all.size(), std::variant_size_v<WriterError::Case>);
  for (std::size_t index = 0; index < all.size(); ++index) {
    ASSERT_EQ(all[index].which().index(), index);
    const std::string reason = all[index].description();
    EXPECT_THAT(partsOf("resetAll: CHTE failed — " + reason),
                Contains(Field(&ExplainedPart::text, reason)));
  }
}

TEST(ExplainTest, EveryReasonOfTheSystemsOwnLimitIsExplained) {
  using Error = korvel::PowerUIChargeBackend::BackendError;
  for (const Error& error :
       {Error(Error::Rejected{80}), Error(Error::ObjcCallFailed{"3 errors"})}) {
    const std::string reason = error.description();
    const auto parts = partsOf("PowerUI native charge write failed: " + reason);
    EXPECT_THAT(parts, Contains(Field(&ExplainedPart::text, reason)));
    EXPECT_THAT(parts, Not(Contains(Field(&ExplainedPart::source, Not("")))));
  }
}

TEST(ExplainTest, EveryReasonOfTheRecordIsExplainedWithItsCode) {
  using Error = korvel::HelperPersistence::PersistenceError;
  for (const auto kind : {Error::Kind::DirectoryCreate, Error::Kind::Write, Error::Kind::Rename,
                          Error::Kind::Verify}) {
    const korvel::ErrorObject full{"NSPOSIXErrorDomain", 28, {}};
    const std::string reason = Error{kind, full}.description();
    const auto parts = partsOf("persistence.write failed: " + reason);
    EXPECT_THAT(parts, Contains(Field(&ExplainedPart::text, reason)));
    EXPECT_THAT(parts, Contains(AllOf(Field(&ExplainedPart::text, "28"),
                                      Field(&ExplainedPart::name, "`ENOSPC`"))));
  }
}

TEST(ExplainTest, EveryDefectOfAStateFileIsExplained) {
  for (const char* file : {"{", "[]", "{}", R"({"chargeLimit": "80"})"}) {
    const auto state = korvel::decodeStateFile(file);
    ASSERT_FALSE(state) << file;
    EXPECT_THAT(partsOf("state.json corrupt — " + state.error() +
                        "; continuing with empty defaults until next setChargeLimit"),
                Contains(Field(&ExplainedPart::text, state.error())));
  }
}

TEST(ExplainTest, AReasonWithinAReasonIsExplainedToTheCode) {
  const auto parts = partsOf(
      "charge enforcement resume:kSMCWriteKey failed (kIOReturn=-536870208, smcResult=9) — limit "
      "is "
      "NOT being applied");
  ASSERT_EQ(parts.size(), 4U);
  EXPECT_THAT(parts[0].meaning, HasSubstr("resumed"));
  EXPECT_EQ(parts[1].text, "kSMCWriteKey failed (kIOReturn=-536870208, smcResult=9)");
  EXPECT_THAT(parts[2].name, HasSubstr("kIOReturnNoDevice"));
  EXPECT_EQ(parts[3].source, "Results of the SMC");
  EXPECT_EQ(parts[3].name, "") << "it is none that was foreseen";
  EXPECT_THAT(parts[3].meaning, HasSubstr("none that was foreseen"));
}

TEST(ExplainTest, WhyADischargeStoppedIsToldInThePersonsWords) {
  const auto parts = partsOf("force-discharge auto-stopped: reason=lidClosed");
  ASSERT_EQ(parts.size(), 1U);
  EXPECT_THAT(parts[0].meaning, HasSubstr("closing the lid is unsafe"));
}

TEST(ExplainTest, OfTwoMessagesThatFitTheMoreExactIsMeant) {
  const auto found = explain("resetAll: native limit restore failed — PowerUI call failed: no");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->message->format, "resetAll: native limit restore failed — %{public}s");
  const auto outcome = explain(R"(1.000 log   HelperImpl default "charge enforcement pause:ok")");
  ASSERT_TRUE(outcome);
  EXPECT_EQ(outcome->message->format, "charge enforcement %{public}s");
}

TEST(ExplainTest, AnUnknownLineNamesTheNearestMessages) {
  EXPECT_THAT(errorOf("clamshell keep-awake ARMD"),
              AllOf(HasSubstr("no message of the helper's log fits \"clamshell keep-awake ARMD\""),
                    HasSubstr("nearest: \"clamshell keep-awake ARMED\" (HelperImpl)")));
  EXPECT_THAT(errorOf("zzz"), HasSubstr("no message is near to it"));
  EXPECT_THAT(errorOf(""), HasSubstr("no message is near to it"));
  EXPECT_THAT(errorOf("1.000 smc   CHTE <- 01"), HasSubstr("the journal's kind smc"));
  EXPECT_THAT(errorOf(std::string(20000, 'a')), HasSubstr("20000 bytes"));
}

TEST(ExplainTest, AProgramGetsOneObject) {
  const auto found = explain("kSMCWriteKey CHTE smcResult=134");
  ASSERT_TRUE(found);
  const nlohmann::ordered_json object = explanationJSON(*found);
  EXPECT_EQ(object["ok"], true);
  EXPECT_EQ(object["category"], "SMCWriter");
  EXPECT_EQ(object["level"], "fault");
  EXPECT_EQ(object["message"], "kSMCWriteKey %{public}s smcResult=%hhu");
  ASSERT_EQ(object["parts"].size(), 1U);
  EXPECT_EQ(object["parts"][0]["name"], "not writable");
  EXPECT_THAT(explanationText(*found), HasSubstr("134 is not writable (Results of the SMC)\n"));
}

}  // namespace
}  // namespace virtualmac
