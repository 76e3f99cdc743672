#include "BatteryRegistryReader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Tests/unit/FakesRegistry.h"

namespace korvel {
namespace {

using Dictionary = PropertyValue::Dictionary;
using Array = PropertyValue::Array;
using BatteryRegistryReader::merged;

PropertyValue data(const Dictionary& result) { return PropertyValue(result)["BatteryData"]; }

TEST(BatteryMergeTest, WithoutPackAndBanksTheRootStaysAsItIs) {
  const Dictionary root = {{"Temperature", 3000}, {"BatteryData", Dictionary{{"Qmax", 5}}}};
  EXPECT_EQ(merged(root, {}, {}), root);
}

TEST(BatteryMergeTest, AnEntryWithoutAValueCountsAsNone) {
  EXPECT_EQ(merged({{"BatteryData", PropertyValue()}}, {{"Qmax", 1}}, {}),
            (Dictionary{{"BatteryData", Dictionary{{"Qmax", 1}}}}));
}

TEST(BatteryMergeTest, WithoutAnythingTheBatteryDataIsEmpty) {
  EXPECT_EQ(merged({{"a", 1}}, {}, {}), (Dictionary{{"a", 1}, {"BatteryData", Dictionary{}}}));
}

TEST(BatteryMergeTest, BatteryDataOfAnotherTypeCountsAsNone) {
  EXPECT_EQ(merged({{"BatteryData", 7}}, {{"Qmax", 1}}, {}),
            (Dictionary{{"BatteryData", Dictionary{{"Qmax", 1}}}}));
}

TEST(BatteryMergeTest, TheRootsBatteryDataWinsOverThePacks) {
  const auto result = merged({{"BatteryData", Dictionary{{"both", "root"}, {"mine", 1}}}},
                             {{"both", "pack"}, {"its", 2}}, {});
  EXPECT_EQ(data(result), (Dictionary{{"both", "root"}, {"mine", 1}, {"its", 2}}));
}

TEST(BatteryMergeTest, FiveKeysAreLiftedToTheRoot) {
  Dictionary pack;
  for (const char* key : {"AppleRawCurrentCapacity", "AppleRawMaxCapacity", "NominalChargeCapacity",
                          "DesignCapacity", "Temperature", "CycleCount"}) {
    pack.emplace(key, key);
  }
  Dictionary expected = pack;
  expected.erase("CycleCount");
  expected.emplace("BatteryData", pack);
  EXPECT_EQ(merged({}, pack, {}), expected);
}

TEST(BatteryMergeTest, WhatTheRootHasIsKept) {
  for (const char* key : {"AppleRawCurrentCapacity", "AppleRawMaxCapacity", "NominalChargeCapacity",
                          "DesignCapacity", "Temperature"}) {
    const auto result = merged({{key, "root"}}, {{key, "pack"}}, {});
    EXPECT_EQ(PropertyValue(result)[key], PropertyValue("root")) << key;
  }
}

TEST(BatteryMergeTest, TheRootKeepsItsCapacityAgainstThePacksFullCharge) {
  const auto result = merged({{"AppleRawMaxCapacity", 5000}}, {{"FullChargeCapacity", 4500}}, {});
  EXPECT_EQ(PropertyValue(result)["AppleRawMaxCapacity"], PropertyValue(5000));
}

TEST(BatteryMergeTest, FullAndRemainingCapacityFillTheRootsGaps) {
  const auto result = merged({}, {{"FullChargeCapacity", 4500}, {"RemainingCapacity", 3000}}, {});
  EXPECT_EQ(PropertyValue(result)["AppleRawMaxCapacity"], PropertyValue(4500));
  EXPECT_EQ(PropertyValue(result)["AppleRawCurrentCapacity"], PropertyValue(3000));
}

TEST(BatteryMergeTest, TheRootsOwnBatteryDataFillsItsGapsBeforeThePacks) {
  const auto result = merged({{"BatteryData", Dictionary{{"FullChargeCapacity", 4400},
                                                         {"RemainingCapacity", 2900},
                                                         {"Temperature", 3100}}}},
                             {{"FullChargeCapacity", 4500},
                              {"RemainingCapacity", 3000},
                              {"Temperature", 3000},
                              {"DesignCapacity", 5000}},
                             {});
  const PropertyValue found(result);
  EXPECT_EQ(found["AppleRawMaxCapacity"], PropertyValue(4400));
  EXPECT_EQ(found["AppleRawCurrentCapacity"], PropertyValue(2900));
  EXPECT_EQ(found["Temperature"], PropertyValue(3100));
  EXPECT_EQ(found["DesignCapacity"], PropertyValue(5000));
}

TEST(BatteryMergeTest, RawCapacitiesWinOverTheirFallbacks) {
  const auto result = merged({},
                             {{"FullChargeCapacity", 1},
                              {"AppleRawMaxCapacity", 2},
                              {"RemainingCapacity", 3},
                              {"AppleRawCurrentCapacity", 4}},
                             {});
  EXPECT_EQ(PropertyValue(result)["AppleRawMaxCapacity"], PropertyValue(2));
  EXPECT_EQ(PropertyValue(result)["AppleRawCurrentCapacity"], PropertyValue(4));
}

TEST(BatteryMergeTest, WithoutAnySourceACapacityStaysAbsent) {
  const auto result = merged({}, {{"CycleCount", 1}}, {});
  EXPECT_FALSE(result.contains("AppleRawMaxCapacity"));
  EXPECT_FALSE(result.contains("AppleRawCurrentCapacity"));
  EXPECT_FALSE(result.contains("Temperature"));
}

TEST(BatteryMergeTest, LiftedValuesMayBeOfAnyType) {
  const auto result = merged({}, {{"Temperature", "warm"}}, {});
  EXPECT_EQ(PropertyValue(result)["Temperature"], PropertyValue("warm"));
}

TEST(BatteryMergeTest, TimeAtHighChargeComesFromTheFirstBankThatHasIt) {
  const std::vector<Dictionary> banks = {
      {{"CellVoltage", 1}},
      {{"LifetimeData", "not a dictionary"}},
      {{"LifetimeData", Dictionary{{"Other", 9}}}},
      {{"LifetimeData", Dictionary{{"TimeAtHighSoc", 5}, {"Other", 8}}}},
      {{"LifetimeData", Dictionary{{"TimeAtHighSoc", 6}}}}};
  const auto result = merged({}, {{"LifetimeData", Dictionary{{"Mine", 1}}}}, banks);
  EXPECT_EQ(data(result)["LifetimeData"],
            PropertyValue(Dictionary{{"Mine", 1}, {"TimeAtHighSoc", 5}}));
}

TEST(BatteryMergeTest, TimeAtHighChargeOfThePackIsKept) {
  const auto result = merged({}, {{"LifetimeData", Dictionary{{"TimeAtHighSoc", 1}}}},
                             {{{"LifetimeData", Dictionary{{"TimeAtHighSoc", 2}}}}});
  EXPECT_EQ(data(result)["LifetimeData"], PropertyValue(Dictionary{{"TimeAtHighSoc", 1}}));
}

TEST(BatteryMergeTest, EmptyLifetimeDataAddsNothing) {
  const auto result = merged({}, {}, {{{"LifetimeData", Dictionary{{"Other", 1}}}}});
  EXPECT_TRUE(data(result)["LifetimeData"].isAbsent());
}

TEST(BatteryMergeTest, LifetimeDataOfAnotherTypeIsReplacedOnlyByABanks) {
  const auto kept = merged({}, {{"LifetimeData", 7}}, {});
  EXPECT_EQ(data(kept)["LifetimeData"], PropertyValue(7));
  const auto replaced =
      merged({}, {{"LifetimeData", 7}}, {{{"LifetimeData", Dictionary{{"TimeAtHighSoc", 2}}}}});
  EXPECT_EQ(data(replaced)["LifetimeData"], PropertyValue(Dictionary{{"TimeAtHighSoc", 2}}));
}

TEST(BatteryMergeTest, IntegersOfTheBanksAreGatheredInOrder) {
  const std::vector<Dictionary> banks = {{{"CellVoltage", 3900}, {"WeightedRa", 80}},
                                         {{"CellVoltage", "high"}, {"Qmax", 4400.0}},
                                         {{"CellVoltage", 3910}, {"Qmax", true}}};
  const auto result = merged({}, {}, banks);
  EXPECT_EQ(data(result), PropertyValue(Dictionary{{"CellVoltage", Array{3900, 3910}},
                                                   {"WeightedRa", Array{80}}}));
}

TEST(BatteryMergeTest, ABankWhoseValueIsNoIntegerIsLeftOutOfTheList) {
  const auto result =
      merged({}, {}, {{{"CellVoltage", 3900}}, {{"CellVoltage", "high"}}, {{"CellVoltage", 3910}}});
  EXPECT_EQ(data(result)["CellVoltage"], PropertyValue(Array{3900, 3910}));
}

TEST(BatteryMergeTest, GatheredKeysOfTheDataAreKept) {
  const auto result = merged({}, {{"CellVoltage", "pack"}}, {{{"CellVoltage", 3900}}});
  EXPECT_EQ(data(result)["CellVoltage"], PropertyValue("pack"));
}

class BatteryRegistryReaderTest : public testing::Test {
 protected:
  static PropertyValue withData(Dictionary content) {
    return Dictionary{{"BatteryData", std::move(content)}};
  }
  std::optional<Dictionary> read() {
    auto result = BatteryRegistryReader::properties(registry, test::FakeRegistry::serviceName);
    EXPECT_EQ(registry.leaked(), 0);
    return result;
  }

