#include <gtest/gtest.h>

#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

using korvel::PropertyValue;

PropertyValue assertionOf(const char* type, double timeout = 14400) {
  PropertyValue::Dictionary properties;
  properties["AssertType"] = type;
  properties["AssertLevel"] = 255;
  properties["AssertName"] = "Korvel: force-discharge";
  properties["TimeoutSeconds"] = timeout;
  properties["TimeoutAction"] = "TimeoutActionRelease";
  return properties;
}

struct PowerManagementTest : OnBench {
  std::uint32_t create(const PropertyValue& properties) {
    std::uint32_t id = 0;
    EXPECT_EQ(helper->assertions.createWithProperties(properties, id), korvel::kernSuccess);
    return id;
  }

  PowerManagement& power = mac.power;
};

TEST_F(PowerManagementTest, AnAssertionIsMadeToldAndReleased) {
  const std::uint32_t id = create(assertionOf("PreventUserIdleSystemSleep"));
  ASSERT_EQ(power.assertions().size(), 1U);
  EXPECT_EQ(power.assertions()[0].id, id);
  EXPECT_EQ(power.assertions()[0].level, 255);
  EXPECT_EQ(helper->assertions.release(id), korvel::kernSuccess);
  EXPECT_TRUE(power.assertions().empty());
  EXPECT_EQ(takeLines("power"),
            "0.000 power assertion 33001 created PreventUserIdleSystemSleep "
            "\"Korvel: force-discharge\" (pid 412, 14400 s)\n"
            "0.000 power assertion 33001 released\n");
}

TEST_F(PowerManagementTest, TypeAndNameMustBeText) {
  std::uint32_t id = 7;
  for (const char* key : {"AssertType", "AssertName"}) {
    PropertyValue::Dictionary broken = *assertionOf("PreventSystemSleep").dictionary();
    broken[key] = 1;
    EXPECT_EQ(helper->assertions.createWithProperties(broken, id), korvel::ioReturnBadArgument);
  }
  EXPECT_EQ(helper->assertions.createWithProperties("text", id), korvel::ioReturnBadArgument);
  EXPECT_EQ(id, 7U);
}

TEST_F(PowerManagementTest, ReleasingNothingOrAStrangerFails) {
  EXPECT_EQ(helper->assertions.release(0), korvel::ioReturnBadArgument);
  EXPECT_EQ(helper->assertions.release(99), ioReturnNotFound);
}

TEST_F(PowerManagementTest, TheSystemReleasesAPairAfterFourHours) {
  create(assertionOf("PreventUserIdleSystemSleep"));
  create(assertionOf("PreventSystemSleep"));
  mac.battery.setPercent(100);
  mac.advance(14399.999);
  EXPECT_EQ(power.assertions().size(), 2U);
  takeLines("power");
  mac.advance(0.001);
  EXPECT_TRUE(power.assertions().empty());
  EXPECT_EQ(takeLines("power"),
            "14400.000 power assertion 33001 timed out\n"
            "14400.000 power assertion 33002 timed out\n");
}

TEST_F(PowerManagementTest, ATimeoutWithoutReleaseOnlyTurnsItOff) {
  PropertyValue::Dictionary properties =
      *assertionOf("PreventUserIdleSystemSleep", 10).dictionary();
  properties["TimeoutAction"] = "TimeoutActionTurnOff";
  create(properties);
  mac.advance(10);
  ASSERT_EQ(power.assertions().size(), 1U);
  EXPECT_EQ(power.assertions()[0].level, 0);
}

TEST_F(PowerManagementTest, AnAssertionWithoutATimeoutStays) {
  PropertyValue::Dictionary properties = *assertionOf("PreventUserIdleSystemSleep").dictionary();
  properties.erase("TimeoutSeconds");
  create(properties);
  mac.advance(100000);
  EXPECT_EQ(power.assertions().size(), 1U);
}

TEST_F(PowerManagementTest, TheNextEventIsTheTimeout) {
  mac.battery.setPercent(100);
  mac.advance(0);
  EXPECT_EQ(mac.nextEvent(), std::nullopt);
  create(assertionOf("PreventUserIdleSystemSleep", 30));
  EXPECT_EQ(mac.nextEvent(), 0.0);
  mac.advance(0);
  EXPECT_EQ(mac.nextEvent(), 30.0);
  mac.advance(12.5);
  EXPECT_EQ(mac.nextEvent(), 17.5);
}

