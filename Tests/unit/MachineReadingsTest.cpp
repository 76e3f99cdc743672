#include "MachineReadings.h"

#include <gtest/gtest.h>

#include <map>
#include <utility>
#include <vector>

#include "Platform/PowerSources.h"
#include "Tests/unit/FakesRegistry.h"

namespace korvel {
namespace {

using test::FakeRegistry;

/// One snapshot with a list of descriptions. Counts what the caller holds.
class FakePowerSources final : public PowerSources {
 public:
  bool givesSnapshot = true;
  bool givesList = true;
  bool isArray = true;
  std::vector<PropertyValue> descriptions;

  HandleRef copyInfo() override { return givesSnapshot ? take(snapshotName) : 0; }
  PowerSourceList copyList(HandleRef info) override {
    EXPECT_EQ(info, snapshotName);
    if (!givesList) return {};
    PowerSourceList list{take(listName), isArray, {}};
    for (HandleRef i = 0; isArray && i < descriptions.size(); ++i) list.elements.push_back(i + 1);
    return list;
  }
  PropertyValue getDescription(HandleRef info, HandleRef source) override {
    EXPECT_EQ(info, snapshotName);
    EXPECT_GT(held[listName], 0) << "an element is borrowed from its list";
    return descriptions.at(source - 1);
  }
  void release(HandleRef object) override {
    EXPECT_GT(held[object], 0) << "released what was not held";
    --held[object];
  }

  [[nodiscard]] int leaked() const {
    int total = 0;
    for (const auto& [name, references] : held) total += references;
    return total;
  }

 private:
  static constexpr HandleRef snapshotName = 100;
  static constexpr HandleRef listName = 101;

  HandleRef take(HandleRef name) {
    ++held[name];
    return name;
  }

  std::map<HandleRef, int> held;
};

PropertyValue source(const PropertyValue& type, const PropertyValue& charge) {
  PropertyValue::Dictionary description;
  if (!type.isAbsent()) description["Type"] = type;
  if (!charge.isAbsent()) description["Current Capacity"] = charge;
  return description;
}

class ChargeReadingTest : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(sources.leaked(), 0); }

  std::optional<std::int64_t> readOf(std::vector<PropertyValue> descriptions) {
    sources.descriptions = std::move(descriptions);
    return MachineReadings::batteryCapacityPercent(sources);
  }

  const PropertyValue battery = source("InternalBattery", 57);
  FakePowerSources sources;
};

TEST_F(ChargeReadingTest, InternalBatteryBehindAnUninterruptibleSupplyGivesTheCharge) {
  EXPECT_EQ(readOf({source("UPS", 97), battery}), 57);
  EXPECT_EQ(readOf({source("UPS", 97)}), std::nullopt);
}

TEST_F(ChargeReadingTest, FirstInternalBatteryThatTellsItsChargeCounts) {
  EXPECT_EQ(readOf({battery, source("InternalBattery", 12)}), 57);
  for (const PropertyValue& unusable :
       {PropertyValue(), PropertyValue("12"), PropertyValue(12.0), PropertyValue(true)}) {
    EXPECT_EQ(readOf({source("InternalBattery", unusable), battery}), 57);
    EXPECT_EQ(readOf({source("InternalBattery", unusable)}), std::nullopt);
  }
}

TEST_F(ChargeReadingTest, SourcesWithoutADescriptionOrATypeOfTextAreSkipped) {
  for (const PropertyValue& skipped : {PropertyValue(), PropertyValue("InternalBattery"),
                                       source(PropertyValue(), 12), source(7, 12)}) {
    EXPECT_EQ(readOf({skipped, battery}), 57);
    EXPECT_EQ(readOf({skipped}), std::nullopt);
  }
}

TEST_F(ChargeReadingTest, ChargeIsNeitherScaledNorClamped) {
  for (const int charge : {-7, 0, 1, 99, 100, 101, 5200}) {
    EXPECT_EQ(readOf({source("InternalBattery", charge)}), charge);
  }
}

