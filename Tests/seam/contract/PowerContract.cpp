#include "Platform/PowerAssertions.h"
#include "Platform/PowerSettings.h"
#include "Platform/RootPowerDomain.h"
#include "SeamContract.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {
namespace {

korvel::PropertyValue::Dictionary idleAssertion() {
  return {{"AssertType", "PreventUserIdleSystemSleep"},
          {"AssertLevel", 255},
          {"AssertName", "contract"},
          {"TimeoutSeconds", 14400.0},
          {"TimeoutAction", "TimeoutActionRelease"}};
}

std::size_t assertionsOf(SeamRig& rig) {
  std::size_t count = 0;
  rig.machine([&](Machine& mac) { count = mac.power.assertions().size(); });
  return count;
}

}  // namespace

// ---- PowerAssertions

TEST_P(PowerAssertionsContract, ACreatedAssertionHoldsUntilItIsReleased) {
  std::uint32_t id = 0;
  ASSERT_EQ(platform().assertions.createWithProperties(idleAssertion(), id), korvel::kernSuccess);
  EXPECT_NE(id, 0U);
  EXPECT_EQ(assertionsOf(*rig), 1U);
  EXPECT_EQ(platform().assertions.release(id), korvel::kernSuccess);
  EXPECT_EQ(assertionsOf(*rig), 0U);
}

TEST_P(PowerAssertionsContract, EachHasItsOwnName) {
  std::uint32_t one = 0;
  std::uint32_t two = 0;
  platform().assertions.createWithProperties(idleAssertion(), one);
  platform().assertions.createWithProperties(idleAssertion(), two);
  EXPECT_NE(one, two);
  EXPECT_EQ(platform().assertions.release(one), korvel::kernSuccess);
  EXPECT_EQ(platform().assertions.release(two), korvel::kernSuccess);
}

TEST_P(PowerAssertionsContract, ARefusalGivesItsCodeAndLeavesTheName) {
  rig->machine([](Machine& mac) { mac.power.assertionRefusal = korvel::ioReturnNotPrivileged; });
  std::uint32_t id = 77;
  EXPECT_EQ(platform().assertions.createWithProperties(idleAssertion(), id),
            korvel::ioReturnNotPrivileged);
  EXPECT_EQ(id, 77U);
}

TEST_P(PowerAssertionsContract, AnAssertionWithoutATypeIsABadArgument) {
  korvel::PropertyValue::Dictionary properties = idleAssertion();
  properties.erase("AssertType");
  std::uint32_t id = 0;
  EXPECT_NE(platform().assertions.createWithProperties(properties, id), korvel::kernSuccess);
}

TEST_P(PowerAssertionsContract, ReleasingWhatIsNotHeldFails) {
  std::uint32_t id = 0;
  platform().assertions.createWithProperties(idleAssertion(), id);
  platform().assertions.release(id);
  EXPECT_NE(platform().assertions.release(id), korvel::kernSuccess);
  EXPECT_NE(platform().assertions.release(0), korvel::kernSuccess);
}

// ---- PowerSettings

TEST_P(PowerSettingsContract, ASettingIsStoredAndCopied) {
  EXPECT_TRUE(platform().powerSettings.copySystemPowerSettings().isAbsent());
  EXPECT_EQ(platform().powerSettings.setSystemPowerSetting("SleepDisabled", true),
            korvel::kernSuccess);
  EXPECT_EQ(platform().powerSettings.copySystemPowerSettings()["SleepDisabled"].boolean(), true);
  EXPECT_EQ(platform().powerSettings.setSystemPowerSetting("SleepDisabled", false),
            korvel::kernSuccess);
  EXPECT_EQ(platform().powerSettings.copySystemPowerSettings()["SleepDisabled"].boolean(), false);
}

TEST_P(PowerSettingsContract, ARefusalGivesItsCode) {
  rig->machine([](Machine& mac) { mac.power.settingRefusal = korvel::ioReturnNotPrivileged; });
  EXPECT_EQ(platform().powerSettings.setSystemPowerSetting("SleepDisabled", true),
            korvel::ioReturnNotPrivileged);
  rig->machine([](Machine& mac) { EXPECT_FALSE(mac.power.sleepDisabled()); });
}

TEST_P(PowerSettingsContract, WhatAnotherProgramStoredIsSeenAsItIs) {
  rig->machine([](Machine& mac) {
    mac.power.settingsOverride =
        korvel::PropertyValue::Dictionary{{"SleepDisabled", std::string("yes")}};
  });
  const korvel::PropertyValue settings = platform().powerSettings.copySystemPowerSettings();
  EXPECT_FALSE(settings["SleepDisabled"].boolean());
  ASSERT_NE(settings["SleepDisabled"].text(), nullptr);
  EXPECT_EQ(*settings["SleepDisabled"].text(), "yes");
}

// ---- RootPowerDomain

