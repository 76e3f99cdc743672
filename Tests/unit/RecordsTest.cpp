#include "HelperRecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "Base/ErrorObject.h"
#include "Tests/unit/SampleStates.h"

namespace korvel {
namespace {

using test::fullState;
using testing::ElementsAreArray;
using testing::HasSubstr;

TEST(HelperStateTest, TheEmptyRecordIsThatOfAFreshInstall) {
  const HelperState& state = HelperState::empty();
  EXPECT_EQ(state.chargeLimit, 80);
  EXPECT_EQ(state.sailingBand, 5);
  EXPECT_FALSE(state.forceDischargeActive);
  EXPECT_FALSE(state.heatPauseActive);
  EXPECT_EQ(state.lastWriteAt, Date::distantPast());
  EXPECT_TRUE(state.lastWriteVerified);
  EXPECT_EQ(state.lastDischargeAbortReason, std::nullopt);
  EXPECT_EQ(state.lastDischargeAbortAt, std::nullopt);
  EXPECT_FALSE(state.topUpActive);
  EXPECT_FALSE(state.sleepDisabledByKorvel);
  EXPECT_EQ(state.helperVersion, std::nullopt);
}

TEST(HelperStateTest, TheEmptyRecordIsOneSharedConstant) {
  EXPECT_EQ(&HelperState::empty(), &HelperState::empty());
}

TEST(HelperStateTest, EqualityComparesEveryField) {
  const std::vector<void (*)(HelperState&)> changes = {
      [](HelperState& state) { state.chargeLimit = 81; },
      [](HelperState& state) { state.sailingBand = 6; },
      [](HelperState& state) { state.forceDischargeActive = true; },
      [](HelperState& state) { state.heatPauseActive = true; },
      [](HelperState& state) { state.lastWriteAt = Date{0}; },
      [](HelperState& state) { state.lastWriteVerified = false; },
      [](HelperState& state) { state.lastDischargeAbortReason = "reason"; },
      [](HelperState& state) { state.lastDischargeAbortAt = Date{0}; },
      [](HelperState& state) { state.topUpActive = true; },
      [](HelperState& state) { state.sleepDisabledByKorvel = true; },
      [](HelperState& state) { state.helperVersion = "2.0.0"; }};
  for (std::size_t index = 0; index < changes.size(); ++index) {
    HelperState changed;
    EXPECT_EQ(changed, HelperState::empty());
    changes[index](changed);
    EXPECT_NE(changed, HelperState::empty()) << "field " << index;
  }
}

TEST(HelperCapabilitiesTest, NoneHasNothing) {
  EXPECT_EQ(HelperCapabilities::none(), (HelperCapabilities{false, false, false, false, false}));
  EXPECT_FALSE(HelperCapabilities::none().canControlCharging());
  EXPECT_FALSE(HelperCapabilities::none().canForceDischarge());
}

TEST(HelperCapabilitiesTest, DerivedAbilitiesFollowFromTheFiveFlags) {
  for (unsigned bits = 0; bits < 32; ++bits) {
    const HelperCapabilities caps{(bits & 1U) != 0, (bits & 2U) != 0, (bits & 4U) != 0,
                                  (bits & 8U) != 0, (bits & 16U) != 0};
    EXPECT_EQ(caps.canControlCharging(), (bits & 0b10011U) != 0) << bits;
    EXPECT_EQ(caps.canForceDischarge(), (bits & 0b01100U) != 0) << bits;
  }
}

TEST(ResetWritesTest, EveryChargingKeyIsPutBackInOrder) {
  std::vector<std::pair<std::string, ByteList>> rows;
  for (const ResetWrite& reset : resetWrites()) rows.emplace_back(reset.key, reset.bytes);
  EXPECT_THAT(rows,
              ElementsAreArray(std::vector<std::pair<std::string, ByteList>>{{"CHTE", {0, 0, 0, 0}},
                                                                             {"CH0B", {0}},
                                                                             {"CH0C", {0}},
                                                                             {"CHIE", {0}},
                                                                             {"CH0I", {0}},
                                                                             {"CH0J", {0}}}));
}

TEST(StateReplyTest, TheEmptyRecordIsCompactWithoutItsAbsentFields) {
  EXPECT_EQ(encodeReply(HelperState::empty()),
            R"({"chargeLimit":80,"sailingBand":5,"forceDischargeActive":false,)"
            R"("heatPauseActive":false,"lastWriteAt":-63114076800,"lastWriteVerified":true,)"
            R"("topUpActive":false,"sleepDisabledByKorvel":false})");
}

TEST(StateReplyTest, AFullRecordHasEveryFieldUnderItsName) {
  EXPECT_EQ(encodeReply(fullState()),
            R"({"chargeLimit":75,"sailingBand":7,"forceDischargeActive":true,)"
            R"("heatPauseActive":true,"lastWriteAt":800000000,"lastWriteVerified":false,)"
            R"("lastDischargeAbortReason":"Stopped — \"lid\" \/ closed",)"
            R"("lastDischargeAbortAt":-1,"topUpActive":true,)"
            R"("sleepDisabledByKorvel":true,"helperVersion":"2.0.0"})");
}

TEST(StateReplyTest, DatesKeepTheirFractions) {
  HelperState state;
  state.lastWriteAt = Date{0.1};
  EXPECT_THAT(encodeReply(state), HasSubstr(R"("lastWriteAt":0.1,)"));
  state.lastWriteAt = Date{785000000.123456};
  EXPECT_THAT(encodeReply(state), HasSubstr(R"("lastWriteAt":785000000.123456,)"));
  state.lastWriteAt = Date{100000};
  EXPECT_THAT(encodeReply(state), HasSubstr(R"("lastWriteAt":100000,)"));
  state.lastWriteAt = Date{0};
  EXPECT_THAT(encodeReply(state), HasSubstr(R"("lastWriteAt":0,)"));
}

TEST(StateReplyTest, ADateThatIsNoNumberMakesNoReply) {
  HelperState state;
  state.lastWriteAt = Date{std::numeric_limits<double>::quiet_NaN()};
  EXPECT_EQ(encodeReply(state), "");
  EXPECT_EQ(encodeFile(state), "");
  state = {};
  state.lastDischargeAbortAt = Date{std::numeric_limits<double>::infinity()};
  EXPECT_EQ(encodeReply(state), "");
  EXPECT_EQ(encodeFile(state), "");
}

TEST(StateFileTest, TheEmptyRecordIsPrettyAndSorted) {
  EXPECT_EQ(encodeFile(HelperState::empty()),
            "{\n"
            "  \"chargeLimit\" : 80,\n"
            "  \"forceDischargeActive\" : false,\n"
            "  \"heatPauseActive\" : false,\n"
            "  \"lastWriteAt\" : \"0001-01-01T00:00:00Z\",\n"
            "  \"lastWriteVerified\" : true,\n"
            "  \"sailingBand\" : 5,\n"
            "  \"sleepDisabledByKorvel\" : false,\n"
            "  \"topUpActive\" : false\n"
            "}");
}

TEST(StateFileTest, AFullRecordHasElevenSortedKeys) {
  EXPECT_EQ(encodeFile(fullState()),
            "{\n"
            "  \"chargeLimit\" : 75,\n"
            "  \"forceDischargeActive\" : true,\n"
            "  \"heatPauseActive\" : true,\n"
            "  \"helperVersion\" : \"2.0.0\",\n"
            "  \"lastDischargeAbortAt\" : \"2000-12-31T23:59:59Z\",\n"
            "  \"lastDischargeAbortReason\" : \"Stopped — \\\"lid\\\" \\/ closed\",\n"
            "  \"lastWriteAt\" : \"2026-05-09T06:13:20Z\",\n"
            "  \"lastWriteVerified\" : false,\n"
            "  \"sailingBand\" : 7,\n"
            "  \"sleepDisabledByKorvel\" : true,\n"
            "  \"topUpActive\" : true\n"
            "}");
}

std::string encodedReason(std::string reason) {
  HelperState state;
  state.lastDischargeAbortReason = std::move(reason);
  const std::string text = encodeReply(state);
  const std::string opening = R"("lastDischargeAbortReason":)";
  const std::size_t begin = text.find(opening) + opening.size();
  return text.substr(begin, text.find(R"(,"topUpActive")") - begin);
}

TEST(JSONTextTest, OnlyWhatMustBeEscapedIs) {
  EXPECT_EQ(encodedReason("a/b"), R"("a\/b")");
  EXPECT_EQ(encodedReason(R"(quote " backslash \)"), R"("quote \" backslash \\")");
  EXPECT_EQ(encodedReason("\b\f\n\r\t"), R"("\b\f\n\r\t")");
  EXPECT_EQ(encodedReason(std::string("\x01\x1f\0", 3)), R"("\u0001\u001f\u0000")");
  EXPECT_EQ(encodedReason("\x7f é — 🔋"), "\"\x7f é — 🔋\"");
  EXPECT_EQ(encodedReason(""), R"("")");
}

TEST(JSONTextTest, BytesThatAreNoTextAreReplaced) {
  const std::string encoded = encodedReason("a\xff\xc3z");
  EXPECT_EQ(encoded, "\"a\uFFFD\uFFFDz\"");
}

TEST(CapabilitiesReplyTest, AllFiveFlagsAreAlwaysThere) {
  EXPECT_EQ(encodeReply(HelperCapabilities::none()),
            R"({"tahoeCharging":false,"preTahoeCharging":false,"tahoeDischarge":false,)"
            R"("preTahoeDischarge":false,"nativeCharging":false})");
  EXPECT_EQ(encodeReply(HelperCapabilities{true, false, true, false, true}),
            R"({"tahoeCharging":true,"preTahoeCharging":false,"tahoeDischarge":true,)"
            R"("preTahoeDischarge":false,"nativeCharging":true})");
}

TEST(CapabilitiesReplyTest, EveryCombinationComesBack) {
  for (unsigned bits = 0; bits < 32; ++bits) {
    const HelperCapabilities caps{(bits & 1U) != 0, (bits & 2U) != 0, (bits & 4U) != 0,
                                  (bits & 8U) != 0, (bits & 16U) != 0};
    const auto decoded = decodeCapabilities(encodeReply(caps));
    ASSERT_TRUE(decoded) << decoded.error();
    EXPECT_EQ(*decoded, caps) << bits;
  }
}

TEST(CapabilitiesReplyTest, ARecordThatLacksAnyFlagDoesNotDecode) {
  const std::string complete = encodeReply(HelperCapabilities::none());
  for (const std::string key : {"tahoeCharging", "preTahoeCharging", "tahoeDischarge",
                                "preTahoeDischarge", "nativeCharging"}) {
    std::string text = complete;
    text.replace(text.find('"' + key + '"') + 1, 1, "X");
    const auto decoded = decodeCapabilities(text);
    ASSERT_FALSE(decoded) << key;
    EXPECT_EQ(decoded.error(), "missing key \"" + key + "\"");
  }
}

TEST(CapabilitiesReplyTest, OfSeveralMissingFlagsTheFirstIsNamed) {
  std::string text = "{";
  for (const std::string key : {"tahoeCharging", "preTahoeCharging", "tahoeDischarge",
                                "preTahoeDischarge", "nativeCharging"}) {
    const auto decoded = decodeCapabilities(text + '}');
    ASSERT_FALSE(decoded) << key;
    EXPECT_EQ(decoded.error(), "missing key \"" + key + "\"");
    text += (text.size() > 1 ? ",\"" : "\"") + key + "\":true";
  }
  EXPECT_TRUE(decodeCapabilities(text + '}'));
}

TEST(RecordsTest, AReplysDateHasPlainDigitsBelowTenToTheSixteenth) {
  const auto reply = [](double seconds) {
    HelperState state;
    state.lastWriteAt = Date{seconds};
    return encodeReply(state);
  };
  EXPECT_NE(reply(9999999999999998).find("\"lastWriteAt\":9999999999999998,"), std::string::npos);
  EXPECT_NE(reply(1e16).find("\"lastWriteAt\":1e+16,"), std::string::npos);
  EXPECT_NE(reply(1e-5).find("\"lastWriteAt\":0.00001,"), std::string::npos);
  EXPECT_NE(reply(9e-6).find("\"lastWriteAt\":9e-06,"), std::string::npos);
}

TEST(RecordsTest, DifferWhereOneFieldDoes) {
  HelperState state;
  state.sailingBand += 1;
  EXPECT_FALSE(state == HelperState());
  HelperCapabilities capabilities;
  capabilities.nativeCharging = true;
  EXPECT_FALSE(capabilities == HelperCapabilities());
  ErrorObject error{.domain = "D", .code = 1, .userInfo = {}};
  EXPECT_FALSE(error == (ErrorObject{.domain = "D", .code = 2, .userInfo = {}}));
}

TEST(CapabilitiesReplyTest, AFlagOfAnotherTypeDoesNotDecode) {
  const auto decoded =
      decodeCapabilities(R"({"tahoeCharging":1,"preTahoeCharging":false,"tahoeDischarge":false,)"
                         R"("preTahoeDischarge":false,"nativeCharging":false})");
  ASSERT_FALSE(decoded);
  EXPECT_EQ(decoded.error(), "key \"tahoeCharging\" is not a Boolean");
}

}  // namespace
}  // namespace korvel
