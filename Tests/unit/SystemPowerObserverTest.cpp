#include "SystemPowerObserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Tests/unit/FakesLog.h"
#include "Tests/unit/RecordedMac.h"

namespace korvel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using RecordedDomain = test::Recorded<RootPowerDomain>;

/// Lets a test deliver any message, and take the port or its source away from a registration: the
/// machine sends only messages of its own, and never half registers.
class TestDomain final : public RecordedDomain {
 public:
  using RecordedDomain::RecordedDomain;
  bool givesConnection = true;
  bool givesPort = true;
  bool givesSource = true;

  ConnectionRef registerForSystemPower(void* refcon, HandleRef& port, InterestCallback callback,
                                       ObjectRef& notifier) override {
    EXPECT_EQ(port, 0U);
    EXPECT_EQ(notifier, 0U);
    context = refcon;
    registered = callback;
    const auto made = RecordedDomain::registerForSystemPower(refcon, port, callback, notifier);
    if (!givesPort) port = 0;
    return givesConnection ? made : 0;
  }
  HandleRef notificationPortGetRunLoopSource(HandleRef port) override {
    return givesSource ? RecordedDomain::notificationPortGetRunLoopSource(port) : 0;
  }
  void deliver(std::uint32_t message, std::uintptr_t argument) {
    registered(context, 1, message, argument);
  }
  /// The same with another reference constant.
  void deliverTo(void* refcon, std::uint32_t message) { registered(refcon, 1, message, 0); }

 private:
  void* context = nullptr;
  InterestCallback registered = nullptr;
};

class SystemPowerObserverTest : public testing::Test {
 protected:
  std::unique_ptr<SystemPowerObserver> made() {
    return std::make_unique<SystemPowerObserver>(
        domain, Logger(log, "SystemPower"), [this] { calls.emplace_back("will sleep"); },
        [this] { calls.emplace_back("did wake"); });
  }
  /// A registered observer, with its registration forgotten.
  std::unique_ptr<SystemPowerObserver> started() {
    auto observer = made();
    observer->start();
    calls.clear();
    log.lines.clear();
    return observer;
  }
  void expectUndone() {
    EXPECT_THAT(calls, ElementsAre("runLoopRemoveSource 0x17 0x127", "deregisterForSystemPower",
                                   "serviceClose 283", "notificationPortDestroy 0x123"));
    EXPECT_EQ(mac.process->rootDomain.liveObjects(), 0U);
  }

  test::FakeLog log;
  test::RecordedMac mac;
  std::vector<std::string>& calls = mac.calls;
  TestDomain domain{mac.seam.rootDomain, calls};
};

TEST_F(SystemPowerObserverTest, MakingRegistersNothing) {
  made();
  EXPECT_THAT(calls, ElementsAre("mainRunLoop"));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SystemPowerObserverTest, StartRegistersAndAttachesToTheMainRunLoop) {
  const auto observer = made();
  observer->start();
  EXPECT_THAT(calls,
              ElementsAre("mainRunLoop", "registerForSystemPower",
                          "notificationPortGetRunLoopSource 0x123", "runLoopAddSource 0x17 0x127"));
  EXPECT_THAT(log.lines,
              ElementsAre("default SystemPower: system power observer registered rootPort=283"));
}

TEST_F(SystemPowerObserverTest, ASecondStartIsLoggedAndLeavesTheRegistration) {
  const auto observer = started();
  observer->start();
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_THAT(log.lines, ElementsAre("default SystemPower: SystemPowerObserver.start() called "
                                     "twice — ignoring redundant registration"));
  domain.deliver(ioMessageSystemHasPoweredOn, 0);
  EXPECT_THAT(calls, ElementsAre("did wake"));
}

TEST_F(SystemPowerObserverTest, AFailedRegistrationIsAFaultAndLeavesItUnregistered) {
  mac.machine.power.registrationFails = true;
  auto observer = made();
  observer->start();
  observer.reset();
  EXPECT_THAT(calls, ElementsAre("mainRunLoop", "registerForSystemPower"));
  EXPECT_THAT(log.lines, ElementsAre("fault SystemPower: IORegisterForSystemPower failed — "
                                     "sleep/wake observer inactive"));
}

