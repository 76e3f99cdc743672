#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Platform/IORegistry.h"
#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

using korvel::PropertyValue;

PropertyValue propertiesOf(HelperProcess& helper, std::string_view className) {
  const korvel::ObjectRef service = helper.registry.getMatchingService(className);
  PropertyValue properties;
  EXPECT_EQ(helper.registry.createProperties(service, properties), korvel::kernSuccess);
  EXPECT_EQ(helper.registry.objectRelease(service), korvel::kernSuccess);
  return properties;
}

PropertyValue propertyOf(HelperProcess& helper, std::string_view className, std::string_view key) {
  const korvel::ObjectRef service = helper.registry.getMatchingService(className);
  PropertyValue value = helper.registry.createProperty(service, key);
  helper.registry.objectRelease(service);
  return value;
}

/// Walks the iterator and names the class of each object.
std::vector<std::string> walk(HelperProcess& helper, std::uint32_t options) {
  RegistryClient& registry = helper.registry;
  const korvel::ObjectRef service = registry.getMatchingService("AppleSmartBattery");
  korvel::ObjectRef iterator = 0;
  EXPECT_EQ(registry.createIterator(service, "IOService", options, iterator), korvel::kernSuccess);
  std::vector<std::string> found;
  while (const korvel::ObjectRef entry = registry.iteratorNext(iterator)) {
    for (const char* name : {"AppleSmartBatteryPack", "AppleSmartBatteryBank"}) {
      if (registry.conformsTo(entry, name)) found.emplace_back(name);
    }
    registry.objectRelease(entry);
  }
  registry.objectRelease(iterator);
  registry.objectRelease(service);
  return found;
}

struct RegistryTest : OnBench {
  /// Another machine, whose figures sit on a pack with two banks.
  Bench banked{"two-banks"};
  RegistryClient& registry = banked.helper->registry;
};

TEST_F(RegistryTest, TheBatteryServiceStatesItsFigures) {
  mac.battery.setPercent(50);
  const PropertyValue properties = propertiesOf(*helper, "AppleSmartBattery");
  EXPECT_EQ(properties["ExternalConnected"].boolean(), true);
  EXPECT_EQ(properties["CurrentCapacity"].integer(), 50);
  EXPECT_EQ(properties["AppleRawCurrentCapacity"].integer(), 2850);
  EXPECT_EQ(properties["Temperature"].integer(), 2400);
  EXPECT_NE(properties["BatteryData"].dictionary(), nullptr);
}

TEST_F(RegistryTest, PropertiesFollowTheMachine) {
  const std::string_view battery = "AppleSmartBattery";
  EXPECT_EQ(propertyOf(*helper, battery, "ExternalConnected").boolean(), true);
  mac.adapter.disconnect();
  EXPECT_EQ(propertyOf(*helper, battery, "ExternalConnected").boolean(), false);
  EXPECT_EQ(propertiesOf(*helper, battery)["ExternalConnected"].boolean(), false);
  mac.battery.overrideTemperatureCelsius(44.99);
  EXPECT_EQ(propertiesOf(*helper, battery)["Temperature"].integer(), 4499);
  EXPECT_EQ(propertyOf(*helper, "IOPMrootDomain", "AppleClamshellState").boolean(), false);
  mac.lid.close();
  EXPECT_EQ(propertyOf(*helper, "IOPMrootDomain", "AppleClamshellState").boolean(), true);
}

TEST_F(RegistryTest, TheRootDomainNamesItsClass) {
  EXPECT_EQ(propertyOf(*helper, "IOPMrootDomain", "IOClass"), PropertyValue("IOPMrootDomain"));
}

TEST_F(RegistryTest, InThePackLayoutFiguresSitOnPackAndBanks) {
  const PropertyValue root = propertiesOf(*banked.helper, "AppleSmartBattery");
  EXPECT_TRUE(root["AppleRawMaxCapacity"].isAbsent());
  EXPECT_TRUE(root["Temperature"].isAbsent());
  EXPECT_EQ(walk(*banked.helper, korvel::ioRegistryIterateRecursively),
            (std::vector<std::string>{"AppleSmartBatteryPack", "AppleSmartBatteryBank",
                                      "AppleSmartBatteryBank"}));
  EXPECT_EQ(walk(*banked.helper, 0), std::vector<std::string>{"AppleSmartBatteryPack"});
}

TEST_F(RegistryTest, ThePackStatesCapacitiesAndTheBanksTheirCells) {
  const korvel::ObjectRef service = registry.getMatchingService("AppleSmartBattery");
  korvel::ObjectRef iterator = 0;
  registry.createIterator(service, "IOService", 1, iterator);
  std::vector<PropertyValue> entries;
  while (const korvel::ObjectRef entry = registry.iteratorNext(iterator)) {
    PropertyValue properties;
    EXPECT_EQ(registry.createProperties(entry, properties), korvel::kernSuccess);
    entries.push_back(properties);
  }
  ASSERT_EQ(entries.size(), 3U);
  EXPECT_EQ(entries[0]["BatteryData"]["FullChargeCapacity"].integer(), 5700);
  EXPECT_EQ(entries[0]["BatteryData"]["Temperature"].integer(), 2400);
  EXPECT_EQ(entries[1]["BatteryData"]["CellVoltage"].integer(), 3900);
  EXPECT_EQ(entries[2]["BatteryData"]["CellVoltage"].integer(), 3910);
}

