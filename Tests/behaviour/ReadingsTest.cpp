// What the readings make of the power sources and the registry, seen through what the core does.

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

/// A start that is refused with the charge in its text tells what was read.
std::string chargeAsRead(Bench& bench) {
  return outcome(bench.call(bench.app->forceDischarge(true)));
}

TEST(ReadingsTest, DesktopHasNoChargeNoTemperatureNoAdapterAndAnOpenLid) {
  Bench bench("desktop");
  Platform& seam = bench.world.startBareHelper();
  EXPECT_EQ(MachineReadings::batteryCapacityPercent(seam.powerSources), std::nullopt);
  EXPECT_EQ(MachineReadings::batteryTemperatureCelsius(seam.registry), std::nullopt);
  EXPECT_EQ(MachineReadings::externalPowerConnected(seam.registry), std::nullopt);
  EXPECT_FALSE(MachineReadings::clamshellClosed(seam.registry));
}

TEST(ReadingsTest, DesktopIsRefusedADischargeAndItsGateIsLeftAlone) {
  Bench bench("desktop");
  bench.boot();
  EXPECT_EQ(chargeAsRead(bench), unreadable) << "past the lid, which counts as open";
  bench.call(bench.app->setChargeLimit(50));
  bench.mark();
  bench.run(30);
  EXPECT_THAT(bench.logs(), IsEmpty()) << "the gate was evaluated without a charge";
}

TEST(ReadingsTest, InternalBatteryIsFoundBehindAnUninterruptibleSupply) {
  Bench bench("ups-first");
  bench.boot();
  bench.mac().battery.setPercent(15);
  EXPECT_EQ(chargeAsRead(bench),
            "failed 400 Battery is at 15% — below the 20% safety floor for force-discharge.");
}

TEST(ReadingsTest, ChargeIsTakenUnscaledUnroundedAndUnclamped) {
  Bench bench;
  bench.boot();
  bench.charge(-7);
  EXPECT_EQ(chargeAsRead(bench),
            "failed 400 Battery is at -7% — below the 20% safety floor for force-discharge.");
  bench.charge(120);
  EXPECT_EQ(chargeAsRead(bench), "ok") << "a reading above 100 is not clamped away";
}

TEST(ReadingsTest, ChargeOfAnotherTypeIsNoReading) {
  Bench bench;
  bench.boot();
  for (const PropertyValue& value :
       {PropertyValue("55"), PropertyValue(55.0), PropertyValue(true), PropertyValue()}) {
    bench.mac().powerSources.overrideCurrentCapacity(value);
    EXPECT_EQ(chargeAsRead(bench), unreadable);
  }
}

TEST(ReadingsTest, NoSnapshotNoListNoArrayAndNoEntriesAreNoReading) {
  Bench bench;
  bench.boot();
  virtualmac::PowerSourceList& sources = bench.mac().powerSources;
  for (bool* fault :
       {&sources.snapshotFails, &sources.listFails, &sources.listIsNotArray, &sources.listEmpty}) {
    *fault = true;
    EXPECT_EQ(chargeAsRead(bench), unreadable);
    *fault = false;
  }
}

TEST(ReadingsTest, AdapterIsUnknownWithoutItsPropertyOrWithAnotherType) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(90);
  for (const PropertyValue& value : {PropertyValue(), PropertyValue(1), PropertyValue("Yes")}) {
    bench.mac().registry.overrideProperty("AppleSmartBattery", "ExternalConnected", value);
    bench.run(5);
    EXPECT_THAT(bench.since("smc"), IsEmpty());
  }
  bench.mac().registry.restoreProperty("AppleSmartBattery", "ExternalConnected");
  bench.mac().registry.hideService("AppleSmartBattery", true);
  bench.run(5);
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  bench.mac().registry.hideService("AppleSmartBattery", false);
  bench.run(5);
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHTE <- 01 00 00 00"))
      << "nothing is cached: the next tick sees the adapter again";
}