TEST_F(SystemPowerObserverTest, ARegistrationWithoutAPortIsAFailedOne) {
  domain.givesPort = false;
  auto observer = made();
  observer->start();
  observer.reset();
  EXPECT_THAT(calls, ElementsAre("mainRunLoop", "registerForSystemPower"));
  EXPECT_EQ(log.lines.size(), 1U);
}

TEST_F(SystemPowerObserverTest, ARegistrationWithoutAConnectionIsAFailedOne) {
  domain.givesConnection = false;
  auto observer = made();
  observer->start();
  observer.reset();
  EXPECT_THAT(calls, ElementsAre("mainRunLoop", "registerForSystemPower"));
  EXPECT_EQ(log.lines.size(), 1U);
}

TEST_F(SystemPowerObserverTest, AfterAFailureStartMayTryAgain) {
  mac.machine.power.registrationFails = true;
  const auto observer = made();
  observer->start();
  mac.machine.power.registrationFails = false;
  observer->start();
  EXPECT_EQ(log.lines.back(), "default SystemPower: system power observer registered rootPort=283");
}

TEST_F(SystemPowerObserverTest, APortWithoutASourceStopsTheProcessDeathTest) {
  domain.givesSource = false;
  const auto observer = made();
  EXPECT_DEATH(observer->start(), "a registered notification port has no run-loop source");
}

TEST_F(SystemPowerObserverTest, TheQueryIsAllowedAtOnceAndSilently) {
  const auto observer = started();
  domain.deliver(ioMessageCanSystemSleep, 0x1234);
  EXPECT_THAT(calls, ElementsAre("allowPowerChange 283 4660"));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SystemPowerObserverTest, SleepIsAcknowledgedOnlyAfterTheWork) {
  const auto observer = started();
  domain.deliver(ioMessageSystemWillSleep, 77);
  EXPECT_THAT(calls, ElementsAre("will sleep", "allowPowerChange 283 77"));
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
  EXPECT_THAT(calls, ElementsAre("did wake"));
  EXPECT_THAT(log.lines, ElementsAre("default SystemPower: kIOMessageSystemHasPoweredOn — "
                                     "re-evaluating charge gate"));
}

TEST_F(SystemPowerObserverTest, OtherMessagesAreIgnored) {
  const auto observer = started();
  for (const std::uint32_t message : {ioMessageSystemWillPowerOn, ioMessageSystemWillNotSleep,
                                      0xE0000240U, 0xE0000250U, 0xE0000310U, 0U, 0xFFFFFFFFU}) {
    domain.deliver(message, 5);
  }
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SystemPowerObserverTest, TheNotificationIDGoesBackAsItCame) {
  const auto observer = started();
  domain.deliver(ioMessageCanSystemSleep, UINTPTR_MAX);
  EXPECT_THAT(calls, ElementsAre("allowPowerChange 283 -1"));
}

TEST_F(SystemPowerObserverTest, ANullReferenceConstantIsIgnored) {
  const auto observer = started();
  domain.deliverTo(nullptr, ioMessageSystemWillSleep);
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(SystemPowerObserverTest, StopUndoesEverythingInOrderAndSilently) {
  const auto observer = started();
  observer->stop();
  expectUndone();
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SystemPowerObserverTest, StopOfANeverStartedObserverMakesNoCall) {
  made()->stop();
  EXPECT_THAT(calls, ElementsAre("mainRunLoop"));
}

TEST_F(SystemPowerObserverTest, ASecondStopMakesNoCall) {
  const auto observer = started();
  observer->stop();
  calls.clear();
  observer->stop();
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(SystemPowerObserverTest, AfterStopStartRegistersAgain) {
  const auto observer = started();
  observer->stop();
  calls.clear();
  observer->start();
  EXPECT_THAT(calls, ElementsAre("registerForSystemPower", "notificationPortGetRunLoopSource 0x223",
                                 "runLoopAddSource 0x17 0x227"));
  EXPECT_THAT(log.lines,
              ElementsAre("default SystemPower: system power observer registered rootPort=539"));
}

TEST_F(SystemPowerObserverTest, DestroyingAStartedObserverStopsIt) {
  started().reset();
  expectUndone();
}

}  // namespace
}  // namespace korvel
