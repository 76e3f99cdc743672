// The listener and its connections with clients of the machine: what a test on a real Mac cannot
// have without a job of launchd and a signed client.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>

#include "Tests/macos/NotingCore.h"
#include "Tests/tin/runner/Operator.h"
#include "macOS/Adapters.h"

namespace korvel::macos {
namespace {

using test::NotingCore;
using tinmac::test::Client;
using tinmac::test::Fault;
using tinmac::test::serveUntil;

class TryingDelegate final : public XPCListenerDelegate {
 public:
  bool shouldAcceptNewConnection(XPCConnection& connection) override {
    ++asked;
    return decide(connection);
  }

  std::function<bool(XPCConnection&)> decide;
  std::atomic<int> asked = 0;
};

/// A published service. The tin Mac lets a process publish one, so one test has all the moments.
struct Service {
  Service() {
    listener->setDelegate(delegate);
    listener->resume();
  }

  /// Exports a fresh core; counts how often the connection's end is told.
  void exportOn(XPCConnection& connection) {
    XPCInterface interface = makeHelperInterface();
    applyTypedReplyClasses(interface);
    connection.setExportedInterface(interface);
    connection.setExportedObject(core);
    connection.setInterruptionHandler([] { ADD_FAILURE() << "no connection comes back"; });
    connection.setInvalidationHandler([this, owned = owner] { ++ends; });
    connection.resume();
  }
  void freshen() {
    core = std::make_shared<NotingCore>();
    owner = std::make_shared<int>(0);
    ends = 0;
  }
  /// Whether the connection has ended once, and let go of what it held.
  bool isOver() {
    return serveUntil(
        [this] { return ends == 1 && core.use_count() == 1 && owner.use_count() == 1; });
  }

  std::unique_ptr<XPCService> service = makeXPCService();
  std::unique_ptr<XPCListener> listener = service->makeListener(KorvelHelperMachServiceName);
  std::shared_ptr<TryingDelegate> delegate = std::make_shared<TryingDelegate>();
  std::shared_ptr<NotingCore> core;
  std::shared_ptr<int> owner;
  std::atomic<int> ends = 0;
};

void aRequirementThatRaisesIsOneThatDoesNotParse(Service& at) {
  std::atomic<bool> parsed = true;
  at.delegate->decide = [&](XPCConnection& connection) {
    parsed = connection.setCodeSigningRequirement("this is no requirement");
    return false;
  };
  EXPECT_FALSE(Client("ping").succeeds());
  EXPECT_FALSE(parsed);
}

void anAcceptedClientIsServedAndItsEndIsToldOnce(Service& at) {
  at.freshen();
  at.delegate->decide = [&](XPCConnection& connection) {
    at.exportOn(connection);
    return true;
  };
  EXPECT_TRUE(Client("set-limit 60").succeeds());
  EXPECT_TRUE(at.isOver());
  EXPECT_EQ(at.core->calls, std::vector<std::string>{"limit 60"});
  at.core->failure = makeError(500, "kSMCWriteKey failed", {{"smcResult", 132}});
  at.ends = 0;
  EXPECT_FALSE(Client("clear-limit").succeeds());
  EXPECT_TRUE(at.isOver());
}

void aMessageMayComeBeforeTheDelegateHasDecided(Service& at) {
  at.freshen();
  const auto came = makeDispatch()->makeGroup();
  std::atomic<bool> before = false;
  at.delegate->decide = [&](XPCConnection& connection) {
    at.exportOn(connection);
    for (int waits = 0; waits < 40 && at.core->callCount == 0; ++waits) {
      came->enter();
      came->wait(0.01);
      came->leave();
    }
    before = at.core->callCount == 1;
    return true;
  };
  EXPECT_TRUE(Client("set-limit 70").succeeds());
  EXPECT_TRUE(at.isOver());
  EXPECT_TRUE(before);
}

void aNoAfterResumeEndsTheConnectionOnce(Service& at) {
  at.freshen();
  at.delegate->decide = [&](XPCConnection& connection) {
    at.exportOn(connection);
    return false;
  };
  // The answer may be quicker than the no.
  Client("ping").succeeds();
  EXPECT_TRUE(at.isOver());
}

void aConnectionThatBreaksDuringItsAcceptanceEndsOnce(Service& at) {
  for (const char* moment : {"handler", "resume", "after"}) {
    const Fault breaking(std::string("connection-breaks ") + moment);
    at.freshen();
    at.delegate->decide = [&](XPCConnection& connection) {
      at.exportOn(connection);
      return true;
    };
    Client client("ping");
    EXPECT_TRUE(at.isOver()) << moment;
    // From resume on the answer may be quicker than the break.
    const bool isAnswered = client.succeeds();
    EXPECT_TRUE(!isAnswered || moment != std::string("handler")) << moment;
  }
}

void withoutItsDelegateTheListenerTakesNobody(Service& at) {
  const int before = at.delegate->asked;
  at.delegate = nullptr;
  EXPECT_GT(before, 0);
  EXPECT_FALSE(Client("ping").succeeds());
}

TEST(ListenerTest, DecidesOnEveryConnectionAndLetsGoOfEach) {
  Service published;
  aRequirementThatRaisesIsOneThatDoesNotParse(published);
  anAcceptedClientIsServedAndItsEndIsToldOnce(published);
  aMessageMayComeBeforeTheDelegateHasDecided(published);
  aNoAfterResumeEndsTheConnectionOnce(published);
  aConnectionThatBreaksDuringItsAcceptanceEndsOnce(published);
  withoutItsDelegateTheListenerTakesNobody(published);
}

TEST(ListenerTest, OneThatWasNeverResumedCanGo) {
  const auto service = makeXPCService();
  auto listener = service->makeListener("com.korvel.test.unpublished");
  ASSERT_TRUE(listener != nullptr);
  const auto delegate = std::make_shared<TryingDelegate>();
  listener->setDelegate(delegate);
  listener = nullptr;
  EXPECT_EQ(delegate.use_count(), 1);
  EXPECT_EQ(delegate->asked, 0);
}

}  // namespace
}  // namespace korvel::macos
