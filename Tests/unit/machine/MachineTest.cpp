#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>

#include "Tests/unit/machine/Bench.h"
#include "VirtualMac/Schedule/Random.h"

namespace virtualmac {
namespace {

using MachineTest = OnBench;

TEST_F(MachineTest, StartedAndEndedProcessesAreTold) {
  mac.startProcess(500);
  mac.endProcess(412, ProcessEnd{0, std::nullopt});
  mac.endProcess(500, ProcessEnd{std::nullopt, 9});
  mac.endProcess(500);
  EXPECT_EQ(takeLines("proc"),
            "0.000 proc  helper 500 started\n"
            "0.000 proc  helper 412 exited 0\n"
            "0.000 proc  helper 500 killed by signal 9\n");
  EXPECT_EQ(mac.process(412), nullptr);
}

TEST_F(MachineTest, AnEndedProcessHoldsNothingAndItsCallsFindNothing) {
  const korvel::ConnectionRef connection = openSMC(*helper);
  helper->powerSources.copyInfo();
  helper->registry.getMatchingService("AppleSmartBattery");
  helper->files.openReadOnly("/");
  korvel::HandleRef port = 0;
  korvel::ObjectRef notifier = 0;
  helper->rootDomain.registerForSystemPower(nullptr, port, nullptr, notifier);
  EXPECT_EQ(helper->liveObjects(), 7U);
  mac.endProcess(412);
  EXPECT_FALSE(helper->isAlive());
  EXPECT_EQ(helper->liveObjects(), 0U);
  Block output{};
  EXPECT_EQ(helper->smc.callStruct(connection, commandBlock(readCommand, "CHTE", 4), output),
            machSendInvalidDest);
  std::uint32_t id = 0;
  EXPECT_NE(helper->assertions.createWithProperties(
                korvel::PropertyValue::Dictionary{{"AssertType", "x"}, {"AssertName", "y"}}, id),
            korvel::kernSuccess);
}

TEST_F(MachineTest, HardwareValuesOutliveTheProcessAPowerLossAndAReboot) {
  writeKey(*helper, "CHIE", {8});
  mac.endProcess(412);
  mac.powerLoss();
  mac.reboot();
  EXPECT_TRUE(mac.smc.inflowInhibited());
}

TEST_F(MachineTest, GoingDownStopsTheHelperThenEndsWhatIsLeft) {
  std::vector<std::string> causes;
  mac.setDownHandler([&](std::string_view cause) {
    causes.emplace_back(cause);
    EXPECT_NE(mac.process(412), nullptr);
  });
  mac.reboot();
  EXPECT_EQ(mac.process(412), nullptr);
  mac.startProcess(412);
  mac.powerLoss();
  EXPECT_EQ(mac.process(412), nullptr);
  EXPECT_EQ(causes, (std::vector<std::string>{"reboot", "power lost"}));
}

TEST_F(MachineTest, AnEmptyBatteryTakesTheMachineDownUntilTheAdapterIsBack) {
  mac.battery.setPercent(3);
  mac.adapter.disconnect();
  mac.advance(24 * 3600);
  EXPECT_TRUE(mac.isOff());
  EXPECT_EQ(mac.battery.exactPercent(), 0);
  EXPECT_EQ(mac.process(412), nullptr);
  const double uptime = mac.uptimeSeconds();
  EXPECT_EQ(mac.nextEvent(), std::nullopt);
  mac.advance(3600);
  EXPECT_EQ(mac.uptimeSeconds(), uptime);
  takeLines("mac");
  mac.adapter.connect();
  mac.advance(10);
  EXPECT_FALSE(mac.isOff());
  EXPECT_EQ(mac.uptimeSeconds(), uptime + 10);
  EXPECT_EQ(takeLines("mac"), "90000.000 mac   adapter connected\n90000.000 mac   powered on\n");
}

// With an empty battery, the adapter feeds the machine in spite of the inhibit.
TEST_F(MachineTest, AnInflowInhibitDoesNotKillAMachineOnTheAdapter) {
  mac.battery.setPercent(3);
  writeKey(*helper, "CHIE", {8});
  mac.advance(24 * 3600);
  EXPECT_FALSE(mac.isOff());
  EXPECT_EQ(mac.battery.exactPercent(), 0);
}

TEST_F(MachineTest, TheWallClockGoesOnInSleepAndMayBeSet) {
  EXPECT_EQ(korvel::iso8601Text(mac.wallClock()), "2026-01-01T00:00:00Z");
  mac.power.requestSleep();
  mac.advance(3600);
  EXPECT_EQ(korvel::iso8601Text(mac.wallClock()), "2026-01-01T01:00:00Z");
  mac.setWallClock(korvel::Date{0});
  mac.advance(5);
  EXPECT_EQ(mac.wallClock().secondsSinceReference, 5);
}

TEST_F(MachineTest, NextEventIsNowWhileSomethingIsDueAndThenThePercentStep) {
  mac.battery.setPercent(70);
  mac.adapter.disconnect();
  EXPECT_EQ(mac.nextEvent(), 0.0);
  mac.advance(0);
  // Half a percent takes 150 s at 12 % an hour; the event itself is still to come.
  ASSERT_TRUE(mac.nextEvent().has_value());
  EXPECT_NEAR(*mac.nextEvent(), 150, 0.001);
  takeLines("mac");
  mac.advanceNanoseconds(*mac.nextEventNanoseconds() - 1);
  EXPECT_EQ(takeLines("mac"), "");
  mac.advanceNanoseconds(1);
  EXPECT_EQ(takeLines("mac"), "150.000 mac   battery 69 %\n");
}

TEST_F(MachineTest, ADesktopIsQuiet) {
  Bench bench{"desktop"};
  bench.mac.lid.close();
  bench.mac.advance(1e6);
  EXPECT_EQ(bench.mac.nextEvent(), std::nullopt);
  EXPECT_EQ(bench.takeLines("mac power"), "");
}

TEST_F(MachineTest, TheBundleAnswersAsItIsTold) {
  EXPECT_EQ(helper->bundleExecutablePath(), helperProgramPath);
  EXPECT_EQ(*helper->bundleInfo("CFBundleShortVersionString").text(), "2.0.0");
  EXPECT_TRUE(helper->bundleInfo("CFBundleName").isAbsent());
  mac.bundleExecutablePath.reset();
  EXPECT_EQ(helper->bundleExecutablePath(), std::nullopt);
}

/// Plays a day of random acts of people, hardware and helper.
std::uint64_t randomDay(std::uint64_t seed) {
  Bench bench{"newer-keys-and-native", seed};
  Random random(seed);
  Machine& mac = bench.mac;
  const auto below = [&random](std::uint64_t bound) {
    return static_cast<std::uint8_t>(random.below(bound));
  };
  const std::array<std::function<void()>, 12> doings = {
      [&] { mac.adapter.connect(); },
      [&] { mac.adapter.disconnect(); },
      [&] { mac.adapter.renegotiate(); },
      [&] { mac.lid.close(); },
      [&] { mac.lid.open(); },
      [&] { mac.power.requestSleep(); },
      [&] { mac.power.wake(); },
      [&] { mac.powerUI.setLimitByUser(below(101)); },
      [&] { mac.smc.setValue("CHTE", {below(2)}); },
      [&] { mac.smc.setValue("CHIE", {static_cast<std::uint8_t>(below(2) * 8)}); },
      [&] { mac.power.setSleepDisabledExternally(random.chance(1, 2)); },
      [&] { mac.advance(random.unit() * 600); },
  };
  for (int i = 0; i < 2000; ++i) {
    doings.at(random.below(doings.size()))();
    EXPECT_GE(mac.battery.exactPercent(), 0);
    EXPECT_LE(mac.battery.exactPercent(), 100);
    EXPECT_LE(mac.uptimeSeconds(), mac.totalSeconds());
  }
  return bench.journal.hash();
}

TEST_F(MachineTest, TheSameSeedGivesTheSameDay) {
  EXPECT_EQ(randomDay(3), randomDay(3));
  EXPECT_NE(randomDay(3), randomDay(4));
}

}  // namespace
}  // namespace virtualmac
