// Values that no property list holds, at every place and depth.
#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#import "macOS/FoundationConversion.h"
#include "macOS/PropertyConversion.h"

namespace korvel::macos {
namespace {

PropertyValue converted(id value) { return propertyValue((__bridge CFTypeRef)value); }

template <class Value>
PropertyValue convertedNumber(CFNumberType type, Value value) {
  return propertyValue(
      CFReference<CFTypeRef>::adopting(CFNumberCreate(kCFAllocatorDefault, type, &value)).get());
}

/// An array of arrays, so many deep, around a value.
id nestedArrays(int depth, id inside) {
  id value = inside;
  for (int level = 0; level < depth; ++level) value = @[ value ];
  return value;
}

id nestedDictionaries(int depth, id inside) {
  id value = inside;
  for (int level = 0; level < depth; ++level) value = @{@"in" : value};
  return value;
}

TEST(ForeignValuesTest, ObjectsThatNoPropertyListHoldsAreAbsent) {
  EXPECT_TRUE(converted([NSObject new]).isAbsent());
  EXPECT_TRUE(converted([NSSet setWithObject:@1]).isAbsent());
  EXPECT_TRUE(converted([NSError errorWithDomain:@"test" code:1 userInfo:nil]).isAbsent());
  EXPECT_TRUE(propertyValue(CFRunLoopGetMain()).isAbsent());
}

TEST(ForeignValuesTest, OneOfThemInADictionaryIsAbsentAndTheRestStays) {
  const PropertyValue value = converted(@{@"set" : [NSSet set], @"number" : @1});
  ASSERT_NE(value.dictionary(), nullptr);
  EXPECT_TRUE(value["set"].isAbsent());
  EXPECT_EQ(value["number"].integer(), 1);
}

TEST(ForeignValuesTest, ADictionaryWithOneForeignKeyIsNone) {
  EXPECT_TRUE(converted(@{@"text" : @1, @2 : @"number"}).isAbsent());
  EXPECT_TRUE(converted(@[ @{[NSNull null] : @1} ]).array()->front().isAbsent());
}

TEST(ForeignValuesTest, NothingIsReadBelowTheDeepestLevel) {
  constexpr int deepest = 32;
  PropertyValue value = converted(nestedArrays(deepest, @"bottom"));
  for (int level = 0; level < deepest; ++level) {
    ASSERT_NE(value.array(), nullptr);
    const PropertyValue inner = value.array()->front();
    value = inner;
  }
  EXPECT_EQ(value, PropertyValue("bottom"));
  PropertyValue deeper = converted(nestedDictionaries(deepest + 1, @"bottom"));
  for (int level = 0; level <= deepest; ++level) {
    ASSERT_NE(deeper.dictionary(), nullptr);
    const PropertyValue inner = deeper["in"];
    deeper = inner;
  }
  EXPECT_TRUE(deeper.isAbsent());
}

TEST(ForeignValuesTest, NumbersOfEveryKindKeepWhatTheyAre) {
  EXPECT_EQ(convertedNumber(kCFNumberSInt8Type, std::int8_t{-128}).integer(), -128);
  EXPECT_EQ(convertedNumber(kCFNumberSInt16Type, std::int16_t{-3}).integer(), -3);
  EXPECT_EQ(converted(@(std::numeric_limits<long long>::min())).integer(),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(convertedNumber(kCFNumberFloat32Type, 0.25F).real(), 0.25);
  EXPECT_FALSE(convertedNumber(kCFNumberFloat32Type, 2.0F).integer());
  EXPECT_EQ(converted(@(std::numeric_limits<double>::infinity())).real(),
            std::numeric_limits<double>::infinity());
  const auto noNumber = converted(@(std::numeric_limits<double>::quiet_NaN())).real();
  ASSERT_TRUE(noNumber);
  EXPECT_TRUE(std::isnan(*noNumber));
  EXPECT_EQ(converted(@(true)).boolean(), true);
}

TEST(ForeignValuesTest, TextsThatAreHardToReadComeWhole) {
  EXPECT_EQ(converted(@"").text() == nullptr, false);
  EXPECT_EQ(converted(@"\0b"), PropertyValue(std::string("\0b", 2)));
  const std::string everyByte = [] {
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
    return bytes;
  }();
  NSString* latin = makeNSString(everyByte);
  EXPECT_EQ(latin.length, 255U) << "bytes that are no UTF-8 are one character each";
  EXPECT_TRUE([makeNSString("") isEqual:@""]);
}

TEST(ForeignValuesTest, WhatIsAbsentIsLeftOutOfWhatIsMade) {
  const PropertyValue::Array elements{1, PropertyValue(), "two"};
  EXPECT_EQ(propertyValue(makeCFValue(elements).get()),
            PropertyValue(PropertyValue::Array{1, "two"}));
  const PropertyValue::Dictionary entries{{"here", 1}, {"gone", PropertyValue()}};
  EXPECT_EQ(propertyValue(makeCFDictionary(entries).get()),
            PropertyValue(PropertyValue::Dictionary{{"here", 1}}));
}

TEST(ForeignValuesTest, AnErrorWithoutDetailsHasNone) {
  NSError* error = makeNSError(ErrorObject{.domain = "d\xE9", .code = -1, .userInfo = {}});
  EXPECT_TRUE([error.domain isEqual:@"dé"]);
  EXPECT_EQ(error.code, -1);
  EXPECT_EQ(error.userInfo.count, 0U);
}

}  // namespace
}  // namespace korvel::macos
