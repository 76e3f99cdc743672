#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "BrokenRules.h"
#include "KorvelHelperProtocol.h"
#include "Platform/Dispatch.h"
#include "Platform/UnifiedLog.h"
#include "Platform/XPCListener.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A delegate that counts its clients on a queue, as a core does, but not always correctly.
class CountingDelegate final : public korvel::XPCListenerDelegate {
 public:
  CountingDelegate(korvel::Platform& seam, std::shared_ptr<korvel::WorkQueue> smcQueue)
      : platform(seam), queue(std::move(smcQueue)) {}
  bool countsOut = true;

  bool shouldAcceptNewConnection(korvel::XPCConnection& connection) override {
    connection.setInvalidationHandler([this] {
      if (countsOut) post("disconnected", -1);
    });
    connection.resume();
    post("connected", 1);
    return true;
  }

 private:
  void post(const std::string& what, int change) {
    queue->async([this, what, change] {
      count = std::max(count + change, 0);
      platform.log.emit("com.korvel.app.helper", "HelperImpl", korvel::LogLevel::Default,
                        "client " + what + " (count=" + std::to_string(count) + ")");
    });
  }

  korvel::Platform& platform;
  std::shared_ptr<korvel::WorkQueue> queue;
  int count = 0;
};

class ClientRule : public BrokenRules {
 protected:
  ClientRule() {
    listener->setDelegate(delegate);
    listener->resume();
  }

  std::shared_ptr<CountingDelegate> delegate = std::make_shared<CountingDelegate>(platform, queue);
  std::unique_ptr<korvel::XPCListener> listener =
      platform.xpc.makeListener(korvel::KorvelHelperMachServiceName);
};

TEST_F(ClientRule, HoldsWhenEachIsCountedInAndThenOut) {
  const auto first = world.connectApp();
  const auto second = world.connectApp();
  world.runUntilIdle();
  first->disconnect();
  world.runUntilIdle();
  second->disconnect();
  world.runUntilIdle();
  EXPECT_EQ(world.logCount("client disconnected (count=0)"), 1U);
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(ClientRule, SeesAClientThatIsCountedOutBeforeItIsCountedIn) {
  world.machine().connectionsBreak = ConnectionBreak::InResume;
  const auto client = world.connectApp();
  world.runFor(60);
  EXPECT_THAT(found(), ElementsAre("clients counted once: 0.000 1 counted, 1 accepted, 1 ended"));
}

TEST_F(ClientRule, SeesAClientThatIsNeverCountedOut) {
  delegate->countsOut = false;
  const auto client = world.connectApp();
  world.runFor(1);
  EXPECT_THAT(rules.violations(), IsEmpty());
  client->disconnect();
  world.runFor(1);
  EXPECT_THAT(found(), ElementsAre("clients counted once: 1.000 1 counted, 1 accepted, 1 ended"));
}

TEST_F(ClientRule, SeesACountThatNobodyCameFor) {
  const auto client = world.connectApp();
  world.runUntilIdle();
  works([this] { logs("client connected (count=2)"); });
  EXPECT_THAT(found(), ElementsAre("clients counted once: 0.000 2 counted, 1 accepted, 0 ended"));
}

TEST(ClientRuleOfLives, JudgesEachByItself) {
  World world;
  InvariantSet rules(world);
  const auto first = world.connectApp();
  first->await(first->ping());
  world.runUntilIdle();
  world.killHelper();
  const auto second = world.connectApp();
  second->await(second->ping());
  world.runUntilIdle();
  EXPECT_EQ(world.logCount("client connected (count=1)"), 2U);
  rules.finish();
  EXPECT_THAT(rules.violations(), IsEmpty());
}

}  // namespace
}  // namespace virtualmac