TEST(ReadingsTest, LidIsOpenWhenItsServicePropertyOrTypeIsNotThere) {
  Bench bench;
  bench.mac().lid.connectDisplay();
  bench.bootWithLimit(50);
  bench.mac().lid.close();
  bench.charge(50);
  const std::string alreadyThere = "failed 400 Battery is already at the 50% limit.";
  EXPECT_THAT(chargeAsRead(bench), ::testing::HasSubstr("Open the lid"));
  for (const PropertyValue& value : {PropertyValue(), PropertyValue(1)}) {
    bench.mac().registry.overrideProperty("IOPMrootDomain", "AppleClamshellState", value);
    EXPECT_EQ(chargeAsRead(bench), alreadyThere);
  }
  bench.mac().registry.restoreProperty("IOPMrootDomain", "AppleClamshellState");
  bench.mac().registry.hideService("IOPMrootDomain", true);
  EXPECT_EQ(chargeAsRead(bench), alreadyThere);
}

struct TemperatureCase {
  std::int64_t hundredths;
  bool stops;
};

class TemperatureTest : public ::testing::TestWithParam<TemperatureCase> {};

TEST_P(TemperatureTest, IsCutToWholeDegreesTowardZero) {
  Bench bench;
  bench.mac().lid.connectDisplay();
  bench.bootArmedDischarge();
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

TEST(ReadingsTest, TemperatureOfAPackIsFoundThroughTheMergedProperties) {
  Bench bench("two-banks");
  bench.mac().lid.connectDisplay();
  bench.bootArmedDischarge();
  bench.mac().lid.close();
  bench.temperature(45.5);
  bench.run(5);
  EXPECT_EQ(bench.logs().front(),
            "default auto-stop discharge: battery 45°C ≥ 45°C clamshell thermal cap");
}

TEST(ReadingsTest, TemperatureIsUnknownWhileTheBatteryServiceIsNotThere) {
  Bench bench;
  bench.mac().lid.connectDisplay();
  bench.bootArmedDischarge();
  bench.mac().lid.close();
  bench.temperature(60);
  bench.mac().registry.hideService("AppleSmartBattery", true);
  bench.run(60);
  EXPECT_TRUE(bench.state().forceDischargeActive);
  bench.mac().registry.hideService("AppleSmartBattery", false);
  bench.run(5);
  EXPECT_FALSE(bench.state().forceDischargeActive);
}

TEST(ReadingsTest, UnreadableTemperatureNeverStops) {
  Bench bench;
  bench.bootArmedDischarge();
  bench.mac().lid.close();
  bench.mac().registry.overrideProperty("AppleSmartBattery", "Temperature", PropertyValue("hot"));
  bench.run(5);
  bench.mac().registry.propertiesUnreadable = true;
  bench.run(5);
  EXPECT_TRUE(bench.state().forceDischargeActive);
}

/// Everything the helper takes it gives back: after any reading, no more objects live than before.
TEST(ReadingsTest, EveryReadingGivesBackWhatItTookOnEveryPath) {
  Bench bench;
  bench.mac().lid.connectDisplay();
  bench.bootArmedDischarge();
  bench.mac().lid.close();
  bench.temperature(30);
  const auto process = bench.mac().process(bench.world.platform().process.getpid());
  ASSERT_NE(process, nullptr);
  const std::size_t alive = process->liveObjects();
  virtualmac::PowerSourceList& sources = bench.mac().powerSources;
  const std::array<bool*, 6> faults{&sources.listFails,
                                    &sources.listIsNotArray,
                                    &sources.listEmpty,
                                    &sources.snapshotFails,
                                    &bench.mac().registry.propertiesUnreadable,
                                    &bench.mac().registry.iterationFails};
  for (bool* fault : faults) {
    *fault = true;
    bench.run(5);
    *fault = false;
    bench.run(5);
    EXPECT_EQ(process->liveObjects(), alive);
  }
  ASSERT_TRUE(bench.state().forceDischargeActive);
}

}  // namespace
}  // namespace korvel::test
