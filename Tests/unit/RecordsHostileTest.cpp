// Files that a crash, a bad disk or an attacker could leave behind. Whatever they hold, the decoder
// says what is wrong, or gives a record that it would give again.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "HelperRecords.h"
#include "Tests/unit/SampleStates.h"

namespace korvel {
namespace {

using test::fullState;

// True when the text decodes. What decodes must also come back from its own encoding; dates beyond
// the file's four-digit years are the one thing that may not.
bool decodesSoundly(const std::string& text) {
  const auto state = decodeStateFile(text);
  if (!state) {
    EXPECT_FALSE(state.error().empty());
    return false;
  }
  const std::string again = encodeFile(*state);
  const auto second = decodeStateFile(again);
  EXPECT_EQ(second ? encodeFile(*second) : second.error(), again);
  return true;
}

struct HostileFileTest : testing::Test {
  const std::string whole = encodeFile(fullState());
};

TEST_F(HostileFileTest, EveryTruncationIsCorrupt) {
  for (const HelperState& state : {HelperState::empty(), fullState()}) {
    const std::string text = encodeFile(state);
    EXPECT_TRUE(decodesSoundly(text));
    for (std::size_t length = 0; length < text.size(); ++length) {
      EXPECT_FALSE(decodesSoundly(text.substr(0, length))) << length;
    }
  }
}

TEST_F(HostileFileTest, ATailInsteadOfTheWholeIsCorrupt) {
  for (std::size_t start = 1; start < whole.size(); ++start) {
    EXPECT_FALSE(decodesSoundly(whole.substr(start))) << start;
  }
}

TEST_F(HostileFileTest, EveryFlippedBitIsCorruptOrASoundRecord) {
  int decoded = 0;
  int refused = 0;
  for (std::size_t index = 0; index < whole.size(); ++index) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      std::string flipped = whole;
      flipped[index] = static_cast<char>(static_cast<unsigned char>(flipped[index]) ^ (1U << bit));
      ++(decodesSoundly(flipped) ? decoded : refused);
    }
  }
  EXPECT_GT(decoded, 0);  // a digit that became another digit
  EXPECT_GT(refused, decoded);
}

TEST_F(HostileFileTest, EveryByteReplacedByNULIsCorrupt) {
  for (std::size_t index = 0; index < whole.size(); ++index) {
    std::string damaged = whole;
    damaged[index] = '\0';
    EXPECT_FALSE(decodesSoundly(damaged)) << index;
  }
}

TEST_F(HostileFileTest, EveryInsertedNULIsCorrupt) {
  for (std::size_t index = 0; index <= whole.size(); ++index) {
    std::string damaged = whole;
    damaged.insert(index, 1, '\0');
    EXPECT_FALSE(decodesSoundly(damaged)) << index;
  }
}

TEST_F(HostileFileTest, ANULByteDoesNotHideWhatFollowsIt) {
  EXPECT_FALSE(decodesSoundly(whole + std::string(100, '\0')));
  EXPECT_EQ(decodeStateFile(whole + '\0' + whole).error(),
            "not valid JSON at byte " + std::to_string(whole.size() + 1));
}

TEST_F(HostileFileTest, AFileOfNULBytesIsCorrupt) {
  EXPECT_FALSE(decodesSoundly(std::string(4096, '\0')));
}

TEST_F(HostileFileTest, BytesThatAreNoTextAreCorrupt) {
  for (const char* bytes :
       {"\xff", "\xc3", "\xc0\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\x80"}) {
    HelperState state;
    state.helperVersion = "MARK";
    std::string text = encodeFile(state);
    text.replace(text.find("MARK"), 4, bytes);
    EXPECT_FALSE(decodesSoundly(text));
  }
}

TEST_F(HostileFileTest, HalfASurrogatePairIsCorrupt) {
  for (const char* escape : {R"(\ud83d)", R"(\udd0b)", R"(\ud83d\ud83d)", R"(\ud83dx)"}) {
    HelperState state;
    state.helperVersion = "MARK";
    std::string text = encodeFile(state);
    text.replace(text.find("MARK"), 4, escape);
    EXPECT_FALSE(decodesSoundly(text)) << escape;
  }
}

TEST_F(HostileFileTest, NestingIsOnlyANumber) {
  constexpr std::size_t depth = 100000;
  const std::string members = encodeFile(fullState()).substr(1);
  const std::string arrays = std::string(depth, '[') + std::string(depth, ']');
  EXPECT_TRUE(decodesSoundly("{\"deep\":" + arrays + "," + members));
  std::string objects;
  for (std::size_t level = 0; level < depth; ++level) objects += "{\"chargeLimit\":";
  objects += "1" + std::string(depth, '}');
  EXPECT_EQ(decodeStateFile("{\"deep\":" + objects + "," + members), fullState());
  EXPECT_FALSE(decodesSoundly(std::string(depth, '[')));
  EXPECT_FALSE(decodesSoundly("{\"deep\":" + std::string(depth, '[')));
  EXPECT_FALSE(decodesSoundly(arrays));
}

TEST_F(HostileFileTest, TrailingTextIsCorrupt) {
  for (const char* tail : {"x", "{}", ",", "}", "\"", "\xEF\xBB\xBF"}) {
    EXPECT_FALSE(decodesSoundly(whole + tail)) << tail;
  }
  EXPECT_FALSE(decodesSoundly(whole + whole));
}

TEST_F(HostileFileTest, FormsThatLookLikeJSONAreCorrupt) {
  for (const char* text :
       {"{'chargeLimit':80}", "{chargeLimit:80}", "{\"chargeLimit\":080}", "{\"chargeLimit\":+80}",
        "{\"chargeLimit\":0x50}", "{\"chargeLimit\":NaN}", "{\"chargeLimit\":1e}",
        "{\"chargeLimit\":80,}", "{\"a\":1 /* no */}", "{\"a\":tru}", "{\"a\":\"\n\"}", "{\"a\" 1}",
        "{1:1}", "{\"a\":}", "{,}", "{\"a\":\"\\x\"}"}) {
    const auto state = decodeStateFile(text);
    ASSERT_FALSE(state) << text;
    EXPECT_EQ(state.error().substr(0, 22), "not valid JSON at byte") << text;
  }
}

TEST_F(HostileFileTest, RandomDamageNeverGivesAnUnsoundRecord) {
  std::mt19937 random(20010101);
  int refused = 0;
  for (int round = 0; round < 5000; ++round) {
    std::string damaged = whole;
    for (auto changes = 1 + random() % 6; changes > 0; --changes) {
      const std::size_t index = random() % damaged.size();
      switch (random() % 3) {
        case 0:
          damaged[index] = static_cast<char>(random() % 256);
          break;
        case 1:
          damaged.erase(index, 1 + random() % 8);
          break;
        default:
          damaged.insert(index, damaged.substr(random() % damaged.size(), random() % 16));
      }
      if (damaged.empty()) damaged = "{";
    }
    if (!decodesSoundly(damaged)) ++refused;
  }
  EXPECT_GT(refused, 4000);
}

}  // namespace
}  // namespace korvel