TEST_F(RegistryTest, ServicesThatAreNotThereAreNotMatched) {
  Bench desktop{"desktop"};
  EXPECT_EQ(desktop.helper->registry.getMatchingService("AppleSmartBattery"), 0U);
  EXPECT_EQ(desktop.helper->registry.getMatchingService("NoSuchClass"), 0U);
  EXPECT_TRUE(propertyOf(*desktop.helper, "IOPMrootDomain", "AppleClamshellState").isAbsent());
  fault("battery-service-missing");
  EXPECT_EQ(helper->registry.getMatchingService("AppleSmartBattery"), 0U);
  fault("battery-service-missing", false);
  EXPECT_NE(helper->registry.getMatchingService("AppleSmartBattery"), 0U);
}

TEST_F(RegistryTest, FaultsRemoveAndMistypeProperties) {
  fault("adapter-unknown");
  EXPECT_TRUE(propertyOf(*helper, "AppleSmartBattery", "ExternalConnected").isAbsent());
  fault("adapter-unknown", false);
  fault("adapter-mistyped");
  EXPECT_EQ(propertyOf(*helper, "AppleSmartBattery", "ExternalConnected").integer(), 1);
  fault("temperature-mistyped");
  EXPECT_EQ(*propertiesOf(*helper, "AppleSmartBattery")["Temperature"].text(), "warm");
  fault("lid-unknown");
  EXPECT_TRUE(propertyOf(*helper, "IOPMrootDomain", "AppleClamshellState").isAbsent());
}

TEST_F(RegistryTest, AnUnreadableTemperatureIsGoneInBothLayouts) {
  fault("temperature-unreadable");
  EXPECT_TRUE(propertiesOf(*helper, "AppleSmartBattery")["Temperature"].isAbsent());
  banked.fault("temperature-unreadable");
  korvel::ObjectRef iterator = 0;
  registry.createIterator(registry.getMatchingService("AppleSmartBattery"), "IOService", 1,
                          iterator);
  PropertyValue properties;
  EXPECT_EQ(registry.createProperties(registry.iteratorNext(iterator), properties),
            korvel::kernSuccess);
  EXPECT_TRUE(properties["BatteryData"]["Temperature"].isAbsent());
}

TEST_F(RegistryTest, AHiddenAdapterReadsDisconnectedUnderAnInflowInhibit) {
  fault("adapter-hidden");
  EXPECT_EQ(propertyOf(*helper, "AppleSmartBattery", "ExternalConnected").boolean(), true);
  writeKey(*helper, "CHIE", {8});
  EXPECT_EQ(propertyOf(*helper, "AppleSmartBattery", "ExternalConnected").boolean(), false);
  EXPECT_EQ(propertiesOf(*helper, "AppleSmartBattery")["ExternalConnected"].boolean(), false);
}

TEST_F(RegistryTest, UnreadablePropertiesAndChildrenFailTheirCalls) {
  const korvel::ObjectRef service = registry.getMatchingService("AppleSmartBattery");
  PropertyValue properties;
  banked.fault("registry-unreadable");
  EXPECT_EQ(registry.createProperties(service, properties), korvel::ioReturnError);
  EXPECT_TRUE(properties.isAbsent());
  EXPECT_TRUE(registry.createProperty(service, "ExternalConnected").isAbsent());
  korvel::ObjectRef iterator = 9;
  banked.fault("registry-iteration-fails");
  EXPECT_EQ(registry.createIterator(service, "IOService", 1, iterator), korvel::ioReturnError);
  EXPECT_EQ(iterator, 9U);
}

TEST_F(RegistryTest, NamesAreCountedUntilTheyAreGivenBack) {
  walk(*banked.helper, 1);
  EXPECT_EQ(registry.liveObjects(), 0U);
  const korvel::ObjectRef service = registry.getMatchingService("AppleSmartBattery");
  EXPECT_EQ(registry.liveObjects(), 1U);
  EXPECT_EQ(registry.objectRelease(service), korvel::kernSuccess);
  EXPECT_EQ(registry.objectRelease(service), machSendInvalidDest) << "a name dies once";
  PropertyValue properties;
  EXPECT_EQ(registry.createProperties(service, properties), machSendInvalidDest);
  EXPECT_EQ(registry.iteratorNext(service), 0U);
  EXPECT_FALSE(registry.conformsTo(service, "AppleSmartBattery"));
}

TEST_F(RegistryTest, AnIteratorIsNoEntry) {
  korvel::ObjectRef iterator = 0;
  const korvel::ObjectRef service = registry.getMatchingService("AppleSmartBattery");
  ASSERT_EQ(registry.createIterator(service, "IOService", 1, iterator), korvel::kernSuccess);
  EXPECT_FALSE(registry.conformsTo(iterator, "IOService"));
  EXPECT_EQ(registry.createIterator(service, "IOPower", 1, iterator), korvel::ioReturnBadArgument);
}

}  // namespace
}  // namespace virtualmac
