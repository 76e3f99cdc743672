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

TEST(PowerSourceListTest, ANotebookListsItsBattery) {
  Bench bench;
  bench.mac.battery.setPercent(61);
  const auto found = descriptions(*bench.helper);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(*found[0]["Type"].text(), "InternalBattery");
  EXPECT_EQ(found[0]["Current Capacity"].integer(), 61);
  EXPECT_EQ(*found[0]["Power Source State"].text(), "AC Power");
}

TEST(PowerSourceListTest, AUPSMayComeBeforeTheBattery) {
  Bench bench{"ups-first"};
  const auto found = descriptions(*bench.helper);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(*found[0]["Type"].text(), "UPS");
  EXPECT_EQ(found[0]["Current Capacity"].integer(), 97);
  EXPECT_EQ(*found[1]["Type"].text(), "InternalBattery");
}

TEST(PowerSourceListTest, ADesktopListsNothing) {
  Bench bench{"desktop"};
  PowerSourcesClient& sources = bench.helper->powerSources;
  const korvel::HandleRef info = sources.copyInfo();
  const korvel::PowerSourceList list = sources.copyList(info);
  EXPECT_TRUE(list.isArray);
  EXPECT_NE(list.handle, 0U);
  EXPECT_TRUE(list.elements.empty());
}

TEST(PowerSourceListTest, ASnapshotKeepsWhatItSaw) {
  Bench bench;
  bench.mac.battery.setPercent(61);
  PowerSourcesClient& sources = bench.helper->powerSources;
  const korvel::HandleRef info = sources.copyInfo();
  bench.mac.battery.setPercent(40);
  const korvel::PowerSourceList list = sources.copyList(info);
  ASSERT_EQ(list.elements.size(), 1U);
  EXPECT_EQ(sources.getDescription(info, list.elements[0])["Current Capacity"].integer(), 61);
  EXPECT_EQ(descriptions(*Bench().helper)[0]["Current Capacity"].integer(), 60);
  sources.release(info);
  EXPECT_TRUE(sources.getDescription(info, list.elements[0]).isAbsent());
}

TEST(PowerSourceListTest, AQuietMachineSharesOneSetOfDescriptions) {
  Bench bench;
  const auto first = bench.mac.powerSources.current();
  EXPECT_EQ(bench.mac.powerSources.current(), first);
  bench.mac.adapter.disconnect();
  EXPECT_NE(bench.mac.powerSources.current(), first);
}

TEST(PowerSourceListTest, FaultsTakeAwaySnapshotListAndCapacity) {
  Bench bench;
  PowerSourcesClient& sources = bench.helper->powerSources;
  bench.fault("power-sources-missing");
  EXPECT_EQ(sources.copyInfo(), 0U);
  bench.fault("power-sources-missing", false);
  const korvel::HandleRef info = sources.copyInfo();
  bench.fault("power-sources-no-list");
  EXPECT_EQ(sources.copyList(info).handle, 0U);
  bench.fault("power-sources-no-list", false);
  bench.fault("power-sources-mistyped");
  EXPECT_FALSE(sources.copyList(info).isArray);
  bench.fault("power-sources-mistyped", false);
  bench.fault("power-sources-empty");
  EXPECT_TRUE(sources.copyList(info).elements.empty());
}

TEST(PowerSourceListTest, AnUnreadableBatteryHasNoCapacityUntilItHeals) {
  Bench bench;
  bench.fault("battery-unreadable");
  EXPECT_TRUE(descriptions(*bench.helper).at(0)["Current Capacity"].isAbsent());
  bench.fault("battery-unreadable", false);
  EXPECT_EQ(descriptions(*bench.helper).at(0)["Current Capacity"].integer(), 60);
  bench.fault("battery-mistyped");
  EXPECT_NE(descriptions(*bench.helper).at(0)["Current Capacity"].text(), nullptr);
}

}  // namespace
}  // namespace virtualmac