TEST_F(PowerManagementTest, ADeadProcessLosesItsAssertionsOnly) {
  create(assertionOf("PreventUserIdleSystemSleep"));
  const auto other = mac.startProcess(500);
  std::uint32_t kept = 0;
  other->assertions.createWithProperties(assertionOf("PreventSystemSleep"), kept);
  takeLines("power");
  mac.endProcess(412, ProcessEnd{std::nullopt, 9});
  ASSERT_EQ(power.assertions().size(), 1U);
  EXPECT_EQ(power.assertions()[0].id, kept);
  EXPECT_EQ(takeLines("power"), "0.000 power assertion 33001 dropped with pid 412\n");
}

TEST_F(PowerManagementTest, RefusalsHaveTheirCodes) {
  std::uint32_t id = 0;
  fault("assertion-secondary-refused -536870201");
  EXPECT_EQ(helper->assertions.createWithProperties(assertionOf("PreventSystemSleep"), id),
            -536870201);
  const std::uint32_t primary = create(assertionOf("PreventUserIdleSystemSleep"));
  fault("assertion-release-refused");
  EXPECT_EQ(helper->assertions.release(primary), korvel::ioReturnError);
  fault("assertion-refused 0xE00002BE");
  EXPECT_EQ(helper->assertions.createWithProperties(assertionOf("PreventUserIdleSystemSleep"), id),
            -536870210);
}

TEST_F(PowerManagementTest, SettingsReadAsNeverStoredAtFirst) {
  EXPECT_TRUE(helper->powerSettings.copySystemPowerSettings().isAbsent());
  EXPECT_EQ(helper->powerSettings.setSystemPowerSetting("SleepDisabled", true),
            korvel::kernSuccess);
  EXPECT_EQ(helper->powerSettings.copySystemPowerSettings()["SleepDisabled"].boolean(), true);
  EXPECT_EQ(helper->powerSettings.setSystemPowerSetting("SleepDisabled", false),
            korvel::kernSuccess);
  EXPECT_EQ(helper->powerSettings.copySystemPowerSettings()["SleepDisabled"].boolean(), false);
  EXPECT_EQ(takeLines("power"), "0.000 power SleepDisabled = 1\n0.000 power SleepDisabled = 0\n");
}

TEST_F(PowerManagementTest, TheSettingOutlivesItsWriterButNotAReboot) {
  helper->powerSettings.setSystemPowerSetting("SleepDisabled", true);
  mac.endProcess(412);
  EXPECT_TRUE(power.sleepDisabled());
  mac.reboot();
  EXPECT_FALSE(power.sleepDisabled());
  EXPECT_TRUE(power.copySystemPowerSettings().isAbsent());
}

TEST_F(PowerManagementTest, SettingsNeedPrivilege) {
  EXPECT_EQ(power.setSystemPowerSetting("SleepDisabled", true, false),
            korvel::ioReturnNotPrivileged);
  EXPECT_FALSE(power.sleepDisabled());
  fault("settings-refused -536870212");
  EXPECT_EQ(helper->powerSettings.setSystemPowerSetting("SleepDisabled", true), -536870212);
  EXPECT_EQ(takeLines("power"),
            "0.000 power SleepDisabled = 1 refused (-536870207)\n"
            "0.000 power SleepDisabled = 1 refused (-536870212)\n");
}

TEST_F(PowerManagementTest, OthersMaySetItToo) {
  power.setSleepDisabledExternally(true);
  EXPECT_TRUE(power.sleepDisabled());
  power.setSleepDisabledExternally(std::nullopt);
  EXPECT_FALSE(power.sleepDisabled());
  EXPECT_EQ(takeLines("power"),
            "0.000 power SleepDisabled = 1 (by another program)\n"
            "0.000 power SleepDisabled removed (by another program)\n");
  fault("settings-mistyped");
  EXPECT_NE(power.copySystemPowerSettings().text(), nullptr);
}

}  // namespace
}  // namespace virtualmac
