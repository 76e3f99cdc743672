#include <gtest/gtest.h>

#include "Tests/unit/machine/Bench.h"
#include "VirtualMac/Schedule/Random.h"

namespace virtualmac {
namespace {

TEST(MachineTest, StartedAndEndedProcessesAreTold) {
  Bench bench;
  bench.mac.startProcess(500);
  bench.mac.endProcess(412, ProcessEnd{0, std::nullopt});
  bench.mac.endProcess(500, ProcessEnd{std::nullopt, 9});
  bench.mac.endProcess(500);
  EXPECT_EQ(bench.takeLines("proc"),
            "0.000 proc  helper 500 started\n"
            "0.000 proc  helper 412 exited 0\n"
            "0.000 proc  helper 500 killed by signal 9\n");
  EXPECT_EQ(bench.mac.process(412), nullptr);
}

TEST(MachineTest, AnEndedProcessHoldsNothingAndItsCallsFindNothing) {
  Bench bench;
  HelperProcess& helper = *bench.helper;
  const korvel::ConnectionRef connection = openSMC(helper);
  helper.powerSources.copyInfo();
  helper.registry.getMatchingService("AppleSmartBattery");
  helper.files.openReadOnly("/");
  korvel::HandleRef port = 0;
  korvel::ObjectRef notifier = 0;
  helper.rootDomain.registerForSystemPower(nullptr, port, nullptr, notifier);
  EXPECT_EQ(helper.liveObjects(), 7U);
  bench.mac.endProcess(412);
  EXPECT_FALSE(helper.isAlive());
  EXPECT_EQ(helper.liveObjects(), 0U);
  Block output{};
  EXPECT_EQ(helper.smc.callStruct(connection, commandBlock(readCommand, "CHTE", 4), output),
            machSendInvalidDest);
  std::uint32_t id = 0;
  EXPECT_NE(helper.assertions.createWithProperties(
                korvel::PropertyValue::Dictionary{{"AssertType", "x"}, {"AssertName", "y"}}, id),
            korvel::kernSuccess);
}

TEST(MachineTest, HardwareValuesOutliveTheProcessAPowerLossAndAReboot) {
  Bench bench;
  writeKey(*bench.helper, "CHIE", {8});
  bench.mac.endProcess(412);
  bench.mac.powerLoss();
  bench.mac.reboot();
  EXPECT_TRUE(bench.mac.smc.inflowInhibited());
}

TEST(MachineTest, GoingDownStopsTheHelperThenEndsWhatIsLeft) {
  Bench bench;
  std::vector<std::string> causes;
  bench.mac.setDownHandler([&](std::string_view cause) {
    causes.emplace_back(cause);
    EXPECT_NE(bench.mac.process(412), nullptr);
  });
  bench.mac.reboot();
  EXPECT_EQ(bench.mac.process(412), nullptr);
  bench.mac.startProcess(412);
  bench.mac.powerLoss();
  EXPECT_EQ(bench.mac.process(412), nullptr);
  EXPECT_EQ(causes, (std::vector<std::string>{"reboot", "power lost"}));
}

TEST(MachineTest, AnEmptyBatteryTakesTheMachineDownUntilTheAdapterIsBack) {
  Bench bench;
  bench.mac.battery.setPercent(3);
  bench.mac.adapter.disconnect();
  bench.mac.advance(24 * 3600);
  EXPECT_TRUE(bench.mac.isOff());
  EXPECT_EQ(bench.mac.battery.exactPercent(), 0);
  EXPECT_EQ(bench.mac.process(412), nullptr);
  const double uptime = bench.mac.uptimeSeconds();
  EXPECT_EQ(bench.mac.nextEvent(), std::nullopt);
  bench.mac.advance(3600);
  EXPECT_EQ(bench.mac.uptimeSeconds(), uptime);
  bench.takeLines("mac");
  bench.mac.adapter.connect();
  bench.mac.advance(10);
  EXPECT_FALSE(bench.mac.isOff());
  EXPECT_EQ(bench.mac.uptimeSeconds(), uptime + 10);
  EXPECT_EQ(bench.takeLines("mac"),
            "90000.000 mac   adapter connected\n90000.000 mac   powered on\n");
}

// With an empty battery, the adapter feeds the machine in spite of the inhibit.
TEST(MachineTest, AnInflowInhibitDoesNotKillAMachineOnTheAdapter) {
  Bench bench;
  bench.mac.battery.setPercent(3);
  writeKey(*bench.helper, "CHIE", {8});
  bench.mac.advance(24 * 3600);
  EXPECT_FALSE(bench.mac.isOff());
  EXPECT_EQ(bench.mac.battery.exactPercent(), 0);
}

TEST(MachineTest, TheWallClockGoesOnInSleepAndMayBeSet) {
  Bench bench;
  EXPECT_EQ(korvel::iso8601Text(bench.mac.wallClock()), "2026-01-01T00:00:00Z");
  bench.mac.power.requestSleep();
  bench.mac.advance(3600);
  EXPECT_EQ(korvel::iso8601Text(bench.mac.wallClock()), "2026-01-01T01:00:00Z");
  bench.mac.setWallClock(korvel::Date{0});
  bench.mac.advance(5);
  EXPECT_EQ(bench.mac.wallClock().secondsSinceReference, 5);
}

TEST(MachineTest, NextEventIsNowWhileSomethingIsDueAndThenThePercentStep) {
  Bench bench;
  bench.mac.battery.setPercent(70);
  bench.mac.adapter.disconnect();
  EXPECT_EQ(bench.mac.nextEvent(), 0.0);
  bench.mac.advance(0);
  // Half a percent takes 150 s at 12 % an hour; the event itself is still to come.
  ASSERT_TRUE(bench.mac.nextEvent().has_value());
  EXPECT_NEAR(*bench.mac.nextEvent(), 150, 0.001);
  bench.takeLines("mac");
  bench.mac.advanceNanoseconds(*bench.mac.nextEventNanoseconds() - 1);
  EXPECT_EQ(bench.takeLines("mac"), "");
  bench.mac.advanceNanoseconds(1);
  EXPECT_EQ(bench.takeLines("mac"), "150.000 mac   battery 69 %\n");
}

TEST(MachineTest, ADesktopIsQuiet) {
  Bench bench{"desktop"};
  bench.mac.lid.close();
  bench.mac.advance(1e6);
  EXPECT_EQ(bench.mac.nextEvent(), std::nullopt);
  EXPECT_EQ(bench.takeLines("mac power"), "");
}

TEST(MachineTest, TheBundleAnswersAsItIsTold) {
  Bench bench;
  EXPECT_EQ(bench.helper->bundleExecutablePath(), helperProgramPath);
  EXPECT_EQ(*bench.helper->bundleInfo("CFBundleShortVersionString").text(), "2.0.0");
  EXPECT_TRUE(bench.helper->bundleInfo("CFBundleName").isAbsent());
  bench.mac.bundleExecutablePath.reset();
  EXPECT_EQ(bench.helper->bundleExecutablePath(), std::nullopt);
}

/// Plays a day of random acts of people, hardware and helper.
std::uint64_t randomDay(std::uint64_t seed) {
  Bench bench{"newer-keys-and-native", seed};
  Random random(seed);
  Machine& mac = bench.mac;
  for (int i = 0; i < 2000; ++i) {
    switch (random.below(12)) {
      case 0:
        mac.adapter.connect();
        break;
      case 1:
        mac.adapter.disconnect();
        break;
      case 2:
        mac.adapter.renegotiate();
        break;
      case 3:
        mac.lid.close();
        break;
      case 4:
        mac.lid.open();
        break;
      case 5:
        mac.power.requestSleep();
        break;
      case 6:
        mac.power.wake();
        break;
      case 7:
        mac.powerUI.setLimitByUser(static_cast<std::uint8_t>(random.below(101)));
        break;
      case 8:
        mac.smc.setValue("CHTE", {static_cast<std::uint8_t>(random.below(2))});
        break;
      case 9:
        mac.smc.setValue("CHIE", {static_cast<std::uint8_t>(random.below(2) * 8)});
        break;
      case 10:
        mac.power.setSleepDisabledExternally(random.chance(1, 2));
        break;
      default:
        mac.advance(random.unit() * 600);
    }
    EXPECT_GE(mac.battery.exactPercent(), 0);
    EXPECT_LE(mac.battery.exactPercent(), 100);
    EXPECT_LE(mac.uptimeSeconds(), mac.totalSeconds());
  }
  return bench.journal.hash();
}

TEST(MachineTest, TheSameSeedGivesTheSameDay) {
  EXPECT_EQ(randomDay(3), randomDay(3));
  EXPECT_NE(randomDay(3), randomDay(4));
}

}  // namespace
}  // namespace virtualmac
