// The walk over a JSON text, held against a parser that shares no code with it: on every short text
// of a few alphabets, on every character, and on long texts with damage.
#include "JSONMembers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace korvel {
namespace {

using testing::ElementsAre;
using testing::Pair;
using Written = std::vector<std::pair<std::string, std::string>>;

Written membersOf(std::string_view text) {
  Written members;
  const auto walked = forEachJSONMember(text, [&](std::string_view name, std::string_view value) {
    members.emplace_back(name, value);
  });
  EXPECT_TRUE(walked) << walked.error();
  return members;
}

std::string errorOf(std::string_view text) {
  const auto walked = forEachJSONMember(text, [](std::string_view, std::string_view) {});
  return walked ? "" : walked.error();
}

bool fits(const std::string& text) { return !errorOf(text).starts_with("not valid JSON at byte "); }

/// The other parser's judgement. It must not be asked about a value that it could not hold.
bool expectedToFit(const std::string& text) { return nlohmann::json::accept(text); }

/// Compares on `before` + every text of up to `length` of the letters + `after`; how many fit.
std::size_t compareEvery(const std::vector<std::string>& letters, std::size_t length,
                         const std::string& before, const std::string& after) {
  std::size_t fitting = 0;
  std::vector<std::string> texts = {""};
  for (std::size_t size = 0; size <= length; ++size) {
    std::vector<std::string> longer;
    for (const std::string& inner : texts) {
      std::string text = before;
      text.append(inner).append(after);
      const bool expected = expectedToFit(text);
      EXPECT_EQ(fits(text), expected) << text;
      if (testing::Test::HasFailure()) return fitting;
      fitting += expected ? 1 : 0;
      if (size == length) continue;
      for (const std::string& letter : letters) longer.push_back(inner + letter);
    }
    texts = std::move(longer);
  }
  return fitting;
}

TEST(JSONMembersTest, EveryMemberComesAsItIsWritten) {
  EXPECT_THAT(membersOf("{}"), testing::IsEmpty());
  EXPECT_THAT(membersOf(" {\t} \r\n"), testing::IsEmpty());
  EXPECT_THAT(membersOf(R"({"a":1,"":"","\u0061\"b":[1, {"c" : 2}] , "a" :  -0.5e+7  })"),
              ElementsAre(Pair(R"("a")", "1"), Pair(R"("")", R"("")"),
                          Pair(R"("\u0061\"b")", R"([1, {"c" : 2}])"), Pair(R"("a")", "-0.5e+7")));
  EXPECT_THAT(membersOf("\xEF\xBB\xBF\n{\"a\":{}}"), ElementsAre(Pair("\"a\"", "{}")));
}

TEST(JSONMembersTest, AValueThatNoDecoderHoldsIsStillAValue) {
  for (const std::string value :
       {"1e999", "-1e999", "1e-999", "0.0e99999999999999999999", R"("\ud800")", R"("\uDFFF x")",
        R"("\ud83d\ud83d")", R"([{"\udc00":[1e400]}])"}) {
    EXPECT_THAT(membersOf("{\"a\":" + value + "}"), ElementsAre(Pair("\"a\"", value)));
  }
  const std::string digits(5000, '9');
  EXPECT_THAT(membersOf("{\"a\":-" + digits + "}"), ElementsAre(Pair("\"a\"", "-" + digits)));
}

TEST(JSONMembersTest, ACharacterOfMoreThanFourBytesDoesNotFit) {
  for (const unsigned lead : {0xF8U, 0xFBU, 0xFCU, 0xFDU, 0xFEU, 0xFFU}) {
    for (const std::string tail :
         {"\x84\x8F\xBF\xBF", "\x80\x84\x8F\xBF\xBF", "\x80\x80\x80\xA0"}) {
      const std::string text = "[\"" + std::string(1, static_cast<char>(lead)) + tail + "\"]";
      EXPECT_FALSE(fits(text)) << lead;
      EXPECT_FALSE(expectedToFit(text)) << lead;
    }
  }
}

TEST(JSONMembersTest, TheErrorNamesTheFirstByteThatDoesNotFit) {
  EXPECT_EQ(errorOf(""), "not valid JSON at byte 1");
  EXPECT_EQ(errorOf("{"), "not valid JSON at byte 2");
  EXPECT_EQ(errorOf("{} x"), "not valid JSON at byte 4");
  EXPECT_EQ(errorOf(R"({"a":tru})"), "not valid JSON at byte 6");
  EXPECT_EQ(errorOf(R"({"a":[1,]})"), "not valid JSON at byte 9");
  EXPECT_EQ(errorOf(R"({"a":01})"), "not valid JSON at byte 7");
  EXPECT_EQ(errorOf(R"({"a":"\u00g0"})"), "not valid JSON at byte 11");
  EXPECT_EQ(errorOf(std::string("{}\0", 3)), "not valid JSON at byte 3");
}

TEST(JSONMembersTest, WhatIsNotAnObjectIsSaidToBeNone) {
  for (const char* text : {"[]", "null", " 5 ", "\"{}\"", "[{\"a\":1}]", "true", "-1e999"}) {
    EXPECT_EQ(errorOf(text), "the top level is not an object") << text;
  }
  EXPECT_EQ(errorOf("[}"), "not valid JSON at byte 2");
}

TEST(JSONMembersTest, EveryShortArrangementIsJudgedAsAnotherParserJudgesIt) {
  const std::vector<std::string> tokens = {"{", "}", "[", "]", ",", ":", "\"a\"", "1", " "};
  EXPECT_GT(compareEvery(tokens, 5, "", ""), 100U);
  EXPECT_GT(compareEvery(tokens, 4, "{\"a\":[1,", "]}"), 50U);
}

TEST(JSONMembersTest, EveryShortNumberIsJudgedAsAnotherParserJudgesIt) {
  EXPECT_GT(compareEvery({"-", "+", ".", "e", "E", "0", "1", "2"}, 5, "{\"a\":", "}"), 1000U);
}

TEST(JSONMembersTest, EveryShortStringIsJudgedAsAnotherParserJudgesIt) {
  const std::vector<std::string> letters = {"\"", "\\", "/", "u", "a", "n", "0", "\x1f", "\x7f"};
  EXPECT_GT(compareEvery(letters, 5, "{\"a\":\"", "\"}"), 1000U);
  EXPECT_GT(compareEvery({"t", "r", "u", "e", "n", "l", "T"}, 5, "{\"a\":", "}"), 1U);
}

// Every pair of bytes, and behind the lead of a longer character the bytes next to every bound.
TEST(JSONMembersTest, EveryCharacterIsJudgedAsAnotherParserJudgesIt) {
  unsigned fitting = 0;
  const auto compare = [&fitting](std::initializer_list<unsigned> bytes) {
    std::string text = "{\"a\":\"";
    for (const unsigned byte : bytes) text += static_cast<char>(byte);
    text += "\"}";
    const bool expected = expectedToFit(text);
    EXPECT_EQ(fits(text), expected) << testing::PrintToString(text);
    fitting += expected ? 1 : 0;
  };
  for (unsigned lead = 0; lead < 256; ++lead) {
    compare({lead});
    for (unsigned second = 0; second < 256; ++second) compare({lead, second});
    if (lead < 0xC0) continue;
    for (const unsigned second : {0x7FU, 0x80U, 0x8FU, 0x90U, 0x9FU, 0xA0U, 0xBFU, 0xC0U}) {
      for (const unsigned third : {0x22U, 0x7FU, 0x80U, 0xBFU, 0xC0U}) {
        compare({lead, second, third});
        for (const unsigned fourth : {0x7FU, 0x80U, 0xBFU, 0xC0U}) {
          compare({lead, second, third, fourth});
        }
      }
    }
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(fitting, 5000U);
}

/// No number too large, no half pair: of those the two judge differently, and on purpose.
bool canBeHeld(const std::string& text) {
  const bool large = text.find_first_of("eE") != std::string::npos || text.size() > 300;
  return !large && !text.contains("\\ud") && !text.contains("\\uD");
}

TEST(JSONMembersTest, DamagedTextsAreJudgedAsAnotherParserJudgesThem) {
  const std::string whole =
      R"({"a":[1,-2.5,"x\n\u0041\\",{"b":null,"":[[],{}]}],"k":"ä€😀\/" , "d":{"f":[0]}})";
  ASSERT_TRUE(fits(whole));
  std::mt19937 random(19700101);
  std::size_t fitting = 0;
  std::size_t compared = 0;
  for (int round = 0; round < 50000; ++round) {
    std::string damaged = whole;
    for (auto changes = 1 + random() % 3; changes > 0; --changes) {
      const std::size_t index = random() % damaged.size();
      switch (random() % 3) {
        case 0:
          damaged[index] = static_cast<char>(1 + random() % 255);
          break;
        case 1:
          damaged.erase(index, 1 + random() % 3);
          break;
        default:
          damaged.insert(index, whole.substr(random() % whole.size(), 1 + random() % 4));
      }
    }
    if (!canBeHeld(damaged)) continue;
    const bool expected = expectedToFit(damaged);
    ASSERT_EQ(fits(damaged), expected) << testing::PrintToString(damaged);
    fitting += expected ? 1 : 0;
    ++compared;
  }
  EXPECT_GT(compared, 25000U);
  EXPECT_GT(fitting, 1000U);
}

}  // namespace
}  // namespace korvel
