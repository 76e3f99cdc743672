#include "SystemPowerObserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Tests/unit/FakesLog.h"
#include "Tests/unit/FakesPower.h"

namespace korvel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SystemPowerObserverTest : public testing::Test {
 protected:
  std::unique_ptr<SystemPowerObserver> made() {
    return std::make_unique<SystemPowerObserver>(
        domain, Logger(log, "SystemPower"), [this] { domain.calls.emplace_back("will sleep"); },
        [this] { domain.calls.emplace_back("did wake"); });
  }
  /// A registered observer, with its registration forgotten.
  std::unique_ptr<SystemPowerObserver> started() {
    auto observer = made();
    observer->start();
    domain.calls.clear();
    log.lines.clear();
    return observer;
  }

  test::FakeLog log;
  test::FakeRootDomain domain;
};

TEST_F(SystemPowerObserverTest, MakingRegistersNothing) {
  made();
  EXPECT_THAT(domain.calls, IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SystemPowerObserverTest, StartRegistersAndAttachesToTheMainRunLoop) {
  const auto observer = made();
  observer->start();
  EXPECT_THAT(domain.calls, ElementsAre("register", "source of 9000", "add a000 to b000"));
  EXPECT_THAT(log.lines,
              ElementsAre("default SystemPower: system power observer registered rootPort=55"));
}

TEST_F(SystemPowerObserverTest, ASecondStartIsLoggedAndLeavesTheRegistration) {
  const auto observer = started();
  observer->start();
  EXPECT_THAT(domain.calls, IsEmpty());
  EXPECT_THAT(log.lines, ElementsAre("default SystemPower: SystemPowerObserver.start() called "
                                     "twice — ignoring redundant registration"));
  domain.deliver(ioMessageSystemHasPoweredOn, 0);
  EXPECT_THAT(domain.calls, ElementsAre("did wake"));
}

TEST_F(SystemPowerObserverTest, AFailedRegistrationIsAFaultAndLeavesItUnregistered) {
  domain.givesConnection = false;
  auto observer = made();
  observer->start();
  observer.reset();
  EXPECT_THAT(domain.calls, ElementsAre("register"));
  EXPECT_THAT(log.lines, ElementsAre("fault SystemPower: IORegisterForSystemPower failed — "
                                     "sleep/wake observer inactive"));
}

TEST_F(SystemPowerObserverTest, ARegistrationWithoutAPortIsAFailedOne) {
  domain.givesPort = false;
  auto observer = made();
  observer->start();
  observer.reset();
  EXPECT_THAT(domain.calls, ElementsAre("register"));
  EXPECT_EQ(log.lines.size(), 1U);
}

TEST_F(SystemPowerObserverTest, AfterAFailureStartMayTryAgain) {
  domain.givesConnection = false;
  const auto observer = made();
  observer->start();
  domain.givesConnection = true;
  observer->start();
  EXPECT_EQ(log.lines.back(), "default SystemPower: system power observer registered rootPort=55");
}

TEST_F(SystemPowerObserverTest, APortWithoutASourceStopsTheProcessDeathTest) {
  domain.givesSource = false;
  const auto observer = made();
  EXPECT_DEATH(observer->start(), "a registered notification port has no run-loop source");
}

TEST_F(SystemPowerObserverTest, TheQueryIsAllowedAtOnceAndSilently) {
  const auto observer = started();
  domain.deliver(ioMessageCanSystemSleep, 0x1234);
  EXPECT_THAT(domain.calls, ElementsAre("allow 55 4660"));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SystemPowerObserverTest, SleepIsAcknowledgedOnlyAfterTheWork) {
  const auto observer = started();
  domain.deliver(ioMessageSystemWillSleep, 77);
  EXPECT_THAT(domain.calls, ElementsAre("will sleep", "allow 55 77"));
  EXPECT_THAT(log.lines, ElementsAre("default SystemPower: kIOMessageSystemWillSleep — flushing "
                                     "pre-sleep SMC pause-write"));
}

TEST_F(SystemPowerObserverTest, TheSleepLineStandsBeforeTheWork) {
  std::size_t linesDuringTheWork = 0;
  SystemPowerObserver observer(
      domain, Logger(log, "SystemPower"), [&] { linesDuringTheWork = log.lines.size(); }, [] {});
  observer.start();
  log.lines.clear();
  domain.deliver(ioMessageSystemWillSleep, 1);
  EXPECT_EQ(linesDuringTheWork, 1U);
}

TEST_F(SystemPowerObserverTest, WakingRunsItsWorkAndAcknowledgesNothing) {
  const auto observer = started();
  domain.deliver(ioMessageSystemHasPoweredOn, 77);
  EXPECT_THAT(domain.calls, ElementsAre("did wake"));
  EXPECT_THAT(log.lines, ElementsAre("default SystemPower: kIOMessageSystemHasPoweredOn — "
                                     "re-evaluating charge gate"));
}

TEST_F(SystemPowerObserverTest, OtherMessagesAreIgnored) {
  const auto observer = started();
  for (const std::uint32_t message : {ioMessageSystemWillPowerOn, ioMessageSystemWillNotSleep,
                                      0xE0000240U, 0xE0000250U, 0xE0000310U, 0U, 0xFFFFFFFFU}) {
    domain.deliver(message, 5);
  }
  EXPECT_THAT(domain.calls, IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SystemPowerObserverTest, TheNotificationIDGoesBackAsItCame) {
  const auto observer = started();
  domain.deliver(ioMessageCanSystemSleep, UINTPTR_MAX);
  EXPECT_THAT(domain.calls, ElementsAre("allow 55 -1"));
}

TEST_F(SystemPowerObserverTest, ANullReferenceConstantIsIgnored) {
  const auto observer = started();
  domain.deliverTo(nullptr, ioMessageSystemWillSleep);
  EXPECT_THAT(domain.calls, IsEmpty());
}

TEST_F(SystemPowerObserverTest, StopUndoesEverythingInOrderAndSilently) {
  const auto observer = started();
  observer->stop();
  EXPECT_THAT(domain.calls,
              ElementsAre("remove a000 from b000", "deregister 77", "close 55", "destroy 9000"));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SystemPowerObserverTest, StopOfANeverStartedObserverMakesNoCall) {
  made()->stop();
  EXPECT_THAT(domain.calls, IsEmpty());
}

TEST_F(SystemPowerObserverTest, ASecondStopMakesNoCall) {
  const auto observer = started();
  observer->stop();
  domain.calls.clear();
  observer->stop();
  EXPECT_THAT(domain.calls, IsEmpty());
}

TEST_F(SystemPowerObserverTest, AfterStopStartRegistersAgain) {
  const auto observer = started();
  observer->stop();
  domain.calls.clear();
  observer->start();
  EXPECT_THAT(domain.calls, ElementsAre("register", "source of 9000", "add a000 to b000"));
  EXPECT_THAT(log.lines,
              ElementsAre("default SystemPower: system power observer registered rootPort=55"));
}

TEST_F(SystemPowerObserverTest, DestroyingAStartedObserverStopsIt) {
  started().reset();
  EXPECT_THAT(domain.calls,
              ElementsAre("remove a000 from b000", "deregister 77", "close 55", "destroy 9000"));
}

}  // namespace
}  // namespace korvel
