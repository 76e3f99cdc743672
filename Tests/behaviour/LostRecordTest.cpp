// The end of a discharge cannot be recorded: the hardware is released, but the reverted record
// still says that the discharge is running.

#include "DischargeDecision.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

constexpr const char* reverted =
    "default persistence rename failure — reverted in-memory state to last durable snapshot";

/// Starts a discharge and stops it with `ending` while the record cannot be replaced.
void endWithoutARecord(Bench& bench, AppCallRef (*ending)(AppClient& app)) {
  bench.bootDischarging();
  bench.mac().disk.replaceFails = true;
  ASSERT_EQ(bench.ask(ending(*bench.app)), "ok");
  bench.mac().disk.replaceFails = false;
  ASSERT_EQ(bench.key("CHIE"), "00") << "the hardware is released";
  ASSERT_TRUE(bench.mac().power.assertions().empty());
  ASSERT_TRUE(bench.state().forceDischargeActive) << "the record says otherwise";
  bench.mark();
}

/// Expects another start to succeed without doing anything.
void expectAStartToDoNothing(Bench& bench) {
  EXPECT_EQ(bench.ask(bench.app->forceDischarge(true)), "ok");
  EXPECT_THAT(bench.since("smc power disk"), IsEmpty());
}

/// Expects the watchdog to run and the gate to stay, until the charge has risen by three points.
void expectTheWatchdogUntilTheChargeRises(Bench& bench) {
  bench.charge(70);
  bench.run(60);
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  bench.tickAt(73);
  EXPECT_EQ(bench.onDisk().lastDischargeAbortReason,
            bannerCopy(DischargeStopReason::chargeInhibitLost));
  EXPECT_FALSE(bench.state().forceDischargeActive);
  bench.run(5);
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00") << "the limit holds again";
}

using LostRecordTest = OnBench;

TEST_F(LostRecordTest, AUserStopLeavesTheWatchdogOfADischargeThatIsNone) {
  endWithoutARecord(*this, [](AppClient& client) { return client.forceDischarge(false); });
  expectAStartToDoNothing(*this);
  tickAt(50);
  EXPECT_EQ(logs().back(), "default force-discharge auto-stopped: reason=targetReached");
  EXPECT_FALSE(onDisk().forceDischargeActive);
}

TEST_F(LostRecordTest, AUserStopThatIsRepeatedIsRecorded) {
  endWithoutARecord(*this, [](AppClient& client) { return client.forceDischarge(false); });
  EXPECT_EQ(ask(app->forceDischarge(false)), "ok");
  EXPECT_FALSE(onDisk().forceDischargeActive);
  EXPECT_FALSE(state().forceDischargeActive);
}

TEST_F(LostRecordTest, AStopByItselfIsRepeatedByEveryTickUntilItIsRecorded) {
  bootDischarging();
  mac().disk.replaceFails = true;
  charge(50);
  for (int tick = 0; tick < 3; ++tick) {
    mark();
    run(5);
    EXPECT_THAT(
        logs(),
        ElementsAre("default auto-stop discharge: cap=50 ≤ target=50",
                    ::testing::StartsWith("fault persistence.write failed: atomic rename"),
                    reverted, "default force-discharge auto-stopped: reason=targetReached"));
    EXPECT_TRUE(state().forceDischargeActive);
    EXPECT_FALSE(state().lastDischargeAbortReason.has_value());
  }
  mac().disk.replaceFails = false;
  run(5);
  EXPECT_FALSE(onDisk().forceDischargeActive);
  EXPECT_EQ(onDisk().lastDischargeAbortReason, bannerCopy(DischargeStopReason::targetReached));
  mark();
  run(5);
  EXPECT_THAT(since("smc"), ElementsAre("smc CHTE <- 01 00 00 00"));
}

TEST_F(LostRecordTest, AClearOrAResetLeavesTheDischargeInTheRecordWithNothingThatWatchesIt) {
  using Ending = AppCallRef (*)(AppClient&);
  for (const Ending ending : {Ending([](AppClient& client) { return client.clearChargeLimit(); }),
                              Ending([](AppClient& client) { return client.resetAllSMCKeys(); })}) {
    Bench bench;
    endWithoutARecord(bench, ending);
    expectAStartToDoNothing(bench);
    EXPECT_EQ(bench.callsDuring(60).text(), "") << "something still ticks";
    const auto second = bench.world.connectApp();
    bench.world.runUntilIdle();
    EXPECT_EQ(bench.logs().back(), "default client connect — arming polling loop at limit=50");
    expectTheWatchdogUntilTheChargeRises(bench);
  }
}

TEST_F(LostRecordTest, ASuspensionLeavesTheWatchdogToTheNextClient) {
  bootDischarging();
  mac().disk.replaceFails = true;
  app->disconnect();
  run(30);
  mac().disk.replaceFails = false;
  EXPECT_EQ(key("CHIE"), "00");
  EXPECT_EQ(logs().back(), reverted);
  app = world.connectApp();
  app->await(app->ping());
  EXPECT_TRUE(state().forceDischargeActive);
  mark();
  expectTheWatchdogUntilTheChargeRises(*this);
}

TEST_F(LostRecordTest, TheNextStartOfTheHelperEndsItInTheRecordToo) {
  endWithoutARecord(*this, [](AppClient& client) { return client.clearChargeLimit(); });
  world.killHelper();
  boot();
  EXPECT_FALSE(onDisk().forceDischargeActive);
}

}  // namespace
}  // namespace korvel::test
