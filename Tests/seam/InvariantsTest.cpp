#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Base/Lock.h"
#include "BrokenRules.h"
#include "FakeHelper.h"
#include "HelperRecords.h"
#include "Platform/Dispatch.h"
#include "Platform/PowerAssertions.h"
#include "Platform/PowerSettings.h"
#include "Platform/Process.h"
#include "Platform/SMCUserClient.h"
#include "Platform/UnifiedLog.h"
#include "Platform/WallClock.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Schedule/Observer.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(BrokenRules, NothingIsFoundWhereNothingIsWrong) {
  happens("smc", "CHTE <- 01 00 00 00");
  happens("smc", "CHTE <- 00 00 00 00 refused (result 134)");
  happens("smc", "CHIE <- 00 ignored (value stays 08)");
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(BrokenRules, AForbiddenKey) {
  happens("smc", "BCLM <- 50 FORBIDDEN KEY");
  EXPECT_THAT(found(), ElementsAre("permitted writes only: 0.000 BCLM <- 50 FORBIDDEN KEY"));
}

TEST_F(BrokenRules, APayloadThatIsNotInTheTable) {
  happens("smc", "CHTE <- 02 00 00 00");
  happens("smc", "CHTE <- 01 refused (result 134)");
  EXPECT_THAT(found(),
              ElementsAre(HasSubstr("CHTE <- 02 00 00 00"), HasSubstr("CHTE <- 01 refused")));
}

TEST_F(BrokenRules, BothChargingFamilies) {
  happens("smc", "CH0B <- 00");
  happens("smc", "CHTE <- 00 00 00 00");
  EXPECT_THAT(found(), ElementsAre("one family of keys: 0.000 CHTE used beside CH0B and CH0C"));
}

TEST_F(BrokenRules, BothDischargingFamilies) {
  happens("smc", "CHIE <- 00");
  happens("smc", "CH0J <- 00");
  EXPECT_THAT(found(), ElementsAre("one family of keys: 0.000 CH0I and CH0J used beside CHIE"));
}

TEST_F(BrokenRules, TheNativeLimitBesideKeys) {
  happens("smc", "CHTE <- 00 00 00 00");
  happens("power", "native limit 80 (pid 501)");
  EXPECT_THAT(found(), ElementsAre(HasSubstr("native used beside CHTE")));
}

