// Work may outlive the core: every command is still answered, everything else does nothing.

#include "HelperImpl.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"

namespace korvel::test {
namespace {

/// Every call here goes to the core directly.
class CoreGoneTest : public OnBench {
 protected:
  CoreGoneTest() { excuse(replyRule); }
  std::shared_ptr<HelperImpl> makeCore() { return HelperImpl::create(world.startBareHelper()); }
};

struct Command {
  const char* name;
  void (*call)(HelperImpl& core, Reply reply);
};

class CommandWithoutCoreTest : public CoreGoneTest,
                               public ::testing::WithParamInterface<Command> {};

TEST_P(CommandWithoutCoreTest, RepliesFalseWithoutAnErrorExactlyOnceAndDoesNothing) {
  auto core = makeCore();
  world.runUntilIdle();
  charge(90);
  mark();
  const auto answers = std::make_shared<Answers>();
  GetParam().call(*core, into(answers));
  core.reset();
  EXPECT_EQ(answers->count, 0);
  run(60);
  EXPECT_EQ(answers->count, 1);
  EXPECT_FALSE(answers->success);
  EXPECT_FALSE(answers->withError);
  EXPECT_THAT(since("smc disk"), IsEmpty());
}

TEST_P(CommandWithoutCoreTest, AnswersExactlyOnceWhenTheCoreIsThere) {
  const auto core = makeCore();
  charge(90);
  const auto answers = std::make_shared<Answers>();
  GetParam().call(*core, into(answers));
  run(60);
  EXPECT_EQ(answers->count, 1);
  EXPECT_TRUE(answers->success);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, CommandWithoutCoreTest,
    ::testing::Values(
        Command{"setChargeLimit",
                [](HelperImpl& core, Reply reply) { core.setChargeLimit(60, std::move(reply)); }},
        Command{"clearChargeLimit",
                [](HelperImpl& core, Reply reply) { core.clearChargeLimit(std::move(reply)); }},
        Command{"startDischarge",
                [](HelperImpl& core, Reply reply) { core.forceDischarge(true, std::move(reply)); }},
        Command{"stopDischarge", [](HelperImpl& core,
                                    Reply reply) { core.forceDischarge(false, std::move(reply)); }},
        Command{"armKeepAwake",
                [](HelperImpl& core, Reply reply) {
                  core.setClamshellKeepAwake(true, std::move(reply));
                }},
        Command{"disarmKeepAwake",
                [](HelperImpl& core, Reply reply) {
                  core.setClamshellKeepAwake(false, std::move(reply));
                }},
        Command{"release",
                [](HelperImpl& core, Reply reply) {
                  core.releaseLimitUntilFullThenRestore(std::move(reply));
                }},
        Command{"cancel",
                [](HelperImpl& core, Reply reply) { core.cancelTopUp(std::move(reply)); }},
        Command{"reset",
                [](HelperImpl& core, Reply reply) { core.resetAllSMCKeys(std::move(reply)); }}),
    [](const auto& named) { return std::string(named.param.name); });

TEST_F(CoreGoneTest, RefusedArgumentIsAnsweredWithoutTheQueue) {
  const auto core = makeCore();
  const auto answers = std::make_shared<Answers>();
  core->setChargeLimit(10, into(answers));
  EXPECT_EQ(answers->count, 1);
  EXPECT_TRUE(answers->withError);
}

TEST_F(CoreGoneTest, PostedPresenceAndRecoveryDoNothing) {
  saveState(savedLimit(50));
  auto core = makeCore();
  core->clientDidConnect();
  core->clientDidDisconnect();
  mark();
  core.reset();
  run(120);
  EXPECT_THAT(since("smc disk log"), IsEmpty());
}

TEST_F(CoreGoneTest, TimersOfADeadCoreNeverFire) {
  saveState(savedLimit(50));
  charge(90);
  auto core = makeCore();
  core->clientDidConnect();
  core->releaseLimitUntilFullThenRestore(ignored());
  core->setChargeLimit(60, ignored());
  core->clientDidDisconnect();
  world.runUntilIdle();
  core.reset();
  EXPECT_EQ(callsDuring(7300).text(), "");
}

TEST_F(CoreGoneTest, SleepAndWakeAfterTheCoreIsGoneReachNobody) {
  auto core = makeCore();
  world.runUntilIdle();
  core.reset();
  mark();
  sleepNow();
  mac().power.wake();
  run(1);
  EXPECT_THAT(since("log"), IsEmpty());
}

/// A command occupies the queue for longer than sleep is held up, so that the pause comes late.
class LatePauseTest : public CoreGoneTest {
 protected:
  /// Gives the log from the wake on.
  Lines logWithCore(bool kept) {
    charge(90);
    core->setChargeLimit(80, ignored());
    world.runUntilIdle();
    world.faults().setLatency(SeamCall::smcCallStruct, 10);
    core->setChargeLimit(70, ignored());
    run(1);
    sleepNow();
    if (!kept) core.reset();
    mark();
    mac().power.wake();
    run(600);
    return logs();
  }
  std::shared_ptr<HelperImpl> core = makeCore();
};

const char* const latePause = "default pre-sleep CHTE pause-write succeeded";

TEST_F(LatePauseTest, IsMadeOnceTheQueueIsFree) {
  EXPECT_THAT(logWithCore(true), ::testing::Contains(latePause));
}

TEST_F(LatePauseTest, IsNotMadeOnceTheCoreIsGone) {
  const std::weak_ptr<HelperImpl> watched = core;
  EXPECT_THAT(logWithCore(false), ::testing::Not(::testing::Contains(latePause)));
  EXPECT_TRUE(watched.expired());
}

TEST_F(CoreGoneTest, SeveralCoresInOneProcessDoNotShareState) {
  excuse("no call under a lock");  // It assumes one probe per process; there are two.
  Platform& platform = world.startBareHelper();
  const auto first = HelperImpl::create(platform);
  world.runUntilIdle();
  first->setChargeLimit(61, ignored());
  world.runUntilIdle();
  const auto second = HelperImpl::create(platform);
  first->setChargeLimit(62, ignored());
  world.runUntilIdle();
  std::string stateOfSecond;
  second->getState(DataReply(std::make_unique<FunctionReplySink<std::string>>(
      [&stateOfSecond](std::string data) { stateOfSecond = std::move(data); })));
  EXPECT_EQ(decodeStateReply(stateOfSecond)->chargeLimit, 61);
}

}  // namespace
}  // namespace korvel::test