namespace {

/// Registers for power messages, notes each, and acknowledges those that ask for it.
struct Registered {
  Registered(korvel::Platform& seam, Notes& words) : platform(seam), notes(words) {
    rootPort = platform.rootDomain.registerForSystemPower(this, port, &Registered::heard, notifier);
  }
  void attach() {
    source = platform.rootDomain.notificationPortGetRunLoopSource(port);
    platform.rootDomain.runLoopAddSource(platform.rootDomain.mainRunLoop(), source);
  }
  static void heard(void* refcon, korvel::ObjectRef, std::uint32_t messageType,
                    std::uintptr_t argument) {
    auto& self = *static_cast<Registered*>(refcon);
    switch (messageType) {
      case korvel::ioMessageCanSystemSleep:
        self.notes.add("can");
        break;
      case korvel::ioMessageSystemWillSleep:
        self.notes.add("will");
        break;
      case korvel::ioMessageSystemHasPoweredOn:
        self.notes.add("on");
        return;
      default:
        self.notes.add("other");
        return;
    }
    if (!self.answers) return;
    const korvel::KernReturn code = self.platform.rootDomain.allowPowerChange(
        self.rootPort, static_cast<std::intptr_t>(argument));
    if (code != korvel::kernSuccess) self.notes.add("refused");
  }

  korvel::Platform& platform;
  Notes& notes;
  bool answers = true;
  korvel::HandleRef port = 0;
  korvel::HandleRef source = 0;
  korvel::ObjectRef notifier = 0;
  korvel::ConnectionRef rootPort = 0;
};

SleepPhase phaseOf(SeamRig& rig) {
  SleepPhase phase{};
  rig.machine([&](Machine& mac) { phase = mac.power.phase(); });
  return phase;
}

}  // namespace

TEST_P(RootPowerDomainContract, ARegistrationGivesAPortANotifierAndASource) {
  Registered registered(platform(), notes);
  EXPECT_NE(registered.rootPort, 0U);
  EXPECT_NE(registered.port, 0U);
  EXPECT_NE(registered.notifier, 0U);
  registered.attach();
  EXPECT_NE(registered.source, 0U);
  platform().rootDomain.runLoopRemoveSource(platform().rootDomain.mainRunLoop(), registered.source);
  EXPECT_EQ(platform().rootDomain.deregisterForSystemPower(registered.notifier),
            korvel::kernSuccess);
  EXPECT_EQ(registered.notifier, 0U);
  EXPECT_EQ(platform().rootDomain.serviceClose(registered.rootPort), korvel::kernSuccess);
  platform().rootDomain.notificationPortDestroy(registered.port);
}

TEST_P(RootPowerDomainContract, AFailedRegistrationLeavesThePort) {
  rig->machine([](Machine& mac) { mac.power.registrationFails = true; });
  korvel::HandleRef port = 0;
  korvel::ObjectRef notifier = 77;
  EXPECT_EQ(
      platform().rootDomain.registerForSystemPower(nullptr, port, &Registered::heard, notifier),
      0U);
  EXPECT_EQ(port, 0U);
  EXPECT_EQ(notifier, 0U);
}

TEST_P(RootPowerDomainContract, SleepWaitsForTheAcknowledgement) {
  Registered registered(platform(), notes);
  registered.answers = false;
  registered.attach();
  rig->machine([](Machine& mac) { mac.power.requestSleep(); });
  ASSERT_TRUE(untilNoted("will "));
  EXPECT_EQ(phaseOf(*rig), SleepPhase::Leaving);
}

TEST_P(RootPowerDomainContract, AnAcknowledgedSleepIsAsleepAndWakingIsTold) {
  Registered registered(platform(), notes);
  registered.attach();
  rig->machine([](Machine& mac) { mac.power.requestSleep(); });
  ASSERT_TRUE(rig->until([&] { return phaseOf(*rig) == SleepPhase::Asleep; }, 5));
  EXPECT_EQ(notes.text(), "will ");
  rig->machine([](Machine& mac) { mac.power.wake(); });
  EXPECT_TRUE(untilNoted("will other on "));
}

TEST_P(RootPowerDomainContract, MessagesWaitUntilTheSourceIsOnTheLoop) {
  Registered registered(platform(), notes);
  rig->machine([](Machine& mac) { mac.power.requestSleep(); });
  rig->pass(0.2);
  EXPECT_EQ(notes.text(), "");
  registered.attach();
  EXPECT_TRUE(untilNoted("will "));
}

TEST_P(RootPowerDomainContract, MessagesArriveOnTheMainThreadOneAfterTheOther) {
  Registered registered(platform(), notes);
  registered.attach();
  rig->onMain([&] {
    rig->machine([](Machine& mac) { mac.power.requestSleep(); });
    notes.add("busy");
  });
  EXPECT_TRUE(untilNoted("busy will "));
}

TEST_P(RootPowerDomainContract, AfterDeregistrationNothingArrives) {
  Registered registered(platform(), notes);
  registered.attach();
  platform().rootDomain.deregisterForSystemPower(registered.notifier);
  rig->machine([](Machine& mac) { mac.power.requestSleep(); });
  ASSERT_TRUE(rig->until([&] { return phaseOf(*rig) == SleepPhase::Asleep; }, 5));
  EXPECT_EQ(notes.text(), "");
}

TEST_P(RootPowerDomainContract, AnUnknownAcknowledgementIsABadArgument) {
  Registered registered(platform(), notes);
  EXPECT_NE(platform().rootDomain.allowPowerChange(registered.rootPort, 12345),
            korvel::kernSuccess);
  EXPECT_NE(platform().rootDomain.allowPowerChange(0, 0), korvel::kernSuccess);
}

}  // namespace virtualmac
