#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

/// A helper registered for power messages answers them as the test says.
class SleepTest : public ::testing::Test {
 protected:
  SleepTest() {
    bench.helper->rootDomain.setMessageHandler([this](const PowerMessage& message) {
      messages.push_back(message.messageType);
      last = message;
      if (acknowledges && message.notificationID != 0) acknowledge(message.notificationID);
    });
    rootPort = bench.helper->rootDomain.registerForSystemPower(nullptr, port, nullptr, notifier);
    source = bench.helper->rootDomain.notificationPortGetRunLoopSource(port);
    bench.helper->rootDomain.runLoopAddSource(bench.helper->rootDomain.mainRunLoop(), source);
    // The battery is full and quiet, so that the journal holds only the test's subject.
    mac.battery.setPercent(100);
    mac.advance(0);
  }

  korvel::KernReturn acknowledge(std::intptr_t id) {
    return bench.helper->rootDomain.allowPowerChange(rootPort, id);
  }
  void assertion(const char* type) {
    std::uint32_t id = 0;
    bench.helper->assertions.createWithProperties(
        korvel::PropertyValue::Dictionary{
            {"AssertType", type}, {"AssertLevel", 255}, {"AssertName", "test"}},
        id);
  }

  Bench bench;
  Machine& mac = bench.mac;
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
  EXPECT_EQ(bench.takeLines("power"),
            "0.000 power sleep (requested) begins\n"
            "0.000 power message 0xe0000280 to pid 412\n"
            "0.000 power message acknowledged by pid 412\n"
            "0.000 power asleep\n");
}

TEST_F(SleepTest, UptimeStandsStillInSleep) {
  mac.advance(10);
  mac.power.requestSleep();
  mac.advance(0);
  mac.advance(1000);
  EXPECT_EQ(mac.uptimeSeconds(), 10);
  EXPECT_EQ(mac.totalSeconds(), 1010);
  mac.power.wake();
  mac.advance(5);
  EXPECT_EQ(mac.uptimeSeconds(), 15);
}

TEST_F(SleepTest, WakingIsToldTwice) {
  mac.power.requestSleep();
  mac.advance(0);
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
  mac.power.requestSleep();
  mac.advance(0);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Leaving);
  EXPECT_EQ(mac.nextEvent(), 30.0);
  mac.advance(29.999);
  EXPECT_FALSE(mac.power.isAsleep());
  mac.advance(0.001);
  EXPECT_TRUE(mac.power.isAsleep());
  EXPECT_NE(bench.takeLines("power").find("30.000 power message not acknowledged by pid 412\n"),
            std::string::npos);
  EXPECT_EQ(acknowledge(last.notificationID), korvel::ioReturnBadArgument) << "too late";
}

TEST_F(SleepTest, ALateAcknowledgementEndsTheWait) {
  acknowledges = false;
  mac.power.requestSleep();
  mac.advance(3);
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
    mac.power.requestSleep();
    mac.advance(30);
    ASSERT_TRUE(mac.power.isAsleep()) << i;
    mac.power.wake();
    mac.advance(0);
  }
  mac.power.requestSleep();
  mac.advance(0);
  EXPECT_TRUE(mac.power.isAsleep());
}

TEST_F(SleepTest, ADeadProcessIsNotWaitedFor) {
  acknowledges = false;
  mac.power.requestSleep();
  mac.advance(1);
  bench.mac.endProcess(412);
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
  bench.takeLines("mac");
  mac.power.setIdleSleepMinutes(10);
  mac.power.setIdleSleepMinutes(0);
  mac.power.userActivity();
  mac.power.wake();
  EXPECT_EQ(bench.takeLines("mac"),
            "0.000 mac   idle sleep after 10 min\n"
            "0.000 mac   idle sleep off\n"
            "0.000 mac   touched\n"
            "0.000 mac   touched\n");
}

TEST_F(SleepTest, ALidThatOpensIsNotATouchAsWell) {
  bench.takeLines("mac");
  mac.lid.connectDisplay();
  mac.lid.close();
  mac.advance(0);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Awake);
  mac.lid.open();
  mac.advance(0);
  EXPECT_EQ(bench.takeLines("mac"),
            "0.000 mac   display connected\n"
            "0.000 mac   lid closed\n"
            "0.000 mac   lid opened\n");
}