  test::FakeRegistry registry;
};

TEST_F(BatteryRegistryReaderTest, WalksAllDescendantsInTheServicePlane) {
  ASSERT_TRUE(read());
  EXPECT_EQ(registry.plane, "IOService");
  EXPECT_EQ(registry.options, 1U);
}

TEST_F(BatteryRegistryReaderTest, AnUnreadableRootGivesNothing) {
  registry.service.code = ioReturnError;
  EXPECT_EQ(read(), std::nullopt);
}

TEST_F(BatteryRegistryReaderTest, ARootThatIsNoDictionaryGivesNothing) {
  for (const PropertyValue& properties :
       {PropertyValue(), PropertyValue(5), PropertyValue(Array{})}) {
    registry.service.properties = properties;
    EXPECT_EQ(read(), std::nullopt);
  }
}

TEST_F(BatteryRegistryReaderTest, WithoutAnIteratorTheRootIsAllThereIs) {
  registry.service.properties = Dictionary{{"Temperature", 3000}};
  registry.descendants = {{"AppleSmartBatteryPack", withData({{"DesignCapacity", 1}})}};
  registry.iteratorCode = ioReturnError;
  EXPECT_EQ(read(), (Dictionary{{"Temperature", 3000}, {"BatteryData", Dictionary{}}}));
}

TEST_F(BatteryRegistryReaderTest, PackAndBanksAreMerged) {
  registry.descendants = {{"Something", Dictionary{}},
                          {"AppleSmartBatteryPack", withData({{"FullChargeCapacity", 4500}})},
                          {"AppleSmartBatteryBank", withData({{"CellVoltage", 3900}})},
                          {"AppleSmartBatteryBank", withData({{"CellVoltage", 3910}})}};
  EXPECT_EQ(read(), (Dictionary{{"AppleRawMaxCapacity", 4500},
                                {"BatteryData", Dictionary{{"FullChargeCapacity", 4500},
                                                           {"CellVoltage", Array{3900, 3910}}}}}));
}

TEST_F(BatteryRegistryReaderTest, OnlyTheFirstPackWithDataIsUsed) {
  registry.descendants = {
      {"AppleSmartBatteryPack", Dictionary{{"Other", 1}}},
      {"AppleSmartBatteryPack", withData({{"DesignCapacity", 1}}), ioReturnError},
      {"AppleSmartBatteryPack", Dictionary{{"BatteryData", "text"}}},
      {"AppleSmartBatteryPack", withData({{"DesignCapacity", 2}})},
      {"AppleSmartBatteryPack", withData({{"DesignCapacity", 3}})}};
  const auto result = read();
  ASSERT_TRUE(result);
  EXPECT_EQ(PropertyValue(*result)["DesignCapacity"], PropertyValue(2));
}

TEST_F(BatteryRegistryReaderTest, APackWithEmptyDataLeavesRoomForALaterOne) {
  registry.descendants = {{"AppleSmartBatteryPack", withData({})},
                          {"AppleSmartBatteryPack", withData({{"DesignCapacity", 3}})}};
  EXPECT_EQ(PropertyValue(read().value())["DesignCapacity"], PropertyValue(3));
}

TEST_F(BatteryRegistryReaderTest,
       AnEntryThatIsPackAndBankIsAPackWhileNoneIsKnownAndABankAfterwards) {
  const auto both = [](Dictionary content) {
    return test::FakeRegistry::Entry{"AppleSmartBatteryPack", withData(std::move(content)),
                                     kernSuccess, "AppleSmartBatteryBank"};
  };
  registry.descendants = {both({{"DesignCapacity", 1}, {"Qmax", "of the pack"}}),
                          both({{"DesignCapacity", 2}, {"CellVoltage", 3900}})};
  EXPECT_EQ(read(), (Dictionary{{"DesignCapacity", 1},
                                {"BatteryData", Dictionary{{"DesignCapacity", 1},
                                                           {"Qmax", "of the pack"},
                                                           {"CellVoltage", Array{3900}}}}}));
}

TEST_F(BatteryRegistryReaderTest, AnEntryThatIsPackAndBankIsNotBothAtOnce) {
  // The root's own figures hide the pack's; a bank's would fill the gap in them.
  registry.service.properties = withData({{"LifetimeData", Dictionary{{"Other", 1}}}});
  registry.descendants = {{"AppleSmartBatteryPack",
                           withData({{"LifetimeData", Dictionary{{"TimeAtHighSoc", 5}}}}),
                           kernSuccess, "AppleSmartBatteryBank"}};
  const auto result = read();
  ASSERT_TRUE(result);
  EXPECT_EQ(data(*result)["LifetimeData"], PropertyValue(Dictionary{{"Other", 1}}));
}

TEST_F(BatteryRegistryReaderTest, BanksWithoutDataAreSkipped) {
  registry.descendants = {{"AppleSmartBatteryBank", Dictionary{}},
                          {"AppleSmartBatteryBank", withData({{"Qmax", 1}}), ioReturnError},
                          {"AppleSmartBatteryBank", Dictionary{{"BatteryData", 5}}},
                          {"AppleSmartBatteryBank", PropertyValue(7)},
                          {"AppleSmartBatteryBank", withData({{"Qmax", 2}})}};
  const auto result = read();
  ASSERT_TRUE(result);
  EXPECT_EQ(data(*result)["Qmax"], PropertyValue(Array{2}));
}

}  // namespace
}  // namespace korvel
