#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

/// A helper registered for power messages answers them as the test says.
struct SleepTest : OnBench {
  SleepTest() {
    helper->rootDomain.setMessageHandler([this](const PowerMessage& message) {
      messages.push_back(message.messageType);
      last = message;
      if (acknowledges && message.notificationID != 0) acknowledge(message.notificationID);
    });
    rootPort = helper->rootDomain.registerForSystemPower(nullptr, port, nullptr, notifier);
    source = helper->rootDomain.notificationPortGetRunLoopSource(port);
    helper->rootDomain.runLoopAddSource(helper->rootDomain.mainRunLoop(), source);
    // The battery is full and quiet, so that the journal holds only the test's subject.
    mac.battery.setPercent(100);
    mac.advance(0);
  }

  korvel::KernReturn acknowledge(std::intptr_t id) {
    return helper->rootDomain.allowPowerChange(rootPort, id);
  }
  void requestSleepAndAdvance(double seconds) {
    mac.power.requestSleep();
    mac.advance(seconds);
  }
  void assertion(const char* type) {
    std::uint32_t id = 0;
    helper->assertions.createWithProperties(
        korvel::PropertyValue::Dictionary{
            {"AssertType", type}, {"AssertLevel", 255}, {"AssertName", "test"}},
        id);
  }

  korvel::HandleRef port = 0;
  korvel::ObjectRef notifier = 0;
  korvel::ConnectionRef rootPort = 0;
  korvel::HandleRef source = 0;
  bool acknowledges = true;
  std::vector<std::uint32_t> messages;
  PowerMessage last;
};

using Types = std::vector<std::uint32_t>;

TEST_F(SleepTest, ARequestedSleepIsAnnouncedAcknowledgedAndEntered) {
  mac.power.requestSleep();
  EXPECT_TRUE(messages.empty()) << "nothing is sent before the machine settles";
  mac.advance(0);
  EXPECT_EQ(messages, Types{korvel::ioMessageSystemWillSleep});
  EXPECT_TRUE(mac.power.isAsleep());
  EXPECT_EQ(takeLines("power"),
            "0.000 power sleep (requested) begins\n"
            "0.000 power message 0xe0000280 to pid 412\n"
            "0.000 power message acknowledged by pid 412\n"
            "0.000 power asleep\n");
}

TEST_F(SleepTest, UptimeStandsStillInSleep) {
  mac.advance(10);
  requestSleepAndAdvance(0);
  mac.advance(1000);
  EXPECT_EQ(mac.uptimeSeconds(), 10);
  EXPECT_EQ(mac.totalSeconds(), 1010);
  mac.power.wake();
  mac.advance(5);
  EXPECT_EQ(mac.uptimeSeconds(), 15);
}

TEST_F(SleepTest, WakingIsToldTwice) {
  requestSleepAndAdvance(0);
  messages.clear();
  mac.power.wake("key pressed");
  mac.advance(0);
  EXPECT_EQ(messages,
            (Types{korvel::ioMessageSystemWillPowerOn, korvel::ioMessageSystemHasPoweredOn}));
  EXPECT_EQ(last.notificationID, 0);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Awake);
}

TEST_F(SleepTest, AnUnacknowledgedSleepGoesAheadAfterThirtySeconds) {
  acknowledges = false;
  requestSleepAndAdvance(0);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Leaving);
  EXPECT_EQ(mac.nextEvent(), 30.0);
  mac.advance(29.999);
  EXPECT_FALSE(mac.power.isAsleep());
  mac.advance(0.001);
  EXPECT_TRUE(mac.power.isAsleep());
  EXPECT_NE(takeLines("power").find("30.000 power message not acknowledged by pid 412\n"),
            std::string::npos);
  EXPECT_EQ(acknowledge(last.notificationID), korvel::ioReturnBadArgument) << "too late";
}

TEST_F(SleepTest, ALateAcknowledgementEndsTheWait) {
  acknowledges = false;
  requestSleepAndAdvance(3);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Leaving);
  EXPECT_EQ(acknowledge(last.notificationID + 1), korvel::ioReturnBadArgument);
  EXPECT_EQ(acknowledge(last.notificationID), korvel::kernSuccess);
  EXPECT_EQ(mac.nextEvent(), 0.0);
  mac.advance(0);
  EXPECT_TRUE(mac.power.isAsleep());
}

