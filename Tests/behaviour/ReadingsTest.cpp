// The core's actions show how it reads the power sources and the registry.

#include <array>

#include "MachineReadings.h"
#include "Platform/Process.h"
#include "Tests/behaviour/Bench.h"
#include "VirtualMac/Machine/HelperProcess.h"

namespace korvel::test {
namespace {

constexpr const char* unreadable =
    "failed 400 Can't read the battery level right now — try again in a moment before starting "
    "force-discharge.";

/// Reads the charge from the text of a refused start.
std::string chargeAsRead(Bench& bench) { return bench.ask(bench.app->forceDischarge(true)); }

using ReadingsTest = OnBench;

TEST_F(ReadingsTest, DesktopHasNoChargeNoTemperatureNoAdapterAndAnOpenLid) {
  Bench bench("desktop");
  Platform& seam = bench.world.startBareHelper();
  EXPECT_EQ(MachineReadings::batteryCapacityPercent(seam.powerSources), std::nullopt);
  EXPECT_EQ(MachineReadings::batteryTemperatureCelsius(seam.registry), std::nullopt);
  EXPECT_EQ(MachineReadings::externalPowerConnected(seam.registry), std::nullopt);
  EXPECT_FALSE(MachineReadings::clamshellClosed(seam.registry));
}

TEST_F(ReadingsTest, DesktopIsRefusedADischargeAndItsGateIsLeftAlone) {
  Bench bench("desktop");
  bench.boot();
  EXPECT_EQ(chargeAsRead(bench), unreadable) << "past the lid, which counts as open";
  bench.call(bench.app->setChargeLimit(50));
  bench.mark();
  bench.run(30);
  EXPECT_THAT(bench.logs(), IsEmpty()) << "the gate was evaluated without a charge";
}

TEST_F(ReadingsTest, InternalBatteryIsFoundBehindAnUninterruptibleSupply) {
  Bench bench("ups-first");
  bench.boot();
  bench.mac().battery.setPercent(15);
  EXPECT_EQ(chargeAsRead(bench),
            "failed 400 Battery is at 15% — below the 20% safety floor for force-discharge.");
}

TEST_F(ReadingsTest, ChargeIsTakenUnscaledUnroundedAndUnclamped) {
  boot();
  charge(-7);
  EXPECT_EQ(chargeAsRead(*this),
            "failed 400 Battery is at -7% — below the 20% safety floor for force-discharge.");
  charge(120);
  EXPECT_EQ(chargeAsRead(*this), "ok") << "a reading above 100 is not clamped away";
}

TEST_F(ReadingsTest, ChargeOfAnotherTypeIsNoReading) {
  boot();
  for (const PropertyValue& value :
       {PropertyValue("55"), PropertyValue(55.0), PropertyValue(true), PropertyValue()}) {
    mac().powerSources.overrideCurrentCapacity(value);
    EXPECT_EQ(chargeAsRead(*this), unreadable);
  }
}

TEST_F(ReadingsTest, NoSnapshotNoListNoArrayAndNoEntriesAreNoReading) {
  boot();
  virtualmac::PowerSourceList& sources = mac().powerSources;
  for (bool* fault :
       {&sources.snapshotFails, &sources.listFails, &sources.listIsNotArray, &sources.listEmpty}) {
    *fault = true;
    EXPECT_EQ(chargeAsRead(*this), unreadable);
    *fault = false;
  }
}

TEST_F(ReadingsTest, AdapterIsUnknownWithoutItsPropertyOrWithAnotherType) {
  bootWithLimit(50, 90);
  for (const PropertyValue& value : {PropertyValue(), PropertyValue(1), PropertyValue("Yes")}) {
    mac().registry.overrideProperty("AppleSmartBattery", "ExternalConnected", value);
    run(5);
    EXPECT_THAT(since("smc"), IsEmpty());
  }
  mac().registry.restoreProperty("AppleSmartBattery", "ExternalConnected");
  mac().registry.hideService("AppleSmartBattery", true);
  run(5);
  EXPECT_THAT(since("smc"), IsEmpty());
  mac().registry.hideService("AppleSmartBattery", false);
  run(5);
  EXPECT_THAT(since("smc"), ElementsAre("smc CHTE <- 01 00 00 00"))
      << "nothing is cached: the next tick sees the adapter again";
}

TEST_F(ReadingsTest, LidIsOpenWhenItsServicePropertyOrTypeIsNotThere) {
  mac().lid.connectDisplay();
  bootWithLimit(50);
  mac().lid.close();
  charge(50);
  const std::string alreadyThere = "failed 400 Battery is already at the 50% limit.";
  EXPECT_THAT(chargeAsRead(*this), ::testing::HasSubstr("Open the lid"));
  for (const PropertyValue& value : {PropertyValue(), PropertyValue(1)}) {
    mac().registry.overrideProperty("IOPMrootDomain", "AppleClamshellState", value);
    EXPECT_EQ(chargeAsRead(*this), alreadyThere);
  }
  mac().registry.restoreProperty("IOPMrootDomain", "AppleClamshellState");
  mac().registry.hideService("IOPMrootDomain", true);
  EXPECT_EQ(chargeAsRead(*this), alreadyThere);
}

struct TemperatureCase {
  std::int64_t hundredths;
  bool stops;
};

class TemperatureTest : public ::testing::TestWithParam<TemperatureCase> {};

TEST_P(TemperatureTest, IsCutToWholeDegreesTowardZero) {
  Bench bench;
  bench.bootDockedDischarge();
  bench.mac().registry.overrideProperty("AppleSmartBattery", "Temperature",
                                        PropertyValue(GetParam().hundredths));
  bench.mac().lid.close();
  bench.run(5);
  EXPECT_EQ(bench.state().forceDischargeActive, !GetParam().stops);
}

INSTANTIATE_TEST_SUITE_P(Hundredths, TemperatureTest,
                         ::testing::Values(TemperatureCase{4499, false},
                                           TemperatureCase{4500, true}, TemperatureCase{4501, true},
                                           TemperatureCase{-150, false},
                                           TemperatureCase{2999, false}),
                         [](const auto& named) {
                           const std::int64_t value = named.param.hundredths;
                           return (value < 0 ? "minus" : "") + std::to_string(std::abs(value));
                         });

TEST_F(ReadingsTest, TemperatureOfAPackIsFoundThroughTheMergedProperties) {
  Bench bench("two-banks");
  bench.bootDockedDischarge();
  bench.mac().lid.close();
  bench.temperature(45.5);
  bench.run(5);
  EXPECT_EQ(bench.logs().front(),
            "default auto-stop discharge: battery 45°C ≥ 45°C clamshell thermal cap");
}

TEST_F(ReadingsTest, TemperatureIsUnknownWhileTheBatteryServiceIsNotThere) {
  bootDockedDischarge();
  mac().lid.close();
  temperature(60);
  mac().registry.hideService("AppleSmartBattery", true);
  run(60);
  EXPECT_TRUE(state().forceDischargeActive);
  mac().registry.hideService("AppleSmartBattery", false);
  run(5);
  EXPECT_FALSE(state().forceDischargeActive);
}

TEST_F(ReadingsTest, UnreadableTemperatureNeverStops) {
  bootArmedDischarge();
  mac().lid.close();
  mac().registry.overrideProperty("AppleSmartBattery", "Temperature", PropertyValue("hot"));
  run(5);
  mac().registry.propertiesUnreadable = true;
  run(5);
  EXPECT_TRUE(state().forceDischargeActive);
}

/// Everything the helper takes it gives back: after any reading, no more objects live than before.
TEST_F(ReadingsTest, EveryReadingGivesBackWhatItTookOnEveryPath) {
  bootDockedDischarge();
  mac().lid.close();
  temperature(30);
  const auto process = mac().process(world.platform().process.getpid());
  ASSERT_NE(process, nullptr);
  const std::size_t alive = process->liveObjects();
  virtualmac::PowerSourceList& sources = mac().powerSources;
  const std::array<bool*, 6> faults{&sources.listFails,
                                    &sources.listIsNotArray,
                                    &sources.listEmpty,
                                    &sources.snapshotFails,
                                    &mac().registry.propertiesUnreadable,
                                    &mac().registry.iterationFails};
  for (bool* fault : faults) {
    *fault = true;
    run(5);
    *fault = false;
    run(5);
    EXPECT_EQ(process->liveObjects(), alive);
  }
  ASSERT_TRUE(state().forceDischargeActive);
}

}  // namespace
}  // namespace korvel::test