TEST_F(SleepTest, AUserIdleAssertionHoldsOffIdleSleepUntilItIsReleased) {
  mac.power.setIdleSleepMinutes(10);
  assertion("PreventUserIdleSystemSleep");
  mac.advance(5000);
  EXPECT_TRUE(messages.empty());
  EXPECT_EQ(bench.takeLines("power"),
            "0.000 power assertion 33001 created PreventUserIdleSystemSleep \"test\" (pid 412, no "
            "time-out)\n"
            "600.000 power sleep (idle) held off by assertion 33001\n");
  bench.helper->assertions.release(33001);
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
  mac.power.requestSleep();
  mac.advance(0);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Awake);
  mac.adapter.disconnect();
  mac.power.requestSleep();
  mac.advance(0);
  EXPECT_TRUE(mac.power.isAsleep());
}

TEST_F(SleepTest, SleepDisabledHoldsOffTheLidUntilItIsCleared) {
  bench.helper->powerSettings.setSystemPowerSetting("SleepDisabled", true);
  mac.lid.close();
  mac.advance(3600);
  EXPECT_TRUE(messages.empty());
  bench.helper->powerSettings.setSystemPowerSetting("SleepDisabled", false);
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
  bench.takeLines("power mac");
  mac.lid.open();
  mac.advance(0);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Awake);
  EXPECT_EQ(messages.back(), korvel::ioMessageSystemHasPoweredOn);
  EXPECT_EQ(bench.takeLines("power mac"),
            "100.000 mac   lid opened\n"
            "100.000 power awake (lid opened)\n"
            "100.000 power message 0xe0000320 to pid 412\n"
            "100.000 power message 0xe0000300 to pid 412\n");
}

TEST_F(SleepTest, AnEmptyingBatterySleepsWhateverHoldsTheMachineAwake) {
  bench.helper->powerSettings.setSystemPowerSetting("SleepDisabled", true);
  mac.battery.setPercent(3);
  mac.adapter.disconnect();
  mac.advance(3600);
  EXPECT_TRUE(mac.power.isAsleep());
  EXPECT_EQ(mac.battery.percent(), 2);
}

TEST_F(SleepTest, MessagesWaitInThePortUntilItsSourceIsOnTheLoop) {
  RootDomainClient& client = bench.helper->rootDomain;
  client.runLoopRemoveSource(client.mainRunLoop(), source);
  mac.power.requestSleep();
  mac.advance(0);
  EXPECT_TRUE(messages.empty());
  client.runLoopAddSource(client.mainRunLoop(), source);
  EXPECT_EQ(messages, Types{korvel::ioMessageSystemWillSleep});
}

TEST_F(SleepTest, TeardownGivesEverythingBackAndEndsMessages) {
  RootDomainClient& client = bench.helper->rootDomain;
  EXPECT_EQ(client.liveObjects(), 3U);
  client.runLoopRemoveSource(client.mainRunLoop(), source);
  EXPECT_EQ(client.deregisterForSystemPower(notifier), korvel::kernSuccess);
  EXPECT_EQ(notifier, 0U);
  EXPECT_EQ(client.serviceClose(rootPort), korvel::kernSuccess);
  client.notificationPortDestroy(port);
  EXPECT_EQ(client.liveObjects(), 0U);
  EXPECT_EQ(client.serviceClose(rootPort), machSendInvalidDest);
  mac.power.requestSleep();
  mac.advance(0);
  EXPECT_TRUE(messages.empty());
  EXPECT_TRUE(mac.power.isAsleep());
}

TEST_F(SleepTest, AFailedRegistrationLeavesThePortAsItWas) {
  bench.fault("power-registration-fails");
  korvel::HandleRef otherPort = 5;
  korvel::ObjectRef otherNotifier = 6;
  EXPECT_EQ(
      bench.helper->rootDomain.registerForSystemPower(nullptr, otherPort, nullptr, otherNotifier),
      0U);
  EXPECT_EQ(otherPort, 5U);
  EXPECT_EQ(otherNotifier, 0U);
}

TEST_F(SleepTest, AWakeDuringTheAnnouncementComesRightAfterTheSleep) {
  acknowledges = false;
  mac.power.requestSleep();
  mac.advance(0);
  mac.power.wake("network");
  mac.advance(30);
  EXPECT_EQ(mac.power.phase(), SleepPhase::Awake);
  EXPECT_EQ(messages.back(), korvel::ioMessageSystemHasPoweredOn);
}

}  // namespace
}  // namespace virtualmac