TEST_F(BrokenRules, ButAResetWritesEveryFamily) {
  happens("smc", "CHTE <- 01 00 00 00");
  happens("log", "HelperImpl default \"resetAllSMCKeys pid=901 signingID=\"");
  happens("smc", "CH0B <- 00");
  happens("power", "native limit none (pid 501)");
  happens("reply", "resetAllSMCKeys ok");
  happens("proc", "helper 501 killed by signal 9");
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(BrokenRules, AnExitThatLeavesTheHardwareHeld) {
  mac.smc.setValue("CHTE", {1, 0, 0, 0});
  mac.powerUI.setLimitByUser(80);
  platform.powerSettings.setSystemPowerSetting("SleepDisabled", true);
  std::uint32_t assertion = 0;
  platform.assertions.createWithProperties(
      korvel::PropertyValue::Dictionary{{"AssertType", "PreventSystemSleep"}, {"AssertName", "x"}},
      assertion);
  korvel::HelperState state;
  state.sleepDisabledByKorvel = true;
  state.forceDischargeActive = true;
  save(state);
  world.onMain([this] {
    logs("shutdownGracefully — restoring SMC before exit");
    world.platform().process.exit(0);
  });
  const std::string rule = "exit leaves defaults: 0.000 ";
  EXPECT_THAT(
      found(),
      ElementsAre(rule + "CHTE is not at its default", rule + "a native limit is left",
                  rule + "an assertion is still held", rule + "SleepDisabled is still set",
                  rule + "SleepDisabled is still owned", rule + "a discharge is still recorded",
                  "SleepDisabled only when owned: 0.000 set without the flag on disk"));
}

TEST_F(BrokenRules, AnExitAfterALastWorkThatLeavesSomething) {
  mac.smc.setValue("CHTE", {1, 0, 0, 0});
  const auto restore = [this](std::function<void()> work) {
    logs("shutdownGracefully — restoring SMC before exit");
    queue->async(std::move(work));
  };
  restore([] {});
  world.runUntilIdle();
  EXPECT_THAT(rules.violations(),
              ElementsAre("exit leaves defaults: 0.000 CHTE is not at its default"));
  restore([this] { mac.smc.setValue("CHTE", {0, 0, 0, 0}); });
  // Work queued behind the restoration may still begin before the process exits.
  queue->async([this] { mac.smc.setValue("CHTE", {1, 0, 0, 0}); });
  world.runUntilIdle();
  world.onMain([this] { world.platform().process.exit(0); });
  EXPECT_THAT(found(), testing::SizeIs(1));
}

TEST_F(BrokenRules, SleepDisabledWithoutTheFlag) {
  platform.powerSettings.setSystemPowerSetting("SleepDisabled", true);
  EXPECT_THAT(found(),
              ElementsAre("SleepDisabled only when owned: 0.000 set without the flag on disk"));
}

TEST_F(BrokenRules, SleepDisabledWithTheFlagIsRight) {
  korvel::HelperState state;
  state.sleepDisabledByKorvel = true;
  save(state);
  platform.powerSettings.setSystemPowerSetting("SleepDisabled", true);
  EXPECT_THAT(found(), IsEmpty());
}

// Another call may be audited at any moment, so only a disk failure in the same work counts.
TEST_F(BrokenRules, SleepDisabledMayBeSetWhenTheDiskRefusedTheFlagInTheSameWork) {
  world.faults().setLatency(SeamCall::settingsSet, 1);
  queue->async([this] {
    logs("persistence.write failed: write failed: No space left on device");
    platform.powerSettings.setSystemPowerSetting("SleepDisabled", true);
  });
  world.onThread("xpc 902", [this] { logs("setClamshellKeepAwake(1) pid=902 signingID=x"); });
  world.runFor(2);
  world.faults().clear();
  happens("reply", "setClamshellKeepAwake ok");
  EXPECT_THAT(rules.violations(), IsEmpty());
  works([this] { platform.powerSettings.setSystemPowerSetting("SleepDisabled", true); });
  EXPECT_THAT(found(),
              ElementsAre("SleepDisabled only when owned: 2.000 set without the flag on disk"));
}

TEST_F(BrokenRules, AnAssertionReleasedTwice) {
  std::uint32_t assertion = 0;
  platform.assertions.createWithProperties(
      korvel::PropertyValue::Dictionary{{"AssertType", "PreventSystemSleep"}, {"AssertName", "x"}},
      assertion);
  platform.assertions.release(assertion);
  platform.assertions.release(assertion);
  EXPECT_THAT(found(),
              ElementsAre("assertions released once: 0.000 released what it did not hold"));
}

TEST_F(BrokenRules, TwoPollingTimers) {
  const auto one = platform.dispatch.makeTimer(queue);
  const auto two = platform.dispatch.makeTimer(queue);
  const auto other = platform.dispatch.makeTimer(queue);
  one->schedule(0, 5.0, 0);
  two->schedule(0, 5.0, 0);
  other->schedule(5, 5.0, 0);
  one->resume();
  other->resume();
  EXPECT_THAT(rules.violations(), IsEmpty());
  two->resume();
  EXPECT_THAT(found(), ElementsAre("one timer of each kind: 0.000 a second timer of 0.000000 s"));
}

TEST_F(BrokenRules, ACancelledTimerThatFires) {
  const TimerFacts timer{7, 0, 5.0, nullptr};
  world.observers().tell(&ScheduleObserver::timerCancelled, timer);
  world.observers().tell(&ScheduleObserver::timerFires, timer);
  EXPECT_THAT(found(),
              ElementsAre("cancelled timers stay quiet: 0.000 a cancelled timer's body runs"));
}

TEST_F(BrokenRules, TwoLocks) {
  korvel::Lock one(platform.dispatch.makeLock("one"));
  korvel::Lock two(platform.dispatch.makeLock("two"));
  {
    const korvel::ScopedLock first(one);
    const korvel::ScopedLock second(two);
  }
  EXPECT_THAT(found(), ElementsAre("no two locks together: 0.000 test takes two holding one"));
}

TEST_F(BrokenRules, ACallUnderALock) {
  korvel::Lock capabilities(platform.dispatch.makeLock("capabilitiesLock"));
  korvel::Lock state(platform.dispatch.makeLock("stateLock"));
  {
    const korvel::ScopedLock held(capabilities);
    platform.smc.matchAppleSMC();
    platform.smc.matchAppleSMC();
  }
  EXPECT_THAT(rules.violations(), IsEmpty()) << "the one probe";
  {
    const korvel::ScopedLock held(capabilities);
    platform.clock.now();
    platform.smc.matchAppleSMC();
  }
  {
    const korvel::ScopedLock held(state);
    logs("x");
    happens("reply", "ping 501");
  }
  const std::string rule = "no call under a lock: 0.000 ";
  EXPECT_THAT(found(),
              ElementsAre(rule + "clockNow under capabilitiesLock",
                          rule + "smcMatchAppleSMC under capabilitiesLock",
                          rule + "logEmit under stateLock", rule + "reply under stateLock"));
}

TEST_F(BrokenRules, AProbeUnderAnotherLock) {
  korvel::Lock state(platform.dispatch.makeLock("stateLock"));
  {
    const korvel::ScopedLock held(state);
    platform.smc.matchAppleSMC();
  }
  EXPECT_THAT(found(), ElementsAre("no call under a lock: 0.000 smcMatchAppleSMC under stateLock"));
}

TEST_F(BrokenRules, ATickThatWritesWhatItWroteBefore) {
  const auto timer = platform.dispatch.makeTimer(queue);
  timer->setEventHandler([this] { happens("disk", "state.json replaced: no field differs"); });
  timer->schedule(0, std::nullopt, 0);
  timer->resume();
  world.runUntilIdle();
  EXPECT_THAT(rules.violations(), IsEmpty()) << "no polling timer";
  const auto polling = platform.dispatch.makeTimer(queue);
  polling->setEventHandler([this] { happens("disk", "state.json replaced: no field differs"); });
  polling->schedule(0, 5.0, 0);
  polling->resume();
  world.runUntilIdle();
  EXPECT_THAT(found(),
              ElementsAre("unchanged facts are quiet: 0.000 a tick wrote an unchanged record"));
}

TEST_F(BrokenRules, AnOutcomeThatIsToldTwice) {
  logs("charge enforcement pause:ok");
  logs("charge enforcement resume:ok");
  EXPECT_THAT(rules.violations(), IsEmpty());
  logs("charge enforcement resume:ok");
  EXPECT_THAT(found(), ElementsAre(HasSubstr("unchanged facts are quiet: 0.000 told again")));
}

TEST_F(BrokenRules, ACallThatIsNotAudited) {
  happens("reply", "setChargeLimit ok");
  EXPECT_THAT(found(), ElementsAre(HasSubstr("answered without an audit line, or twice")));
}

TEST_F(BrokenRules, ACallThatIsNotAnswered) {
  logs("cancelTopUp pid=901 signingID=x team=y cdHash=");
  EXPECT_THAT(found(),
              ElementsAre("one audit line and one reply each: 0.000 never answered: cancelTopUp"));
}

TEST_F(BrokenRules, ACallThatIsAuditedWhereItsWorkIsDone) {
  queue->async([this] { logs("forceDischarge(1) pid=901 signingID=x team=y cdHash="); });
  world.runUntilIdle();
  happens("reply", "forceDischarge ok");
  EXPECT_THAT(found(), ElementsAre(HasSubstr("audited on smc: forceDischarge")));
}

TEST_F(BrokenRules, ACallThatIsAuditedAfterWhatIsDoneForIt) {
  const auto begins = [this](std::string_view selector) {
    world.observers().tell(&ScheduleObserver::messageBegins, world.scheduler().driver(), selector);
  };
  begins("forceDischarge:reply:");
  logs("another line");
  logs("forceDischarge(1) pid=901 signingID=x team=y cdHash=");
  platform.clock.now();
  works([this] { happens("reply", "forceDischarge ok"); });
  begins("getStateWithReply:");
  platform.clock.now();
  EXPECT_THAT(rules.violations(), IsEmpty());
  begins("cancelTopUpWithReply:");
  platform.clock.now();
  queue->async([] {});
  logs("cancelTopUp pid=901 signingID=x team=y cdHash=");
  works([this] { happens("reply", "cancelTopUp ok"); });
  const std::string rule = "one audit line and one reply each: 0.000 ";
  EXPECT_THAT(found(), ElementsAre(rule + "clockNow before the audit line of cancelTopUp",
                                   rule + "work queued before the audit line of cancelTopUp"));
}

TEST(AuditRule, SeesTheMessagesOfRealConnections) {
  FakeHelper helper;  // It obeys, and logs nothing.
  World world(helper.options());
  InvariantSet rules(world);
  const auto app = world.connectApp();
  app->await(app->setChargeLimit(50));
  rules.finish();
  const std::string rule = "one audit line and one reply each: 0.000 ";
  EXPECT_THAT(rules.violations(),
              ElementsAre(rule + "answered without an audit line, or twice: setChargeLimit",
                          rule + "delivered without an audit line: setChargeLimit",
                          "clients counted once: 0.000 0 counted, 1 accepted, 0 ended"));
}

TEST_F(BrokenRules, AMainThreadThatWaitsTooLong) {
  const auto group = platform.dispatch.makeGroup();
  group->enter();
  world.onMain([&] { group->wait(0.1); });
  EXPECT_THAT(rules.violations(), IsEmpty());
  world.onMain([&] { group->wait(0.2); });
  logs("shutdownGracefully — restoring SMC before exit");
  world.onMain([&] { group->wait(0.5); });
  EXPECT_THAT(rules.violations(),
              ElementsAre("main thread stays free: 0.300 blocked in a group for 0.200000 s"));
  world.onMain([&] { group->wait(0.6); });
  group->leave();
  EXPECT_THAT(found(), testing::SizeIs(2));
}

TEST_F(BrokenRules, EveryRuleHasItsName) {
  const std::vector<std::string> names = rules.names();
  EXPECT_EQ(names.size(), 16U);
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
}

}  // namespace
}  // namespace virtualmac
