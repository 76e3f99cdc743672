#include "VirtualMac/Remote/Wire.h"

#include <gtest/gtest.h>

#include <limits>

#include "VirtualMac/Remote/FrameSocket.h"
#include "VirtualMac/Schedule/Random.h"

namespace virtualmac {
namespace {

using korvel::ErrorObject;
using korvel::PropertyValue;

PropertyValue roundTrip(const PropertyValue& value) {
  WireWriter writer;
  writer.property(value);
  WireReader reader(writer.body());
  PropertyValue read = reader.property();
  EXPECT_TRUE(reader.finish()) << reader.failure();
  return read;
}

/// Returns a random value; arrays and dictionaries nest down to `depth`.
PropertyValue anyValue(Random& random, int depth) {
  switch (random.below(depth > 0 ? 9 : 7)) {
    case 0:
      return {};
    case 1:
      return random.chance(1, 2);
    case 2:
      return static_cast<std::int64_t>(random.next());
    case 3:
      return random.unit() * 1e9;
    case 4:
      return std::string(random.below(20), 'x');
    case 5:
      return korvel::Date{random.unit() * -1e11};
    case 6:
      return PropertyValue::Data(random.below(20), std::uint8_t{0xFE});
    case 7: {
      PropertyValue::Array array;
      for (auto left = random.below(4); left > 0; --left)
        array.push_back(anyValue(random, depth - 1));
      return array;
    }
    default: {
      PropertyValue::Dictionary dictionary;
      for (auto left = random.below(4); left > 0; --left)
        dictionary.emplace(std::to_string(random.below(100)), anyValue(random, depth - 1));
      return dictionary;
    }
  }
}

std::string failureOf(const std::string& body) {
  WireReader reader(body);
  reader.property();
  reader.finish();
  return reader.failure();
}

}  // namespace

TEST(WireTest, EveryValueComesBackAsItWas) {
  for (std::uint64_t seed = 1; seed <= 2000; ++seed) {
    Random random(seed);
    const PropertyValue value = anyValue(random, 4);
    EXPECT_EQ(roundTrip(value), value) << "seed " << seed;
  }
}

TEST(WireTest, NumbersKeepTheirTypesAndExtremes) {
  for (const std::int64_t number : {std::numeric_limits<std::int64_t>::min(), std::int64_t{-1},
                                    std::int64_t{0}, std::numeric_limits<std::int64_t>::max()})
    EXPECT_EQ(roundTrip(number).integer(), number);
  EXPECT_FALSE(roundTrip(1.0).integer());
  EXPECT_FALSE(roundTrip(true).integer());
}

TEST(WireTest, AnErrorComesBackAsItWas) {
  const ErrorObject error{"Domain", -7, {{"text", "é"}, {"smcResult", 134}}};
  WireWriter writer;
  writer.error(error);
  WireReader reader(writer.body());
  EXPECT_EQ(reader.error(), error);
  EXPECT_TRUE(reader.finish());
}

// A message that is cut short anywhere fails, and nothing is read beyond its end.
TEST(WireTest, EveryPrefixOfAMessageIsAFailure) {
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    Random random(seed);
    WireWriter writer;
    writer.property(anyValue(random, 3));
    for (std::size_t length = 0; length < writer.body().size(); ++length)
      EXPECT_NE(failureOf(writer.body().substr(0, length)), "") << "seed " << seed;
  }
}

TEST(WireTest, WhatIsWrongIsSaid) {
  EXPECT_EQ(failureOf(""), "truncated: a value reaches beyond the end");
  EXPECT_EQ(failureOf(std::string("\x01\x02", 2)), "a Boolean that is neither 0 nor 1");
  EXPECT_EQ(failureOf("\x20"), "an unknown type of value");
  EXPECT_EQ(failureOf(std::string("\x00\x00", 2)), "bytes left over after the last value");
}

TEST(WireTest, ValuesAreTakenAsDeepAsStatedAndNoDeeper) {
  const auto nested = [](int depth) {
    std::string body;
    for (int level = 0; level < depth; ++level) body += std::string("\x07\x01\x00\x00\x00", 5);
    return body + std::string(1, '\0');
  };
  EXPECT_EQ(failureOf(nested(16)), "");
  EXPECT_EQ(failureOf(nested(17)), "values nested more than 16 deep");
  EXPECT_EQ(failureOf(nested(40'000)), "values nested more than 16 deep");
}

TEST(WireTest, AnOversizedBodyIsToldWithTheBound) {
  WireWriter header;
  header.u32(300'000);
  std::string input = header.body();
  const auto frame = takeFrame(input);
  ASSERT_FALSE(frame);
  EXPECT_EQ(frame.error(), "300000 bytes, more than 262144");
}

TEST(WireTest, FramesAreTakenOffOnceTheyHaveComeWhole) {
  std::string input;
  std::string taken;
  for (const char byte : frameOf("abc") + frameOf("") + frameOf("de").substr(0, 5)) {
    input += byte;
    const auto body = takeFrame(input);
    ASSERT_TRUE(body);
    if (*body) taken += '<' + **body + '>';
  }
  EXPECT_EQ(taken, "<abc><>");
  EXPECT_EQ(input.size(), 5U);
}

TEST(WireTest, ACountThatTheBytesDoNotHoldEndsQuickly) {
  EXPECT_EQ(failureOf(std::string("\x07\xFF\xFF\xFF\xFF", 5)),
            "truncated: a value reaches beyond the end");
}

// The first failure stays; later reads give empty values.
TEST(WireTest, AFailedReaderGivesNothingMore) {
  WireWriter writer;
  writer.u8(2);
  writer.text("after");
  WireReader reader(writer.body());
  reader.boolean();
  EXPECT_TRUE(reader.failed());
  EXPECT_EQ(reader.text(), "");
  EXPECT_EQ(reader.u64(), 0U);
  reader.fail("something else");
  EXPECT_EQ(reader.failure(), "a Boolean that is neither 0 nor 1");
}

TEST(WireTest, AFrameIsItsLengthAndItsBody) {
  const std::string frame = frameOf("abc");
  ASSERT_EQ(frame, std::string("\x03\x00\x00\x00"
                               "abc",
                               7));
  EXPECT_EQ(frameLength(std::span<const char, frameHeaderSize>(frame.data(), frameHeaderSize)), 3U);
}

}  // namespace virtualmac
