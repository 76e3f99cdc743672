// Byte lists, property values, error objects and tasks.
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "Base/ByteList.h"
#include "Base/ErrorObject.h"
#include "Base/PropertyValue.h"
#include "Base/Task.h"

namespace korvel {
namespace {

TEST(ByteListTest, DecimalListsStandInBrackets) {
  EXPECT_EQ(decimalList(ByteList{0, 80}), "[0, 80]");
  EXPECT_EQ(decimalList(ByteList{255}), "[255]");
  EXPECT_EQ(decimalList(ByteList{}), "[]");
}

TEST(ByteListTest, DecimalListsOfIntegersKeepSignAndSize) {
  const std::vector<std::int64_t> numbers = {80, -1, std::numeric_limits<std::int64_t>::min(),
                                             std::numeric_limits<std::int64_t>::max()};
  EXPECT_EQ(decimalList(numbers), "[80, -1, -9223372036854775808, 9223372036854775807]");
  EXPECT_EQ(decimalList(std::vector<std::int64_t>{}), "[]");
}

TEST(ByteListTest, HexHasTwoLowerCaseDigitsAByte) {
  EXPECT_EQ(lowerHex(ByteList{0x00, 0x0A, 0xFF, 0xC3}), "000affc3");
  EXPECT_EQ(lowerHex(ByteList{}), "");
}

// One value of each type, in the order of the types.
std::vector<PropertyValue> oneOfEachType() {
  return {PropertyValue(),
          PropertyValue(true),
          PropertyValue(1),
          PropertyValue(1.0),
          PropertyValue("1"),
          PropertyValue(Date{1}),
          PropertyValue(PropertyValue::Data{1}),
          PropertyValue(PropertyValue::Array{1}),
          PropertyValue(PropertyValue::Dictionary{{"1", 1}})};
}

TEST(PropertyValueTest, ValuesOfDifferentTypesAreNeverEqual) {
  const auto values = oneOfEachType();
  const auto copies = oneOfEachType();
  for (std::size_t left = 0; left < values.size(); ++left) {
    for (std::size_t right = 0; right < copies.size(); ++right) {
      EXPECT_EQ(values[left] == copies[right], left == right) << left << " and " << right;
    }
  }
}

TEST(PropertyValueTest, EachValueIsOfItsTypeOnly) {
  const auto values = oneOfEachType();
  for (std::size_t index = 0; index < values.size(); ++index) {
    const PropertyValue& value = values[index];
    EXPECT_EQ(value.isAbsent(), index == 0) << index;
    EXPECT_EQ(value.boolean().has_value(), index == 1) << index;
    EXPECT_EQ(value.integer().has_value(), index == 2) << index;
    EXPECT_EQ(value.real().has_value(), index == 3) << index;
    EXPECT_EQ(value.text() != nullptr, index == 4) << index;
    EXPECT_EQ(value.date() != nullptr, index == 5) << index;
    EXPECT_EQ(value.data() != nullptr, index == 6) << index;
    EXPECT_EQ(value.array() != nullptr, index == 7) << index;
    EXPECT_EQ(value.dictionary() != nullptr, index == 8) << index;
  }
}

TEST(PropertyValueTest, ABooleanIsNoNumberAndAnIntegerNoReal) {
  EXPECT_NE(PropertyValue(true), PropertyValue(1));
  EXPECT_NE(PropertyValue(false), PropertyValue());
  EXPECT_NE(PropertyValue(1), PropertyValue(1.0));
  EXPECT_EQ(PropertyValue(true).integer(), std::nullopt);
  EXPECT_EQ(PropertyValue(1).boolean(), std::nullopt);
  EXPECT_EQ(PropertyValue(1).real(), std::nullopt);
}

TEST(PropertyValueTest, ValuesComeBackAsTheyWereGiven) {
  EXPECT_EQ(PropertyValue(false).boolean(), false);
  EXPECT_EQ(PropertyValue(std::int64_t{-5}).integer(), -5);
  EXPECT_EQ(PropertyValue(0.5).real(), 0.5);
  EXPECT_EQ(*PropertyValue("text").text(), "text");
  EXPECT_EQ(*PropertyValue(Date{7}).date(), Date{7});
  EXPECT_EQ(*PropertyValue(PropertyValue::Data{1, 2}).data(), (PropertyValue::Data{1, 2}));
  EXPECT_EQ(PropertyValue(PropertyValue::Array{1, "two"}).array()->size(), 2U);
}

TEST(PropertyValueTest, EqualityLooksIntoArraysAndDictionaries) {
  const auto nested = [](int leaf) {
    return PropertyValue(PropertyValue::Dictionary{
        {"list", PropertyValue::Array{1, PropertyValue::Dictionary{{"leaf", leaf}}}}});
  };
  EXPECT_EQ(nested(1), nested(1));
  EXPECT_NE(nested(1), nested(2));
  EXPECT_NE(PropertyValue(PropertyValue::Array{1}), PropertyValue(PropertyValue::Array{1.0}));
  EXPECT_NE(PropertyValue(PropertyValue::Array{1}), PropertyValue(PropertyValue::Array{1, 1}));
  EXPECT_NE(PropertyValue(PropertyValue::Dictionary{{"a", 1}}),
            PropertyValue(PropertyValue::Dictionary{{"b", 1}}));
}

TEST(PropertyValueTest, SubscriptFindsOnlyWhatADictionaryHolds) {
  const PropertyValue value = PropertyValue::Dictionary{{"key", 5}};
  EXPECT_EQ(value["key"], PropertyValue(5));
  EXPECT_TRUE(value["other"].isAbsent());
  EXPECT_TRUE(PropertyValue(5)["key"].isAbsent());
  EXPECT_TRUE(PropertyValue()["key"].isAbsent());
}

TEST(PropertyValueTest, CopiesShareTheirContent) {
  const PropertyValue original = PropertyValue::Dictionary{{"key", "value"}};
  const std::vector<PropertyValue> copies(2, original);
  EXPECT_EQ(copies[0].dictionary(), original.dictionary());
  EXPECT_EQ(copies[1].dictionary(), original.dictionary());
}

TEST(ErrorObjectTest, DescriptionIsTheLocalizedOne) {
  const ErrorObject error{"domain", 5, {{localizedDescriptionKey, "what happened"}}};
  EXPECT_EQ(error.localizedDescription(), "what happened");
}

TEST(ErrorObjectTest, WithoutTextTheDescriptionNamesDomainAndCode) {
  EXPECT_EQ((ErrorObject{"domain", -5, {}}).localizedDescription(), "(domain error -5)");
  EXPECT_EQ((ErrorObject{"domain", 5, {{localizedDescriptionKey, 7}}}).localizedDescription(),
            "(domain error 5)");
}

TEST(TaskTest, RunsItsWorkOnceAndDropsTheCaptures) {
  const auto shared = std::make_shared<int>(0);
  Task task = [shared] { ++*shared; };
  EXPECT_TRUE(static_cast<bool>(task));
  EXPECT_EQ(shared.use_count(), 2);
  task();
  EXPECT_EQ(*shared, 1);
  EXPECT_FALSE(static_cast<bool>(task));
  EXPECT_EQ(shared.use_count(), 1);
}

TEST(TaskTest, CarriesWhatCanOnlyBeMoved) {
  int seen = 0;
  Task task = [owned = std::make_unique<int>(7), &seen] { seen = *owned; };
  Task moved = std::move(task);
  moved();
  EXPECT_EQ(seen, 7);
}

}  // namespace
}  // namespace korvel
