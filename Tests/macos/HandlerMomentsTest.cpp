// Handlers at awkward moments: none set, dropped while they run, or gone with their port.
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>

#include "macOS/Adapters.h"

namespace korvel::macos {
namespace {

constexpr double generousSeconds = 10;

/// Serves the main run loop until `reached` holds.
bool serveUntil(const std::function<bool()>& reached) {
  const auto end =
      std::chrono::steady_clock::now() + std::chrono::duration<double>(generousSeconds);
  while (!reached()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.005, false);
  }
  return true;
}

class SourceMomentsTest : public testing::Test {
 protected:
  /// Whether work that is posted now is done; a serial queue has then done all that came before.
  bool passesOn() {
    std::atomic<bool> passed = false;
    queue->async([&] { passed = true; });
    return serveUntil([&] { return passed.load(); });
  }

  std::unique_ptr<Dispatch> dispatch = makeDispatch();
  std::shared_ptr<WorkQueue> queue = dispatch->makeSerialQueue("com.korvel.test.moments");
};

TEST_F(SourceMomentsTest, ATimerWithoutAHandlerFiresInSilence) {
  const auto silent = dispatch->makeTimer(queue);
  const auto heard = dispatch->makeTimer(queue);
  std::atomic<int> ticks = 0;
  heard->setEventHandler([&] { ++ticks; });
  silent->schedule(0, 0.01, 0);
  heard->schedule(0.05, 0.01, 0);
  silent->resume();
  heard->resume();
  EXPECT_TRUE(serveUntil([&] { return ticks >= 3; }));
  heard->cancel();
  silent->cancel();
  EXPECT_TRUE(passesOn());
}

TEST_F(SourceMomentsTest, ATimerThatWasNeverResumedCanGo) {
  auto timer = dispatch->makeTimer(queue);
  timer->setEventHandler([] { ADD_FAILURE() << "it was never resumed"; });
  timer->schedule(0, 0.01, 0);
  timer = nullptr;
  EXPECT_TRUE(passesOn());
}

TEST_F(SourceMomentsTest, ATimerThatIsCancelledBeforeItIsResumedNeverFires) {
  const auto timer = dispatch->makeTimer(queue);
  timer->setEventHandler([] { ADD_FAILURE() << "it was cancelled"; });
  timer->schedule(0, 0.01, 0);
  timer->cancel();
  timer->resume();
  EXPECT_TRUE(passesOn());
}

TEST_F(SourceMomentsTest, WhatAHandlerOwnsGoesWithItsTimer) {
  const auto owned = std::make_shared<int>(1);
  auto timer = dispatch->makeTimer(queue);
  timer->setEventHandler([owned] { EXPECT_EQ(*owned, 1); });
  timer->schedule(0, 0.01, 0);
  timer->resume();
  EXPECT_GE(owned.use_count(), 2);
  timer = nullptr;
  EXPECT_TRUE(serveUntil([&] { return owned.use_count() == 1; }));
}

TEST_F(SourceMomentsTest, AHandlerMayHoldTheLastReferenceToItsQueue) {
  std::atomic<bool> gone = false;
  auto own = dispatch->makeSerialQueue("com.korvel.test.own");
  WorkQueue& plain = *own;
  plain.async([&gone, held = std::move(own)]() mutable {
    held = nullptr;
    gone = true;
  });
  EXPECT_TRUE(serveUntil([&] { return gone.load(); }));
}

TEST_F(SourceMomentsTest, ASignalsHandlerMayDropItsSource) {
  std::atomic<int> heard = 0;
  dispatch->ignoreDefaultAction(SIGTERM);
  std::unique_ptr<SignalSource> source = dispatch->makeSignalSource(SIGTERM);
  const auto other = dispatch->makeSignalSource(SIGTERM);
  source->setEventHandler([&] {
    source = nullptr;
    ++heard;
  });
  std::atomic<int> heardByOther = 0;
  other->setEventHandler([&] { ++heardByOther; });
  source->resume();
  other->resume();
  ::kill(::getpid(), SIGTERM);
  EXPECT_TRUE(serveUntil([&] { return heard == 1 && heardByOther == 1; }));
  ::kill(::getpid(), SIGTERM);
  EXPECT_TRUE(serveUntil([&] { return heardByOther == 2; }));
  EXPECT_EQ(heard, 1);
}

TEST_F(SourceMomentsTest, AWaitForNoTimeAtAllEndsAtOnce) {
  const auto group = dispatch->makeGroup();
  EXPECT_TRUE(group->wait(0));
  group->enter();
  EXPECT_FALSE(group->wait(-1)) << "less than no time is no time";
  group->leave();
  EXPECT_TRUE(group->wait(1e300)) << "more than the clock can count is for ever";
}

/// Notes the messages of one registration.
struct Listener {
  static void hear(void* refcon, ObjectRef, std::uint32_t, std::uintptr_t) {
    ++static_cast<Listener*>(refcon)->messages;
  }
  int messages = 0;
};

class PortMomentsTest : public testing::Test {
 protected:
  struct Registration {
    HandleRef port = 0;
    ObjectRef notifier = 0;
    ConnectionRef connection = 0;
  };

  static Registration registerWith(RootPowerDomain& domain, Listener& listener) {
    Registration made;
    made.connection =
        domain.registerForSystemPower(&listener, made.port, Listener::hear, made.notifier);
    EXPECT_NE(made.connection, 0U);
    return made;
  }
  static void giveBack(RootPowerDomain& domain, Registration& registration) {
    EXPECT_EQ(domain.deregisterForSystemPower(registration.notifier), kernSuccess);
    EXPECT_EQ(domain.serviceClose(registration.connection), kernSuccess);
    domain.notificationPortDestroy(registration.port);
  }

  std::unique_ptr<RootPowerDomain> domain = makeRootPowerDomain();
  Listener listener;
};

TEST_F(PortMomentsTest, TwoRegistrationsAreTwo) {
  Listener second;
  Registration first = registerWith(*domain, listener);
  Registration other = registerWith(*domain, second);
  EXPECT_NE(first.port, other.port);
  EXPECT_NE(first.notifier, other.notifier);
  giveBack(*domain, first);
  EXPECT_NE(domain->notificationPortGetRunLoopSource(other.port), 0U) << "the other one stays";
  giveBack(*domain, other);
  EXPECT_EQ(listener.messages, 0);
}

TEST_F(PortMomentsTest, APortMayBeDestroyedThroughAnotherAdapter) {
  Registration made = registerWith(*domain, listener);
  const auto other = makeRootPowerDomain();
  giveBack(*other, made);
  Registration again = registerWith(*domain, listener);
  giveBack(*domain, again);
}

TEST_F(PortMomentsTest, APortIsDestroyedWithItsSourceOnNoRunLoop) {
  Registration made = registerWith(*domain, listener);
  const HandleRef source = domain->notificationPortGetRunLoopSource(made.port);
  ASSERT_NE(source, 0U);
  EXPECT_EQ(source, domain->notificationPortGetRunLoopSource(made.port)) << "it is the port's";
  giveBack(*domain, made);
}

}  // namespace
}  // namespace korvel::macos
