#include "ClamshellSleepController.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "Tests/unit/FakesLog.h"
#include "Tests/unit/RecordedMac.h"

namespace korvel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ClamshellSleepControllerTest : public testing::Test {
 protected:
  bool reads(PropertyValue stored) {
    power.settingsOverride = std::move(stored);
    return controller.isEnabled();
  }

  test::FakeLog log;
  test::RecordedMac mac;
  virtualmac::PowerManagement& power = mac.machine.power;
  ClamshellSleepController controller{mac.powerSettings, Logger(log, "ClamshellSleep")};
};

TEST_F(ClamshellSleepControllerTest, EnableSetsTheSetting) {
  EXPECT_TRUE(controller.enable());
  EXPECT_THAT(mac.calls, ElementsAre("setSystemPowerSetting SleepDisabled 1"));
  EXPECT_TRUE(controller.isEnabled());
  EXPECT_THAT(log.lines, ElementsAre("default ClamshellSleep: SleepDisabled=1 set — system will "
                                     "stay awake through lid-close"));
}

TEST_F(ClamshellSleepControllerTest, EnableOfASetSettingStillSetsIt) {
  power.setSleepDisabledExternally(true);
  EXPECT_TRUE(controller.enable());
  EXPECT_THAT(mac.calls, ElementsAre("setSystemPowerSetting SleepDisabled 1"));
}

TEST_F(ClamshellSleepControllerTest, ARefusedEnableIsAFaultWithItsCode) {
  power.settingRefusal = ioReturnNotPrivileged;
  EXPECT_FALSE(controller.enable());
  EXPECT_THAT(log.lines,
              ElementsAre("fault ClamshellSleep: IOPMSetSystemPowerSetting(SleepDisabled, true) "
                          "failed: -536870207 — clamshell keep-awake NOT active"));
}

TEST_F(ClamshellSleepControllerTest, DisableClearsTheSetting) {
  power.setSleepDisabledExternally(true);
  controller.disable();
  EXPECT_THAT(mac.calls, ElementsAre("setSystemPowerSetting SleepDisabled 0"));
  EXPECT_FALSE(controller.isEnabled());
  EXPECT_THAT(log.lines, ElementsAre("default ClamshellSleep: SleepDisabled=0 cleared — normal "
                                     "lid-close sleep restored"));
}

TEST_F(ClamshellSleepControllerTest, DisableOfAClearSettingStillClearsIt) {
  controller.disable();
  EXPECT_THAT(mac.calls, ElementsAre("setSystemPowerSetting SleepDisabled 0"));
  EXPECT_THAT(log.lines, ElementsAre("default ClamshellSleep: SleepDisabled=0 cleared — normal "
                                     "lid-close sleep restored"));
}

TEST_F(ClamshellSleepControllerTest, ARefusedDisableIsAnErrorWithAdvice) {
  power.settingRefusal = ioReturnError;
  controller.disable();
  EXPECT_THAT(log.lines,
              ElementsAre("error ClamshellSleep: IOPMSetSystemPowerSetting(SleepDisabled, false) "
                          "failed: -536870212 — will reset on reboot; consider `sudo pmset -a "
                          "disablesleep 0`"));
}

TEST_F(ClamshellSleepControllerTest, OnlyATrueSettingReadsAsEnabled) {
  using Dictionary = PropertyValue::Dictionary;
  EXPECT_TRUE(reads(Dictionary{{"SleepDisabled", true}}));
  EXPECT_FALSE(reads(Dictionary{{"SleepDisabled", false}}));
  EXPECT_FALSE(reads(Dictionary{{"Other", true}}));
  EXPECT_FALSE(reads(Dictionary{}));
}

TEST_F(ClamshellSleepControllerTest, OneAndZeroCountAsBooleans) {
  using Dictionary = PropertyValue::Dictionary;
  EXPECT_TRUE(reads(Dictionary{{"SleepDisabled", 1}}));
  EXPECT_TRUE(reads(Dictionary{{"SleepDisabled", 1.0}}));
  EXPECT_FALSE(reads(Dictionary{{"SleepDisabled", 0}}));
  EXPECT_FALSE(reads(Dictionary{{"SleepDisabled", 0.0}}));
}

TEST_F(ClamshellSleepControllerTest, WhatIsNoBooleanReadsAsDisabled) {
  using Dictionary = PropertyValue::Dictionary;
  for (const PropertyValue& value :
       {PropertyValue(2), PropertyValue(-1), PropertyValue(0.5), PropertyValue(std::nan("")),
        PropertyValue("true"), PropertyValue("1"), PropertyValue(Date{1}),
        PropertyValue(PropertyValue::Array{true}), PropertyValue(PropertyValue::Data{1})}) {
    EXPECT_FALSE(reads(Dictionary{{"SleepDisabled", value}}));
  }
}

TEST_F(ClamshellSleepControllerTest, SettingsThatAreNoDictionaryReadAsDisabled) {
  EXPECT_FALSE(reads(PropertyValue()));
  EXPECT_FALSE(reads(PropertyValue(true)));
  EXPECT_FALSE(reads(PropertyValue(PropertyValue::Array{true})));
}

TEST_F(ClamshellSleepControllerTest, EveryReadingIsFresh) {
  EXPECT_FALSE(controller.isEnabled());
  power.setSleepDisabledExternally(true);
  EXPECT_TRUE(controller.isEnabled());
  EXPECT_THAT(mac.calls, ElementsAre("copySystemPowerSettings", "copySystemPowerSettings"));
  EXPECT_THAT(log.lines, IsEmpty());
}

}  // namespace
}  // namespace korvel