TEST_F(SleepTest, AProcessThatTimedOutThreeTimesIsNotWaitedFor) {
  acknowledges = false;
  for (int i = 0; i < 3; ++i) {
    requestSleepAndAdvance(30);
    ASSERT_TRUE(mac.power.isAsleep()) << i;
    mac.power.wake();
    mac.advance(0);
  }
  requestSleepAndAdvance(0);
  EXPECT_TRUE(mac.power.isAsleep());
}

TEST_F(SleepTest, ADeadProcessIsNotWaitedFor) {
  acknowledges = false;
  requestSleepAndAdvance(1);
  mac.endProcess(412);
  mac.advance(0);
  EXPECT_TRUE(mac.power.isAsleep());
}

TEST_F(SleepTest, IdleSleepAsksFirst) {
  mac.power.setIdleSleepMinutes(10);
  mac.advance(599);
  EXPECT_TRUE(messages.empty());
  EXPECT_EQ(mac.nextEvent(), 1.0);
  mac.advance(1);
  EXPECT_EQ(messages, (Types{korvel::ioMessageCanSystemSleep, korvel::ioMessageSystemWillSleep}));
  EXPECT_TRUE(mac.power.isAsleep());
}

TEST_F(SleepTest, ActivityTakesAnIdleSleepBack) {
  acknowledges = false;
  mac.power.setIdleSleepMinutes(10);
  mac.advance(605);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Asking);
  mac.power.userActivity();
  mac.advance(0);
  EXPECT_EQ(messages,
            (Types{korvel::ioMessageCanSystemSleep, korvel::ioMessageSystemWillNotSleep}));
  EXPECT_EQ(mac.power.phase(), SleepPhase::Awake);
  EXPECT_EQ(mac.nextEvent(), 600.0);
}

TEST_F(SleepTest, ATouchAndAnotherIdleSleepAreLinesOfTheJournal) {
  takeLines("mac");
  mac.power.setIdleSleepMinutes(10);
  mac.power.setIdleSleepMinutes(0);
  mac.power.userActivity();
  mac.power.wake();
  EXPECT_EQ(takeLines("mac"),
            "0.000 mac   idle sleep after 10 min\n"
            "0.000 mac   idle sleep off\n"
            "0.000 mac   touched\n"
            "0.000 mac   touched\n");
}

TEST_F(SleepTest, ALidThatOpensIsNotATouchAsWell) {
  takeLines("mac");
  mac.lid.connectDisplay();
  mac.lid.close();
  mac.advance(0);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Awake);
  mac.lid.open();
  mac.advance(0);
  EXPECT_EQ(takeLines("mac"),
            "0.000 mac   display connected\n"
            "0.000 mac   lid closed\n"
            "0.000 mac   lid opened\n");
}

TEST_F(SleepTest, AUserIdleAssertionHoldsOffIdleSleepUntilItIsReleased) {
  mac.power.setIdleSleepMinutes(10);
  assertion("PreventUserIdleSystemSleep");
  mac.advance(5000);
  EXPECT_TRUE(messages.empty());
  EXPECT_EQ(takeLines("power"),
            "0.000 power assertion 33001 created PreventUserIdleSystemSleep \"test\" (pid 412, no "
            "time-out)\n"
            "600.000 power sleep (idle) held off by assertion 33001\n");
  helper->assertions.release(33001);
  EXPECT_TRUE(messages.empty()) << "never from inside the helper's call";
  mac.advance(0);
  EXPECT_TRUE(mac.power.isAsleep());
}

TEST_F(SleepTest, AUserIdleAssertionDoesNotHoldOffTheLid) {
  assertion("PreventUserIdleSystemSleep");
  mac.lid.close();
  mac.advance(0);
  EXPECT_TRUE(mac.power.isAsleep());
}

TEST_F(SleepTest, ASystemAssertionHoldsOffARequestOnTheAdapterOnly) {
  assertion("PreventSystemSleep");
  requestSleepAndAdvance(0);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Awake);
  mac.adapter.disconnect();
  requestSleepAndAdvance(0);
  EXPECT_TRUE(mac.power.isAsleep());
}

