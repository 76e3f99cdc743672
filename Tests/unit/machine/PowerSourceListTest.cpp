#include <gtest/gtest.h>

#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

using korvel::PropertyValue;

/// Returns the descriptions in a new snapshot, and releases everything.
std::vector<PropertyValue> descriptions(HelperProcess& helper) {
  PowerSourcesClient& sources = helper.powerSources;
  const korvel::HandleRef info = sources.copyInfo();
  const korvel::PowerSourceList list = sources.copyList(info);
  std::vector<PropertyValue> found;
  found.reserve(list.elements.size());
  for (const korvel::HandleRef each : list.elements) {
    found.push_back(sources.getDescription(info, each));
  }
  sources.release(list.handle);
  sources.release(info);
  EXPECT_EQ(sources.liveObjects(), 0U);
  return found;
}

using PowerSourceListTest = OnBench;

TEST_F(PowerSourceListTest, ANotebookListsItsBattery) {
  mac.battery.setPercent(61);
  const auto found = descriptions(*helper);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(*found[0]["Type"].text(), "InternalBattery");
  EXPECT_EQ(found[0]["Current Capacity"].integer(), 61);
  EXPECT_EQ(*found[0]["Power Source State"].text(), "AC Power");
}

TEST_F(PowerSourceListTest, AUPSMayComeBeforeTheBattery) {
  Bench bench{"ups-first"};
  const auto found = descriptions(*bench.helper);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(*found[0]["Type"].text(), "UPS");
  EXPECT_EQ(found[0]["Current Capacity"].integer(), 97);
  EXPECT_EQ(*found[1]["Type"].text(), "InternalBattery");
}

TEST_F(PowerSourceListTest, ADesktopListsNothing) {
  Bench bench{"desktop"};
  PowerSourcesClient& sources = bench.helper->powerSources;
  const korvel::HandleRef info = sources.copyInfo();
  const korvel::PowerSourceList list = sources.copyList(info);
  EXPECT_TRUE(list.isArray);
  EXPECT_NE(list.handle, 0U);
  EXPECT_TRUE(list.elements.empty());
}

TEST_F(PowerSourceListTest, ASnapshotKeepsWhatItSaw) {
  mac.battery.setPercent(61);
  PowerSourcesClient& sources = helper->powerSources;
  const korvel::HandleRef info = sources.copyInfo();
  mac.battery.setPercent(40);
  const korvel::PowerSourceList list = sources.copyList(info);
  ASSERT_EQ(list.elements.size(), 1U);
  EXPECT_EQ(sources.getDescription(info, list.elements[0])["Current Capacity"].integer(), 61);
  EXPECT_EQ(descriptions(*Bench().helper)[0]["Current Capacity"].integer(), 60);
  sources.release(info);
  EXPECT_TRUE(sources.getDescription(info, list.elements[0]).isAbsent());
}

TEST_F(PowerSourceListTest, AQuietMachineSharesOneSetOfDescriptions) {
  const auto first = mac.powerSources.current();
  EXPECT_EQ(mac.powerSources.current(), first);
  mac.adapter.disconnect();
  EXPECT_NE(mac.powerSources.current(), first);
}

TEST_F(PowerSourceListTest, FaultsTakeAwaySnapshotListAndCapacity) {
  PowerSourcesClient& sources = helper->powerSources;
  fault("power-sources-missing");
  EXPECT_EQ(sources.copyInfo(), 0U);
  fault("power-sources-missing", false);
  const korvel::HandleRef info = sources.copyInfo();
  fault("power-sources-no-list");
  EXPECT_EQ(sources.copyList(info).handle, 0U);
  fault("power-sources-no-list", false);
  fault("power-sources-mistyped");
  EXPECT_FALSE(sources.copyList(info).isArray);
  fault("power-sources-mistyped", false);
  fault("power-sources-empty");
  EXPECT_TRUE(sources.copyList(info).elements.empty());
}

TEST_F(PowerSourceListTest, AnUnreadableBatteryHasNoCapacityUntilItHeals) {
  fault("battery-unreadable");
  EXPECT_TRUE(descriptions(*helper).at(0)["Current Capacity"].isAbsent());
  fault("battery-unreadable", false);
  EXPECT_EQ(descriptions(*helper).at(0)["Current Capacity"].integer(), 60);
  fault("battery-mistyped");
  EXPECT_NE(descriptions(*helper).at(0)["Current Capacity"].text(), nullptr);
}

}  // namespace
}  // namespace virtualmac
