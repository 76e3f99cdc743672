#include <gtest/gtest.h>

#include <vector>

#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

constexpr double hour = 3600;

using BatteryTest = OnBench;

TEST_F(BatteryTest, ChargesOnTheAdapterUntilItIsFull) {
  mac.battery.setPercent(50);
  mac.advance(hour / 2);
  EXPECT_EQ(mac.battery.percent(), 75);
  EXPECT_TRUE(mac.battery.isCharging());
  mac.advance(4 * hour);
  EXPECT_EQ(mac.battery.percent(), 100);
  EXPECT_TRUE(mac.battery.isFull());
  EXPECT_FALSE(mac.battery.isCharging());
}

TEST_F(BatteryTest, TheChargeRateFallsTowardsFull) {
  mac.battery.setPercent(70);
  mac.advance(60);
  const double early = mac.battery.exactPercent() - 70;
  mac.battery.setPercent(98);
  mac.advance(60);
  const double late = mac.battery.exactPercent() - 98;
  EXPECT_GT(late, 0);
  EXPECT_LT(late, early / 3);
}

TEST_F(BatteryTest, InhibitedChargingStopsTheBattery) {
  mac.battery.setPercent(70);
  EXPECT_EQ(writeKey(*helper, "CHTE", {1, 0, 0, 0}), smcResultSuccess);
  mac.advance(2 * hour);
  EXPECT_LE(mac.battery.percent(), 70);
  EXPECT_GE(mac.battery.percent(), 69) << "held, it loses only a little";
  EXPECT_EQ(writeKey(*helper, "CHTE", {0, 0, 0, 0}), smcResultSuccess);
  mac.advance(hour / 2);
  EXPECT_GT(mac.battery.percent(), 85);
}

TEST_F(BatteryTest, InhibitedInflowDrainsItWithTheAdapterIn) {
  mac.battery.setPercent(70);
  EXPECT_EQ(writeKey(*helper, "CHIE", {8}), smcResultSuccess);
  mac.advance(hour);
  EXPECT_EQ(mac.battery.percent(), 58);
  EXPECT_TRUE(mac.battery.isDraining());
  EXPECT_TRUE(mac.adapter.isConnected());
}

TEST_F(BatteryTest, TheOlderPairStopsAndDrainsItToo) {
  Bench older{"older-pair"};
  older.mac.battery.setPercent(70);
  writeKey(*older.helper, "CH0B", {2});
  writeKey(*older.helper, "CH0C", {2});
  older.mac.advance(hour);
  EXPECT_EQ(older.mac.battery.percent(), 70);
  writeKey(*older.helper, "CH0I", {1});
  older.mac.advance(hour);
  EXPECT_EQ(older.mac.battery.percent(), 58);
}

TEST_F(BatteryTest, WithoutTheAdapterItDrains) {
  mac.battery.setPercent(70);
  mac.adapter.disconnect();
  mac.advance(hour);
  EXPECT_EQ(mac.battery.percent(), 58);
}

TEST_F(BatteryTest, RenegotiationDropsTheInflowInhibitAndItChargesAgain) {
  mac.battery.setPercent(70);
  writeKey(*helper, "CHIE", {8});
  mac.advance(600);
  EXPECT_FALSE(mac.battery.isCharging());
  takeLines("mac");
  mac.adapter.renegotiate();
  EXPECT_EQ(takeLines("mac"), "600.000 mac   adapter renegotiated (inflow inhibit dropped)\n");
  mac.advance(0);
  EXPECT_TRUE(mac.battery.isCharging());
  EXPECT_EQ(mac.smc.value("CHIE"), std::vector<std::uint8_t>{0});
}

TEST_F(BatteryTest, TheNativeLimitHoldsItWithOnePercentOfPlay) {
  Bench native{"native-only"};
  Machine& machine = native.mac;
  machine.battery.setPercent(78);
  machine.powerUI.setLimitByUser(80);
  machine.advance(2 * hour);
  EXPECT_EQ(machine.battery.percent(), 80);
  EXPECT_FALSE(machine.battery.isCharging());
  int lowest = 100;
  int highest = 0;
  for (int i = 0; i < 40; ++i) {
    machine.advance(hour);
    lowest = std::min(lowest, machine.battery.percent());
    highest = std::max(highest, machine.battery.percent());
  }
  EXPECT_EQ(highest, 80);
  EXPECT_GE(lowest, 78);
  EXPECT_LT(lowest, 80) << "it must come back down for the play to be seen";
}

TEST_F(BatteryTest, EveryWholePercentIsToldOnceAtItsOwnTime) {
  mac.battery.setPercent(70);
  mac.adapter.disconnect();
  takeLines("mac");
  // At 12 % an hour, half a percent falls before the first boundary, then whole percents.
  mac.advance(800);
  EXPECT_EQ(takeLines("mac"),
            "150.000 mac   battery 69 %\n"
            "450.000 mac   battery 68 %\n"
            "750.000 mac   battery 67 %\n");
}