TEST_F(ChargeReadingTest, WithoutSnapshotListArrayOrSourcesThereIsNoCharge) {
  EXPECT_EQ(readOf({}), std::nullopt);
  sources.isArray = false;
  EXPECT_EQ(readOf({battery}), std::nullopt);
  sources.givesList = false;
  EXPECT_EQ(readOf({battery}), std::nullopt);
  sources.givesSnapshot = false;
  EXPECT_EQ(readOf({battery}), std::nullopt);
}

class RegistryReadingTest : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(registry.leaked(), 0); }

  void service(const char* className, PropertyValue::Dictionary properties) {
    registry.service.className = className;
    registry.service.properties = std::move(properties);
  }

  FakeRegistry registry;
};

TEST_F(RegistryReadingTest, TemperatureIsCutToWholeDegreesTowardZero) {
  const std::map<int, int> expected = {{4499, 44}, {4500, 45}, {4501, 45}, {2999, 29},
                                       {99, 0},    {-99, 0},   {-150, -1}, {-200, -2}};
  for (const auto& [hundredths, degrees] : expected) {
    service("AppleSmartBattery", {{"Temperature", hundredths}});
    EXPECT_EQ(MachineReadings::batteryTemperatureCelsius(registry), degrees) << hundredths;
  }
}

TEST_F(RegistryReadingTest, TemperatureThatIsMissingOrNoIntegerIsUnknown) {
  service("AppleSmartBattery", {});
  EXPECT_EQ(MachineReadings::batteryTemperatureCelsius(registry), std::nullopt);
  for (const PropertyValue& value :
       {PropertyValue("4500"), PropertyValue(4500.0), PropertyValue(true)}) {
    service("AppleSmartBattery", {{"Temperature", value}});
    EXPECT_EQ(MachineReadings::batteryTemperatureCelsius(registry), std::nullopt);
  }
  service("AppleSmartBattery", {{"Temperature", 4500}});
  registry.service.code = ioReturnError;
  EXPECT_EQ(MachineReadings::batteryTemperatureCelsius(registry), std::nullopt)
      << "the properties could not be read";
  service("IOPMrootDomain", {{"Temperature", 4500}});
  EXPECT_EQ(MachineReadings::batteryTemperatureCelsius(registry), std::nullopt)
      << "there is no battery";
}

TEST_F(RegistryReadingTest, AdapterWithoutItsPropertyIsUnknownAndNotDisconnected) {
  for (const bool connected : {false, true}) {
    service("AppleSmartBattery", {{"ExternalConnected", connected}});
    EXPECT_EQ(MachineReadings::externalPowerConnected(registry), connected);
  }
  service("AppleSmartBattery", {});
  EXPECT_EQ(MachineReadings::externalPowerConnected(registry), std::nullopt);
  for (const PropertyValue& value : {PropertyValue(0), PropertyValue(1), PropertyValue("No")}) {
    service("AppleSmartBattery", {{"ExternalConnected", value}});
    EXPECT_EQ(MachineReadings::externalPowerConnected(registry), std::nullopt);
  }
  service("IOPMrootDomain", {{"ExternalConnected", true}});
  EXPECT_EQ(MachineReadings::externalPowerConnected(registry), std::nullopt);
}

TEST_F(RegistryReadingTest, LidOfUnknownStateCountsAsOpen) {
  for (const bool closed : {false, true}) {
    service("IOPMrootDomain", {{"AppleClamshellState", closed}});
    EXPECT_EQ(MachineReadings::clamshellClosed(registry), closed);
  }
  service("IOPMrootDomain", {});
  EXPECT_FALSE(MachineReadings::clamshellClosed(registry));
  for (const PropertyValue& value : {PropertyValue(1), PropertyValue("Yes")}) {
    service("IOPMrootDomain", {{"AppleClamshellState", value}});
    EXPECT_FALSE(MachineReadings::clamshellClosed(registry));
  }
  service("AppleSmartBattery", {{"AppleClamshellState", true}});
  EXPECT_FALSE(MachineReadings::clamshellClosed(registry));
}

}  // namespace
}  // namespace korvel