TEST_F(SleepTest, SleepDisabledHoldsOffTheLidUntilItIsCleared) {
  helper->powerSettings.setSystemPowerSetting("SleepDisabled", true);
  mac.lid.close();
  mac.advance(3600);
  EXPECT_TRUE(messages.empty());
  helper->powerSettings.setSystemPowerSetting("SleepDisabled", false);
  mac.advance(0);
  EXPECT_TRUE(mac.power.isAsleep());
}

TEST_F(SleepTest, ADisplayAndTheAdapterHoldOffTheLidTogether) {
  mac.lid.connectDisplay();
  mac.lid.close();
  mac.advance(0);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Awake);
  mac.lid.disconnectDisplay();
  mac.advance(0);
  EXPECT_TRUE(mac.power.isAsleep());
}

TEST_F(SleepTest, OpeningTheLidWakes) {
  mac.lid.close();
  mac.advance(100);
  ASSERT_TRUE(mac.power.isAsleep());
  messages.clear();
  takeLines("power mac");
  mac.lid.open();
  mac.advance(0);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Awake);
  EXPECT_EQ(messages.back(), korvel::ioMessageSystemHasPoweredOn);
  EXPECT_EQ(takeLines("power mac"),
            "100.000 mac   lid opened\n"
            "100.000 power awake (lid opened)\n"
            "100.000 power message 0xe0000320 to pid 412\n"
            "100.000 power message 0xe0000300 to pid 412\n");
}

TEST_F(SleepTest, AnEmptyingBatterySleepsWhateverHoldsTheMachineAwake) {
  helper->powerSettings.setSystemPowerSetting("SleepDisabled", true);
  mac.battery.setPercent(3);
  mac.adapter.disconnect();
  mac.advance(3600);
  EXPECT_TRUE(mac.power.isAsleep());
  EXPECT_EQ(mac.battery.percent(), 2);
}

TEST_F(SleepTest, MessagesWaitInThePortUntilItsSourceIsOnTheLoop) {
  RootDomainClient& client = helper->rootDomain;
  client.runLoopRemoveSource(client.mainRunLoop(), source);
  requestSleepAndAdvance(0);
  EXPECT_TRUE(messages.empty());
  client.runLoopAddSource(client.mainRunLoop(), source);
  EXPECT_EQ(messages, Types{korvel::ioMessageSystemWillSleep});
}

TEST_F(SleepTest, TeardownGivesEverythingBackAndEndsMessages) {
  RootDomainClient& client = helper->rootDomain;
  EXPECT_EQ(client.liveObjects(), 3U);
  client.runLoopRemoveSource(client.mainRunLoop(), source);
  EXPECT_EQ(client.deregisterForSystemPower(notifier), korvel::kernSuccess);
  EXPECT_EQ(notifier, 0U);
  EXPECT_EQ(client.serviceClose(rootPort), korvel::kernSuccess);
  client.notificationPortDestroy(port);
  EXPECT_EQ(client.liveObjects(), 0U);
  EXPECT_EQ(client.serviceClose(rootPort), machSendInvalidDest);
  requestSleepAndAdvance(0);
  EXPECT_TRUE(messages.empty());
  EXPECT_TRUE(mac.power.isAsleep());
}

TEST_F(SleepTest, AFailedRegistrationLeavesThePortAsItWas) {
  fault("power-registration-fails");
  korvel::HandleRef otherPort = 5;
  korvel::ObjectRef otherNotifier = 6;
  EXPECT_EQ(helper->rootDomain.registerForSystemPower(nullptr, otherPort, nullptr, otherNotifier),
            0U);
  EXPECT_EQ(otherPort, 5U);
  EXPECT_EQ(otherNotifier, 0U);
}

TEST_F(SleepTest, AWakeDuringTheAnnouncementComesRightAfterTheSleep) {
  acknowledges = false;
  requestSleepAndAdvance(0);
  mac.power.wake("network");
  mac.advance(30);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Awake);
  EXPECT_EQ(messages.back(), korvel::ioMessageSystemHasPoweredOn);
}

}  // namespace
}  // namespace virtualmac
