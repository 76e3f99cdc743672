#include "macOS/PropertyConversion.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace korvel::macos {
namespace {

PropertyValue roundTrip(const PropertyValue& value) {
  return propertyValue(makeCFValue(value).get());
}

CFReference<CFTypeRef> number(CFNumberType type, const void* value) {
  return CFReference<CFTypeRef>::adopting(CFNumberCreate(kCFAllocatorDefault, type, value));
}

TEST(PropertyConversionTest, EveryTypeComesBackAsItWent) {
  const PropertyValue::Dictionary entries{{"boolean", true},
                                          {"integer", std::int64_t{-5}},
                                          {"real", 14400.0},
                                          {"text", "Grüße — 🔋"},
                                          {"date", Date::distantPast()},
                                          {"data", PropertyValue::Data{0, 255}},
                                          {"array", PropertyValue::Array{1, "two", false}},
                                          {"dictionary", PropertyValue::Dictionary{{"inner", 1}}}};
  EXPECT_EQ(roundTrip(entries), PropertyValue(entries));
  EXPECT_EQ(roundTrip(PropertyValue::Data()), PropertyValue(PropertyValue::Data()));
  EXPECT_EQ(roundTrip(""), PropertyValue(""));
}

TEST(PropertyConversionTest, ABooleanIsNoNumberAndANumberNoBoolean) {
  EXPECT_EQ(propertyValue(kCFBooleanTrue).boolean(), true);
  EXPECT_FALSE(propertyValue(kCFBooleanTrue).integer());
  const std::int32_t one = 1;
  EXPECT_EQ(propertyValue(number(kCFNumberSInt32Type, &one).get()).integer(), 1);
  EXPECT_FALSE(propertyValue(number(kCFNumberSInt32Type, &one).get()).boolean());
}

TEST(PropertyConversionTest, AWholeRealStaysReal) {
  const double eighty = 80;
  const PropertyValue value = propertyValue(number(kCFNumberDoubleType, &eighty).get());
  EXPECT_EQ(value.real(), 80.0);
  EXPECT_FALSE(value.integer());
}

TEST(PropertyConversionTest, IntegersKeepTheirWidth) {
  for (const std::int64_t each : {std::numeric_limits<std::int64_t>::min(), std::int64_t{0},
                                  std::numeric_limits<std::int64_t>::max()}) {
    EXPECT_EQ(propertyValue(number(kCFNumberSInt64Type, &each).get()).integer(), each);
  }
}

TEST(PropertyConversionTest, NothingAndForeignTypesAreAbsent) {
  EXPECT_TRUE(propertyValue(nullptr).isAbsent());
  EXPECT_TRUE(propertyValue(kCFNull).isAbsent());
  EXPECT_FALSE(makeCFValue(PropertyValue()));
}

TEST(PropertyConversionTest, AForeignElementKeepsItsPlace) {
  std::array<const void*, 2> elements{kCFNull, kCFBooleanTrue};
  const auto array = CFReference<CFArrayRef>::adopting(
      CFArrayCreate(kCFAllocatorDefault, elements.data(), 2, &kCFTypeArrayCallBacks));
  const PropertyValue value = propertyValue(array.get());
  ASSERT_NE(value.array(), nullptr);
  ASSERT_EQ(value.array()->size(), 2U);
  EXPECT_TRUE(value.array()->front().isAbsent());
}

TEST(PropertyConversionTest, ADictionaryNeedsKeysOfText) {
  const void* key = kCFBooleanTrue;
  const void* value = kCFBooleanTrue;
  const auto dictionary = CFReference<CFDictionaryRef>::adopting(
      CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks,
                         &kCFTypeDictionaryValueCallBacks));
  EXPECT_TRUE(propertyValue(dictionary.get()).isAbsent());
}

TEST(PropertyConversionTest, NestingEndsSomewhere) {
  PropertyValue nested = 1;
  for (int depth = 0; depth < 100; ++depth) nested = PropertyValue::Array{nested};
  PropertyValue value = roundTrip(nested);
  int depth = 0;
  while (value.array() != nullptr) {
    const PropertyValue inner = value.array()->front();
    value = inner;
    ++depth;
  }
  EXPECT_TRUE(value.isAbsent());
  EXPECT_EQ(depth, 33);
}

TEST(PropertyConversionTest, TextKeepsItsNULBytes) {
  const std::string text("a\0b", 3);
  EXPECT_EQ(utf8Text(makeCFString(text).get()), text);
}

TEST(PropertyConversionTest, BytesThatAreNoUTF8AreReadAsLatin1) {
  EXPECT_EQ(utf8Text(makeCFString("caf\xE9").get()), "café");
}

TEST(PropertyConversionTest, HalfASurrogatePairDoesNotCutTheText) {
  const std::array<UniChar, 3> units{'a', 0xD800, 'b'};
  const auto string = CFReference<CFStringRef>::adopting(
      CFStringCreateWithCharacters(kCFAllocatorDefault, units.data(), units.size()));
  EXPECT_EQ(utf8Text(string.get()), "a?b");
}

TEST(PropertyConversionTest, NoTextIsNone) { EXPECT_EQ(utf8Text(nullptr), std::nullopt); }

TEST(CFReferenceTest, OwnershipGoesAsTheNameSays) {
  const CFMutableArrayRef array = CFArrayCreateMutable(kCFAllocatorDefault, 0, nullptr);
  {
    const auto retained = CFReference<CFMutableArrayRef>::retaining(array);
    EXPECT_EQ(CFGetRetainCount(array), 2);
  }
  EXPECT_EQ(CFGetRetainCount(array), 1);
  auto adopted = CFReference<CFMutableArrayRef>::adopting(array);
  const auto moved = std::move(adopted);
  EXPECT_EQ(CFGetRetainCount(moved.get()), 1);
}

}  // namespace
}  // namespace korvel::macos