TEST_F(BatteryTest, CuttingTimeIntoPiecesChangesNothing) {
  Bench other;
  for (Bench* each : std::initializer_list<Bench*>{this, &other}) {
    each->mac.battery.setPercent(72.345);
    each->mac.lid.close();
    each->mac.power.setSleepDisabledExternally(true);
    writeKey(*each->helper, "CHIE", {8});
  }
  mac.advance(20000);
  std::uint32_t step = 1;
  Nanoseconds left = fromSeconds(20000);
  while (left > 0) {
    step = step * 1103515245U + 12345U;
    const Nanoseconds piece = std::min<Nanoseconds>(left, step % 7'000'000'000U);
    other.mac.advanceNanoseconds(piece);
    left -= piece;
  }
  EXPECT_EQ(mac.battery.exactPercent(), other.mac.battery.exactPercent());
  EXPECT_EQ(mac.battery.temperatureHundredths(), other.mac.battery.temperatureHundredths());
  EXPECT_EQ(journal.hash(), other.journal.hash());
}

TEST_F(BatteryTest, ClosedLidDischargeHeatsMostAndSettles) {
  mac.battery.setPercent(100);
  EXPECT_EQ(mac.battery.temperatureHundredths(), 2400);
  writeKey(*helper, "CHIE", {8});
  mac.advance(2 * hour);
  EXPECT_EQ(mac.battery.temperatureHundredths(), 3000);
  mac.power.setSleepDisabledExternally(true);
  mac.lid.close();
  mac.advance(600);
  EXPECT_GT(mac.battery.temperatureHundredths(), 3300);
  EXPECT_LT(mac.battery.temperatureHundredths(), 4200);
  mac.advance(2 * hour);
  EXPECT_EQ(mac.battery.temperatureHundredths(), 4200);
}

TEST_F(BatteryTest, AnOverriddenTemperatureStaysAndMovesOnFromThere) {
  mac.battery.overrideTemperatureCelsius(45);
  mac.advance(hour);
  EXPECT_EQ(mac.battery.temperatureHundredths(), 4500);
  mac.battery.overrideTemperatureCelsius(std::nullopt);
  EXPECT_EQ(mac.battery.temperatureHundredths(), 4500);
  mac.advance(60);
  EXPECT_LT(mac.battery.temperatureHundredths(), 4500);
}

// A set level is journalled even if the shown percentage stays; it decides the next change.
TEST_F(BatteryTest, WhatIsSetByHandIsALineOfTheJournal) {
  mac.battery.setPercent(64);
  mac.battery.setPercent(64);
  mac.battery.setPercent(64.25);
  mac.battery.setTemperatureCelsius(45.5);
  EXPECT_EQ(mac.battery.temperatureHundredths(), 4550);
  mac.battery.setTemperatureCelsius(std::nullopt);
  mac.battery.setAmbientCelsius(-5);
  EXPECT_EQ(takeLines("mac"),
            "0.000 mac   battery set to 64 %\n"
            "0.000 mac   battery set to 64.25 %\n"
            "0.000 mac   temperature set to 45.5 C\n"
            "0.000 mac   temperature free\n"
            "0.000 mac   ambient set to -5 C\n");
}

TEST_F(BatteryTest, AsleepItDrainsSlowly) {
  mac.battery.setPercent(70);
  mac.adapter.disconnect();
  mac.power.requestSleep();
  mac.advance(0);
  ASSERT_TRUE(mac.power.isAsleep());
  mac.advance(10 * hour);
  EXPECT_EQ(mac.battery.percent(), 65);
}

TEST_F(BatteryTest, CapacitiesFollowTheLevel) {
  mac.battery.setPercent(50);
  EXPECT_EQ(mac.battery.rawCurrentCapacity(), 2850);
  EXPECT_EQ(mac.battery.rawMaxCapacity(), 5700);
  EXPECT_EQ(mac.battery.designCapacity(), 6000);
  mac.battery.setFullCapacity(4000);
  EXPECT_EQ(mac.battery.rawCurrentCapacity(), 2000);
}

TEST_F(BatteryTest, LevelsAreClampedAndShownAsTheNearestPercent) {
  mac.battery.setPercent(140);
  EXPECT_EQ(mac.battery.percent(), 100);
  mac.battery.setPercent(-3);
  EXPECT_EQ(mac.battery.percent(), 0);
  mac.battery.setPercent(79.5);
  EXPECT_EQ(mac.battery.percent(), 80);
  mac.battery.setPercent(79.49);
  EXPECT_EQ(mac.battery.percent(), 79);
}

}  // namespace
}  // namespace virtualmac
