// Sleep and wake messages at moments that only a machine on command can give.
#include <gtest/gtest.h>

#include <functional>
#include <utility>
#include <vector>

#include "Tests/tin/runner/Operator.h"
#include "macOS/Adapters.h"

namespace korvel::macos {
namespace {

using tinmac::test::serveFor;
using tinmac::test::serveUntil;
using tinmac::test::tellMachine;

constexpr double quietSeconds = 0.2;

class PowerMessagesTest : public testing::Test {
 public:
  ~PowerMessagesTest() override {
    tellMachine("wake");
    giveBack();
    serveFor(quietSeconds);
  }

 protected:
  struct Heard {
    std::uint32_t type;
    std::intptr_t argument;
  };

  PowerMessagesTest() {
    connection = domain->registerForSystemPower(this, port, hear, notifier);
    source = domain->notificationPortGetRunLoopSource(port);
    domain->runLoopAddSource(domain->mainRunLoop(), source);
  }

  static void hear(void* refcon, ObjectRef, std::uint32_t type, std::uintptr_t argument) {
    auto& test = *static_cast<PowerMessagesTest*>(refcon);
    test.heard.push_back({type, static_cast<std::intptr_t>(argument)});
    if (test.reaction) test.reaction(test.heard.back());
  }
  /// In the order in which the helper does it; a second time changes nothing.
  void giveBack() {
    if (port == 0) return;
    domain->runLoopRemoveSource(domain->mainRunLoop(), source);
    EXPECT_EQ(domain->deregisterForSystemPower(notifier), kernSuccess);
    EXPECT_EQ(domain->serviceClose(connection), kernSuccess);
    domain->notificationPortDestroy(std::exchange(port, 0));
  }
  [[nodiscard]] bool hasHeard(std::uint32_t type) const {
    for (const Heard& each : heard) {
      if (each.type == type) return true;
    }
    return false;
  }

  std::unique_ptr<RootPowerDomain> domain = makeRootPowerDomain();
  HandleRef port = 0;
  HandleRef source = 0;
  ObjectRef notifier = 0;
  ConnectionRef connection = 0;
  std::vector<Heard> heard;
  std::function<void(const Heard&)> reaction;
};

TEST_F(PowerMessagesTest, SleepIsAllowedAndTheWakeIsHeard) {
  reaction = [this](const Heard& message) {
    if (message.type == ioMessageCanSystemSleep || message.type == ioMessageSystemWillSleep) {
      EXPECT_EQ(domain->allowPowerChange(connection, message.argument), kernSuccess);
    }
  };
  tellMachine("sleep");
  EXPECT_TRUE(serveUntil([this] { return hasHeard(ioMessageSystemWillSleep); }));
  tellMachine("wake");
  EXPECT_TRUE(serveUntil([this] { return hasHeard(ioMessageSystemHasPoweredOn); }));
}

TEST_F(PowerMessagesTest, APortThatIsDestroyedTakesTheMessageUnderWayWithIt) {
  tellMachine("sleep");
  giveBack();
  serveFor(quietSeconds);
  EXPECT_TRUE(heard.empty()) << "the message had come, and nobody was there to hear it";
}

TEST_F(PowerMessagesTest, AMessageWaitsInAPortWhoseSourceIsOnNoRunLoop) {
  domain->runLoopRemoveSource(domain->mainRunLoop(), source);
  tellMachine("sleep");
  serveFor(quietSeconds);
  EXPECT_TRUE(heard.empty());
  domain->runLoopAddSource(domain->mainRunLoop(), source);
  EXPECT_TRUE(serveUntil([this] { return !heard.empty(); }));
}

TEST_F(PowerMessagesTest, AHandlerMayGiveItsOwnRegistrationBack) {
  reaction = [this](const Heard& message) {
    domain->allowPowerChange(connection, message.argument);
    giveBack();
  };
  tellMachine("sleep");
  EXPECT_TRUE(serveUntil([this] { return port == 0; }));
  serveFor(quietSeconds);
  EXPECT_EQ(heard.size(), 1U);
}

TEST_F(PowerMessagesTest, ASleepDuringTheEndFindsNobody) {
  EXPECT_EQ(domain->deregisterForSystemPower(notifier), kernSuccess);
  tellMachine("sleep");
  serveFor(quietSeconds);
  EXPECT_TRUE(heard.empty());
  domain->runLoopRemoveSource(domain->mainRunLoop(), source);
  EXPECT_EQ(domain->serviceClose(connection), kernSuccess);
  domain->notificationPortDestroy(std::exchange(port, 0));
}

}  // namespace
}  // namespace korvel::macos
