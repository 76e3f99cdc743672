#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "HelperRecords.h"
#include "Tests/unit/SampleStates.h"

namespace korvel {
namespace {

using test::fullState;

using Members = std::map<std::string, std::string>;

// The members of a complete file, to be changed one at a time.
Members completeFile() {
  return {{"chargeLimit", "75"},
          {"sailingBand", "7"},
          {"forceDischargeActive", "true"},
          {"heatPauseActive", "true"},
          {"lastWriteAt", "\"2026-05-09T06:13:20Z\""},
          {"lastWriteVerified", "false"},
          {"lastDischargeAbortReason", R"("Stopped — \"lid\" \/ closed")"},
          {"lastDischargeAbortAt", "\"2000-12-31T23:59:59Z\""},
          {"topUpActive", "true"},
          {"sleepDisabledByKorvel", "true"},
          {"helperVersion", "\"2.0.0\""}};
}

std::string objectOf(const Members& members) {
  std::string text = "{";
  for (const auto& [key, value] : members) {
    text.append(text.size() > 1 ? ",\"" : "\"").append(key).append("\":").append(value);
  }
  return text + "}";
}

std::string with(const std::string& key, const std::string& value) {
  Members members = completeFile();
  members[key] = value;
  return objectOf(members);
}

std::string without(const std::string& key) {
  Members members = completeFile();
  members.erase(key);
  return objectOf(members);
}

std::string errorOf(const std::string& text) {
  const auto decoded = decodeStateFile(text);
  return decoded ? "decoded" : decoded.error();
}

TEST(StateDecodeTest, ACompleteFileGivesEveryField) {
  const auto state = decodeStateFile(objectOf(completeFile()));
  ASSERT_TRUE(state) << state.error();
  EXPECT_EQ(*state, fullState());
}

TEST(StateDecodeTest, BothFormsComeBackEqual) {
  for (const HelperState& state : {HelperState::empty(), fullState()}) {
    EXPECT_EQ(decodeStateFile(encodeFile(state)), state);
    EXPECT_EQ(decodeStateReply(encodeReply(state)), state);
  }
}

TEST(StateDecodeTest, EachFormRefusesTheOthersDates) {
  EXPECT_EQ(decodeStateFile(encodeReply(fullState())).error(),
            "key \"lastWriteAt\" is not an ISO 8601 date");
  EXPECT_EQ(decodeStateReply(encodeFile(fullState())).error(),
            "key \"lastWriteAt\" is not a date in seconds");
}

TEST(StateDecodeTest, EveryLeadingFieldIsRequired) {
  for (const std::string key :
       {"chargeLimit", "sailingBand", "forceDischargeActive", "heatPauseActive", "lastWriteAt"}) {
    EXPECT_EQ(errorOf(without(key)), "missing key \"" + key + "\"");
  }
}

TEST(StateDecodeTest, EveryLaterFieldHasADefault) {
  const std::vector<std::pair<std::string, void (*)(HelperState&)>> defaults = {
      {"lastWriteVerified", [](HelperState& state) { state.lastWriteVerified = true; }},
      {"lastDischargeAbortReason", [](HelperState& s) { s.lastDischargeAbortReason.reset(); }},
      {"lastDischargeAbortAt", [](HelperState& s) { s.lastDischargeAbortAt.reset(); }},
      {"topUpActive", [](HelperState& state) { state.topUpActive = false; }},
      {"sleepDisabledByKorvel", [](HelperState& state) { state.sleepDisabledByKorvel = false; }},
      {"helperVersion", [](HelperState& state) { state.helperVersion.reset(); }}};
  for (const auto& [key, reset] : defaults) {
    HelperState expected = fullState();
    reset(expected);
    EXPECT_EQ(decodeStateFile(without(key)), expected) << key;
    EXPECT_EQ(decodeStateFile(with(key, "null")), expected) << key << " is null";
  }
}

TEST(StateDecodeTest, AFileOfAnOldHelperDecodesWithDefaults) {
  const auto state = decodeStateFile(
      R"({"chargeLimit":60,"sailingBand":5,"forceDischargeActive":false,"heatPauseActive":false,)"
      R"("lastWriteAt":"2024-01-02T03:04:05Z"})");
  ASSERT_TRUE(state) << state.error();
  HelperState expected;
  expected.chargeLimit = 60;
  expected.lastWriteAt = *dateFromISO8601("2024-01-02T03:04:05Z");
  EXPECT_EQ(*state, expected);
  EXPECT_TRUE(state->lastWriteVerified);
}

TEST(StateDecodeTest, NullInARequiredFieldIsCorrupt) {
  EXPECT_EQ(errorOf(with("chargeLimit", "null")), "key \"chargeLimit\" is not an integer");
  EXPECT_EQ(errorOf(with("heatPauseActive", "null")), "key \"heatPauseActive\" is not a Boolean");
  EXPECT_EQ(errorOf(with("lastWriteAt", "null")), "key \"lastWriteAt\" is not an ISO 8601 date");
}

TEST(StateDecodeTest, AWrongTypeIsAsCorruptAsAMissingKey) {
  const std::map<std::string, std::string> ownType = {{"chargeLimit", "75"},
                                                      {"sailingBand", "75"},
                                                      {"forceDischargeActive", "true"},
                                                      {"heatPauseActive", "true"},
                                                      {"lastWriteVerified", "true"},
                                                      {"topUpActive", "true"},
                                                      {"sleepDisabledByKorvel", "true"}};
  for (const auto& [key, value] : completeFile()) {
    for (const char* wrong : {"75", "true", "0.5", "\"text\"", "[]", "{}", "[75]", "{\"a\":1}"}) {
      const auto own = ownType.find(key);
      const bool isText = key == "lastDischargeAbortReason" || key == "helperVersion";
      if ((own != ownType.end() && own->second == wrong) ||
          (isText && std::string(wrong) == "\"text\"")) {
        continue;
      }
      EXPECT_THAT(errorOf(with(key, wrong)), testing::StartsWith("key \"" + key + "\" is not a"))
          << wrong;
    }
  }
}

TEST(StateDecodeTest, IntegersMayBeWrittenAsExactReals) {
  for (const char* text : {"80", "80.0", "8e1", "8.0E+1", "800e-1"}) {
    const auto state = decodeStateFile(with("chargeLimit", text));
    ASSERT_TRUE(state) << text << ": " << state.error();
    EXPECT_EQ(state->chargeLimit, 80) << text;
  }
  EXPECT_EQ(decodeStateFile(with("chargeLimit", "-0.0"))->chargeLimit, 0);
  EXPECT_EQ(decodeStateFile(with("chargeLimit", "-9223372036854775808"))->chargeLimit, INT64_MIN);
  EXPECT_EQ(decodeStateFile(with("chargeLimit", "9223372036854775807"))->chargeLimit, INT64_MAX);
}

TEST(StateDecodeTest, IntegersThatDoNotFitAreCorrupt) {
  for (const char* text : {"80.5", "1e-3", "9223372036854775808", "18446744073709551615", "1e19",
                           "-1e19", "9223372036854775808.0", "\"80\"", "true"}) {
    EXPECT_EQ(errorOf(with("chargeLimit", text)), "key \"chargeLimit\" is not an integer") << text;
  }
}

TEST(StateDecodeTest, ReplyDatesMayBeWholeOrNot) {
  HelperState state;
  for (const double seconds : {0.0, -0.5, 1e15, 12345678901234567890.0, 1e-9, -63114076800.0}) {
    state.lastWriteAt = Date{seconds};
    EXPECT_EQ(decodeStateReply(encodeReply(state)), state) << seconds;
  }
}

TEST(StateDecodeTest, TheFirstWrongFieldOfTheRecordIsNamedWhereverItStands) {
  Members members;
  const Members complete = completeFile();
  for (const char* key :
       {"chargeLimit", "sailingBand", "forceDischargeActive", "heatPauseActive", "lastWriteAt",
        "lastWriteVerified", "lastDischargeAbortReason", "lastDischargeAbortAt", "topUpActive",
        "sleepDisabledByKorvel", "helperVersion"}) {
    Members rest = complete;
    for (const auto& [right, value] : members) rest[right] = value;
    for (auto& [other, value] : rest) {
      if (!members.contains(other)) value = "[]";
    }
    EXPECT_THAT(errorOf(objectOf(rest)),
                testing::StartsWith("key \"" + std::string(key) + "\" is not a"));
    members[key] = complete.at(key);
  }
  EXPECT_EQ(members.size(), complete.size());
}

TEST(StateDecodeTest, UnknownKeysAreIgnoredWhateverTheyHold) {
  for (const char* value : {"1", "null", "\"x\"", "[1,[2,{\"chargeLimit\":1}]]",
                            "{\"chargeLimit\":1,\"lastWriteAt\":[]}"}) {
    EXPECT_EQ(decodeStateFile(with("unknown", value)), fullState()) << value;
  }
}

TEST(StateDecodeTest, MembersAfterNestedValuesStillCount) {
  const std::string nested = R"({"a":{"b":[{"c":{}}]},"d":[[],[{}]],)";
  EXPECT_EQ(decodeStateFile(nested + objectOf(completeFile()).substr(1)), fullState());
}

TEST(StateDecodeTest, TheFirstOfDuplicateKeysCounts) {
  const std::string complete = objectOf(completeFile());
  const std::string members = complete.substr(1);
  EXPECT_EQ(decodeStateFile("{\"chargeLimit\":60," + members)->chargeLimit, 60);
  EXPECT_EQ(decodeStateFile(complete.substr(0, complete.size() - 1) + ",\"chargeLimit\":60}"),
            fullState());
  EXPECT_EQ(errorOf("{\"chargeLimit\":[]," + members), "key \"chargeLimit\" is not an integer");
  EXPECT_EQ(decodeStateFile("{\"topUpActive\":null," + members)->topUpActive, false);
  EXPECT_EQ(decodeStateFile("{\"charge\\u004cimit\":61," + members)->chargeLimit, 61);
}

TEST(StateDecodeTest, WhitespaceAndAByteOrderMarkDoNotMatter) {
  EXPECT_EQ(decodeStateFile(" \r\n\t" + encodeFile(fullState()) + "\n\n"), fullState());
  EXPECT_EQ(decodeStateFile("\xEF\xBB\xBF" + encodeFile(fullState())), fullState());
}

TEST(StateDecodeTest, OnlyAnObjectAtTheTopIsARecord) {
  for (const char* text : {"null", "true", "5", "1.5", "\"text\"", "[]", "[{}]"}) {
    EXPECT_EQ(errorOf(text), "the top level is not an object") << text;
  }
  EXPECT_EQ(errorOf("{}"), "missing key \"chargeLimit\"");
}

}  // namespace
}  // namespace korvel
