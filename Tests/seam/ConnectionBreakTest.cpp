// Connections may end while they are being accepted.

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include "Base/Lock.h"
#include "FakeHelper.h"
#include "Platform/WallClock.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {
namespace {

struct ConnectionBreakTest : testing::Test {
  FakeHelper helper;
  World world{helper.options()};
};

TEST_F(ConnectionBreakTest, ABreakAtTheHandlerRunsItOnTheConnectionsThreadBeforeItIsResumed) {
  helper.notesSteps = true;
  std::string thread;
  helper.onInvalidated = [&] { thread = world.scheduler().current().name(); };
  world.machine().connectionsBreak = ConnectionBreak::AtHandler;
  const auto app = world.connectApp();
  const AppCallRef call = app->ping();
  world.runUntilIdle();
  EXPECT_EQ(helper.notes, "invalidated resuming resumed accepted ");
  EXPECT_EQ(thread, "xpc 901");
  EXPECT_TRUE(call->failed) << "nothing is delivered";
  EXPECT_FALSE(app->connected());
  EXPECT_EQ(world.journal().text("app"),
            "0.000 app   app 901 connects\n"
            "0.000 app   app 901 cut off: the connection broke\n");
}

TEST_F(ConnectionBreakTest, ABreakInResumeHasRunTheHandlerBeforeResumeReturns) {
  helper.notesSteps = true;
  world.machine().connectionsBreak = ConnectionBreak::InResume;
  const auto app = world.connectApp();
  world.runUntilIdle();
  EXPECT_EQ(helper.notes, "resuming invalidated resumed accepted ");
  world.machine().connectionsBreak.reset();
  const auto second = world.connectApp();
  EXPECT_TRUE(second->await(second->ping()).answered) << "the fault is over";
}

TEST_F(ConnectionBreakTest, ABreakAfterResumeRunsTheHandlerWhenTheOtherThreadLetsIt) {
  helper.notesSteps = true;
  world.machine().connectionsBreak = ConnectionBreak::AfterResume;
  const auto app = world.connectApp();
  world.runUntilIdle();
  EXPECT_EQ(helper.notes, "resuming resumed accepted invalidated ");
  helper.notes.clear();
  world.faults().setLatency(SeamCall::clockNow, 1);
  helper.onResumed = [this] { helper.seam->clock.now(); };
  const auto second = world.connectApp();
  world.runFor(2);
  EXPECT_EQ(helper.notes, "resuming resumed invalidated accepted ");
}

TEST(ConnectionBreakScheduleTest, AClientThatLeavesAtOnceIsGoneBeforeOrAfterItIsAccepted) {
  std::set<std::string> orders;
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    FakeHelper helper;
    WorldOptions options = helper.options();
    options.scheduling = Scheduling::Seeded;
    options.seed = seed;
    World world(options);
    helper.onResumed = [&] { helper.seam->clock.now(); };
    const auto app = world.connectApp();
    app->disconnect();
    world.runUntilIdle();
    orders.insert(helper.notes);
  }
  EXPECT_EQ(orders, (std::set<std::string>{"accepted invalidated ", "invalidated accepted "}));
}

TEST(ConnectionBreakScheduleTest, AHandlerThatCannotRunIsReportedAsADeadlock) {
  FakeHelper helper;
  World world(helper.options());
  world.machine().connectionsBreak = ConnectionBreak::InResume;
  std::unique_ptr<korvel::LockPrimitive> lock;
  helper.onAccepting = [&] {
    lock = helper.seam->dispatch.makeLock("state");
    lock->lock();
  };
  helper.onInvalidated = [&] { lock->lock(); };
  const auto app = world.connectApp();
  std::string report;
  try {
    world.runFor(1);
  } catch (const StuckError& error) {
    report = error.what();
  }
  EXPECT_EQ(report,
            "xpc 901 waits for lock state held by xpc listener; xpc listener waits for handler "
            "xpc 901 held by xpc 901");
  world.killHelper();
}

}  // namespace
}  // namespace virtualmac
