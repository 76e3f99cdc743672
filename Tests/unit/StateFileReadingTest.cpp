// One test a line of the table in docs/state-file.md: what a state file may hold that neither this
// helper nor the platform's encoder would have written.
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "HelperRecords.h"
#include "Tests/unit/SampleStates.h"

namespace korvel {
namespace {

using test::fullState;

/// A complete file with one member more, in front of the others or behind them.
std::string withFirst(const std::string& member) {
  return "{" + member + "," + encodeFile(fullState()).substr(1);
}
std::string withLast(const std::string& member) {
  const std::string whole = encodeFile(fullState());
  return whole.substr(0, whole.size() - 2) + "," + member + "}";
}

/// A complete file with another value under one key.
std::string withValue(const std::string& key, const std::string& value) {
  return withFirst("\"" + key + "\":" + value);  // The first of two counts.
}

std::string errorOf(const std::string& text) {
  const auto state = decodeStateFile(text);
  return state ? "decoded" : state.error();
}

void expectIgnored(const std::string& member) {
  EXPECT_EQ(decodeStateFile(withFirst(member)), fullState()) << member;
  EXPECT_EQ(decodeStateFile(withLast(member)), fullState()) << member;
}

void expectNotJSON(const std::string& text) {
  EXPECT_EQ(errorOf(text).substr(0, 23), "not valid JSON at byte ") << testing::PrintToString(text);
}

/// `unitBytes` bytes a character, the high one first or last; the file has ASCII only.
std::string widened(const std::string& text, std::size_t unitBytes, bool highFirst) {
  std::string wide;
  for (const char character : text) {
    std::string unit(unitBytes, '\0');
    unit[highFirst ? unitBytes - 1 : 0] = character;
    wide += unit;
  }
  return wide;
}

TEST(StateFileReadingTest, AnUnknownKeyMayHoldANumberBeyondEveryType) {
  for (const std::string number :
       {"1e999", "-1e999", "1e-999", "1E+99999999999999999999", "18446744073709551616"}) {
    expectIgnored("\"later\":" + number);
    expectIgnored("\"later\":[[" + number + "],7]");
    expectIgnored("\"later\":{\"deep\":[{\"chargeLimit\":" + number + "}]}");
  }
  expectIgnored("\"later\":" + std::string(1000, '7'));
  expectIgnored("\"later\":[0." + std::string(1000, '3') + "]");
}

TEST(StateFileReadingTest, AnUnknownKeyMayHoldHalfASurrogatePair) {
  for (const std::string text :
       {R"("\ud800")", R"("\uDFFF")", R"("x\ud83d y")", R"("\ud83d\ud83d")", R"("\udd0b\ud83d")"}) {
    expectIgnored("\"later\":" + text);
    expectIgnored("\"later\":[{\"a\":" + text + "}]");
    expectIgnored("\"later\":[{" + text + ":1}]");
  }
}

TEST(StateFileReadingTest, AKeyWithHalfASurrogatePairIsAnUnknownKey) {
  expectIgnored(R"("\ud800":1)");
  expectIgnored(R"("chargeLimit\udc00":1)");
}

TEST(StateFileReadingTest, AKeyIsKnownByItsTextAndNotByItsSpelling) {
  EXPECT_EQ(decodeStateFile(withFirst(R"("\u0063harge\u004Cimit":61)"))->chargeLimit, 61);
  for (const char* other : {"chargelimit", "chargeLimit ", "charge", "chargeLimits", "", "lImIt"}) {
    expectIgnored(std::string("\"") + other + "\":\"x\"");
  }
  expectIgnored(R"("chargeLimit\u0000":1)");
}

TEST(StateFileReadingTest, AFieldOfOursWithAValueBeyondItsTypeIsCorrupt) {
  EXPECT_EQ(errorOf(withValue("chargeLimit", "1e999")), "key \"chargeLimit\" is not an integer");
  EXPECT_EQ(errorOf(withValue("sailingBand", std::string(400, '9'))),
            "key \"sailingBand\" is not an integer");
  EXPECT_EQ(errorOf(withValue("topUpActive", "1e999")), "key \"topUpActive\" is not a Boolean");
  EXPECT_EQ(errorOf(withValue("helperVersion", R"("\ud800")")),
            "key \"helperVersion\" is not a string");
  EXPECT_EQ(errorOf(withValue("lastDischargeAbortReason", R"("a \udd0b b")")),
            "key \"lastDischargeAbortReason\" is not a string");
  EXPECT_EQ(errorOf(withValue("lastWriteAt", R"("2026-01-01T00:00:00\ud800")")),
            "key \"lastWriteAt\" is not an ISO 8601 date");
}

TEST(StateFileReadingTest, TheGrammarHoldsUnderUnknownKeysToo) {
  for (const char* value : {"01",       "-",           "1.",       ".5",    "1e",
                            "1e+",      "+1",          "--1",      "1.2.3", "NaN",
                            "Infinity", "0x10",        "nul",      "True",  "'a'",
                            "\"\\x\"",  "\"\\u12g4\"", "\"a\tb\"", "\"a",   "[1,]",
                            "[1 2]",    "{\"a\":1,}",  "{a:1}",    "[}",    "{]",
                            "[1]]",     "// a\n1",     "/* a */1", ""}) {
    expectNotJSON(withFirst(std::string("\"later\":") + value));
    expectNotJSON(withLast(std::string("\"later\":") + value));
  }
}

TEST(StateFileReadingTest, BytesThatAreNoTextAreCorruptWhereverTheyStand) {
  for (const std::string bytes : {"\xff", "\xc3", "\xc0\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
    expectNotJSON(withFirst("\"later\":\"" + bytes + "\""));
    expectNotJSON(withFirst("\"" + bytes + "\":1"));
    expectNotJSON(withLast("\"later\":[{\"a\":\"" + bytes + "\"}]"));
    expectNotJSON(encodeFile(fullState()) + bytes);
  }
}

TEST(StateFileReadingTest, AByteOrderMarkBelongsToTheFrontAlone) {
  EXPECT_EQ(decodeStateFile("\xEF\xBB\xBF \n" + encodeFile(fullState())), fullState());
  expectNotJSON(" \xEF\xBB\xBF" + encodeFile(fullState()));
  expectNotJSON("\xEF\xBB\xBF\xEF\xBB\xBF" + encodeFile(fullState()));
  expectNotJSON("\xEF\xBB" + encodeFile(fullState()));
}

TEST(StateFileReadingTest, OtherEncodingsAreCorrupt) {
  const std::string whole = encodeFile(HelperState::empty());
  for (const std::size_t unitBytes : {2U, 4U}) {
    for (const bool highFirst : {false, true}) {
      const std::string wide = widened(whole, unitBytes, highFirst);
      expectNotJSON(wide);
      const std::string mark = highFirst ? std::string(unitBytes - 2, '\0') + "\xFE\xFF"
                                         : "\xFF\xFE" + std::string(unitBytes - 2, '\0');
      expectNotJSON(mark + wide);
    }
  }
}

TEST(StateFileReadingTest, NestingCountsNoFurtherThanTheFileIsLong) {
  for (const std::size_t depth : {511U, 512U, 513U, 200000U}) {
    expectIgnored("\"deep\":" + std::string(depth, '[') + std::string(depth, ']'));
  }
  std::string objects;
  for (int level = 0; level < 50000; ++level) objects += "{\"chargeLimit\":";
  expectIgnored("\"deep\":" + objects + "[1]" + std::string(50000, '}'));
  expectNotJSON(std::string(500000, '['));
  expectNotJSON(withFirst("\"deep\":" + std::string(200000, '[')));
  EXPECT_EQ(errorOf(withValue("chargeLimit", std::string(200000, '[') + std::string(200000, ']'))),
            "key \"chargeLimit\" is not an integer");
}

TEST(StateFileReadingTest, AWholeNumberMayBeWrittenAsARealAsLongAsItMeansOneNumberOnly) {
  constexpr std::int64_t largest = (std::int64_t{1} << 53U) - 1;
  EXPECT_EQ(decodeStateFile(withValue("chargeLimit", "80.0"))->chargeLimit, 80);
  EXPECT_EQ(decodeStateFile(withValue("chargeLimit", "0.8e2"))->chargeLimit, 80);
  EXPECT_EQ(decodeStateFile(withValue("sailingBand", "9007199254740991.0"))->sailingBand, largest);
  EXPECT_EQ(decodeStateFile(withValue("sailingBand", "-9007199254740991.0"))->sailingBand,
            -largest);
  for (const char* text :
       {"9007199254740992.0", "9007199254740993.0", "-9007199254740992.0", "1e16", "1e18",
        "-9223372036854775808.0", "9223372036854775807.0", "1e19"}) {
    EXPECT_EQ(errorOf(withValue("sailingBand", text)), "key \"sailingBand\" is not an integer")
        << text;
  }
  EXPECT_EQ(decodeStateFile(withValue("sailingBand", "9007199254740993"))->sailingBand,
            largest + 2);
}

TEST(StateFileReadingTest, AFractionCountsAsFarAsADoubleTellsIt) {
  EXPECT_EQ(errorOf(withValue("chargeLimit", "80.5")), "key \"chargeLimit\" is not an integer");
  EXPECT_EQ(errorOf(withValue("chargeLimit", "80.00000000000002")),
            "key \"chargeLimit\" is not an integer");
  EXPECT_EQ(decodeStateFile(withValue("chargeLimit", "80.000000000000000001"))->chargeLimit, 80);
}

TEST(StateFileReadingTest, TheFirstOfTwoEqualKeysCounts) {
  EXPECT_EQ(decodeStateFile(withFirst("\"chargeLimit\":60"))->chargeLimit, 60);
  EXPECT_EQ(decodeStateFile(withLast("\"chargeLimit\":60")), fullState());
  EXPECT_EQ(decodeStateFile(withLast("\"chargeLimit\":[]")), fullState());
  EXPECT_EQ(decodeStateFile(withLast(R"("ch\u0061rgeLimit":60)")), fullState());
}

TEST(StateFileReadingTest, NullUnderALaterKeyIsAsGoodAsNoKey) {
  const HelperState fresh;
  EXPECT_EQ(decodeStateFile(withValue("lastWriteVerified", "null"))->lastWriteVerified,
            fresh.lastWriteVerified);
  EXPECT_EQ(decodeStateFile(withValue("topUpActive", "null"))->topUpActive, fresh.topUpActive);
  EXPECT_EQ(decodeStateFile(withValue("lastDischargeAbortAt", "null"))->lastDischargeAbortAt,
            std::nullopt);
  EXPECT_EQ(decodeStateFile(withValue("helperVersion", "null"))->helperVersion, std::nullopt);
  EXPECT_EQ(errorOf(withValue("heatPauseActive", "null")),
            "key \"heatPauseActive\" is not a Boolean");
}

TEST(StateFileReadingTest, ADateHasOneFormAndThreeWaysToNameItsZone) {
  for (const char* text :
       {"2026-05-09T06:13:20Z", "2026-05-09T08:13:20+02:00", "2026-05-08T22:43:20-0730"}) {
    const auto state = decodeStateFile(withValue("lastWriteAt", std::string("\"") + text + '"'));
    ASSERT_TRUE(state) << text << ": " << state.error();
    EXPECT_EQ(state->lastWriteAt, fullState().lastWriteAt) << text;
  }
  for (const char* text :
       {"2026-05-09T06:13:20.5Z", "2026-05-09T06:13:20z", "2026-05-09T06:13:20GMT",
        "2026-05-09T06:13:20UTC+1", "2026-05-09T08:13:20+02", "2026-05-09T08:13:20+02:00:30",
        "2026-05-09T24:00:00Z", "2026-05-09T06:13:60Z", "2026-5-9T6:13:20Z", "2026-02-30T06:13:20Z",
        "12026-05-09T06:13:20Z", "2026-05-09T06:13:20Z and more", "2026-05-09", "20260509T061320Z",
        "2026-05-09 06:13:20Z", "2026-W19-6T06:13:20Z", ""}) {
    EXPECT_EQ(errorOf(withValue("lastWriteAt", std::string("\"") + text + '"')),
              "key \"lastWriteAt\" is not an ISO 8601 date")
        << text;
  }
}

}  // namespace
}  // namespace korvel
