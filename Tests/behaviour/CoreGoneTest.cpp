// Work may outlive the core: every command is still answered, everything else does nothing.

#include "HelperImpl.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"

namespace korvel::test {
namespace {

/// Every call here goes to the core directly.
class HandMadeBench : public Bench {
 public:
  HandMadeBench() { excuse(replyRule); }
};

struct Command {
  const char* name;
  void (*call)(HelperImpl& core, Reply reply);
};

class CommandWithoutCoreTest : public ::testing::TestWithParam<Command> {};

TEST_P(CommandWithoutCoreTest, RepliesFalseWithoutAnErrorExactlyOnceAndDoesNothing) {
  HandMadeBench bench;
  auto core = HelperImpl::create(bench.world.startBareHelper());
  bench.world.runUntilIdle();
  bench.charge(90);
  bench.mark();
  const auto answers = std::make_shared<Answers>();
  GetParam().call(*core, into(answers));
  core.reset();
  EXPECT_EQ(answers->count, 0);
  bench.run(60);
  EXPECT_EQ(answers->count, 1);
  EXPECT_FALSE(answers->success);
  EXPECT_FALSE(answers->withError);
  EXPECT_THAT(bench.since("smc disk"), IsEmpty());
}

TEST_P(CommandWithoutCoreTest, AnswersExactlyOnceWhenTheCoreIsThere) {
  HandMadeBench bench;
  const auto core = HelperImpl::create(bench.world.startBareHelper());
  bench.charge(90);
  const auto answers = std::make_shared<Answers>();
  GetParam().call(*core, into(answers));
  bench.run(60);
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

TEST(CoreGoneTest, RefusedArgumentIsAnsweredWithoutTheQueue) {
  HandMadeBench bench;
  const auto core = HelperImpl::create(bench.world.startBareHelper());
  const auto answers = std::make_shared<Answers>();
  core->setChargeLimit(10, into(answers));
  EXPECT_EQ(answers->count, 1);
  EXPECT_TRUE(answers->withError);
}

TEST(CoreGoneTest, PostedPresenceAndRecoveryDoNothing) {
  HandMadeBench bench;
  bench.saveState(savedLimit(50));
  auto core = HelperImpl::create(bench.world.startBareHelper());
  core->clientDidConnect();
  core->clientDidDisconnect();
  bench.mark();
  core.reset();
  bench.run(120);
  EXPECT_THAT(bench.since("smc disk log"), IsEmpty());
}

TEST(CoreGoneTest, TimersOfADeadCoreNeverFire) {
  HandMadeBench bench;
  bench.saveState(savedLimit(50));
  bench.charge(90);
  auto core = HelperImpl::create(bench.world.startBareHelper());
  core->clientDidConnect();
  core->releaseLimitUntilFullThenRestore(ignored());
  core->setChargeLimit(60, ignored());
  core->clientDidDisconnect();
  bench.world.runUntilIdle();
  core.reset();
  const auto before = bench.world.callCounts();
  bench.run(7300);
  EXPECT_EQ((bench.world.callCounts() - before).text(), "");
}

TEST(CoreGoneTest, SleepAndWakeAfterTheCoreIsGoneReachNobody) {
  HandMadeBench bench;
  auto core = HelperImpl::create(bench.world.startBareHelper());
  bench.world.runUntilIdle();
  core.reset();
  bench.mark();
  bench.mac().power.requestSleep();
  bench.run(1);
  bench.mac().power.wake();
  bench.run(1);
  EXPECT_THAT(bench.since("log"), IsEmpty());
}

TEST(CoreGoneTest, SeveralCoresInOneProcessDoNotShareState) {
  HandMadeBench bench;
  bench.excuse("no call under a lock");  // It assumes one probe per process; there are two.
  Platform& platform = bench.world.startBareHelper();
  const auto first = HelperImpl::create(platform);
  bench.world.runUntilIdle();
  first->setChargeLimit(61, ignored());
  bench.world.runUntilIdle();
  const auto second = HelperImpl::create(platform);
  first->setChargeLimit(62, ignored());
  bench.world.runUntilIdle();
  std::string stateOfSecond;
  second->getState(DataReply(std::make_unique<FunctionReplySink<std::string>>(
      [&stateOfSecond](std::string data) { stateOfSecond = std::move(data); })));
  EXPECT_EQ(decodeStateReply(stateOfSecond)->chargeLimit, 61);
}

}  // namespace
}  // namespace korvel::test
