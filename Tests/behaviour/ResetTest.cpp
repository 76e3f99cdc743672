// Putting every charging key back while the helper goes on.

#include "HelperImpl.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"

namespace korvel::test {
namespace {

TEST(ResetTest, WritesOnlyTheKeysThatThisMacHasAndSaysNothingOfTheOthers) {
  Bench bench;
  bench.boot();
  EXPECT_EQ(outcome(bench.call(bench.app->resetAllSMCKeys())), "ok");
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHTE <- 00 00 00 00", "smc CHIE <- 00"));
  EXPECT_THAT(bench.logs(), ElementsAre(audit(bench, "resetAllSMCKeys")));
  EXPECT_THAT(bench.logs("SMCWriter"), ElementsAre("default SMC write CHTE bytes=[0, 0, 0, 0]",
                                                   "default SMC write CHIE bytes=[0]"));
}

TEST(ResetTest, WritesEveryKeyInItsOrderWhereAllAreThere) {
  Bench bench("both-families");
  bench.boot();
  bench.call(bench.app->resetAllSMCKeys());
  EXPECT_THAT(bench.since("smc"),
              ElementsAre("smc CHTE <- 00 00 00 00", "smc CH0B <- 00", "smc CH0C <- 00",
                          "smc CHIE <- 00", "smc CH0I <- 00", "smc CH0J <- 00"));
}

TEST(ResetTest, EndsADischargeAndDisarmsKeepAwakeAfterTheHardware) {
  Bench bench;
  bench.bootArmedDischarge();
  bench.run(1);
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->resetAllSMCKeys())), "ok");
  EXPECT_THAT(bench.since("smc power disk reply"),
              ElementsAre("smc CHTE <- 00 00 00 00", "smc CHIE <- 00", "power SleepDisabled = 0",
                          "disk state.json replaced: sleepDisabledByKorvel=false",
                          "power assertion 33001 released", "power assertion 33002 released",
                          "disk state.json replaced: forceDischargeActive=false "
                          "lastWriteAt=2026-01-01T00:00:01Z",
                          "reply resetAllSMCKeys ok"));
  EXPECT_FALSE(bench.state().forceDischargeActive);
  EXPECT_FALSE(bench.state().lastDischargeAbortReason.has_value());
  bench.mark();
  bench.run(60);
  EXPECT_THAT(bench.since("smc disk log"), IsEmpty()) << "nothing runs afterwards";
}

TEST(ResetTest, DisarmsKeepAwakeOnlyAfterTheNativeLimit) {
  Bench bench("newer-keys-and-native");
  bench.boot();
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mark();
  bench.call(bench.app->resetAllSMCKeys());
  EXPECT_THAT(bench.since("smc power"),
              ElementsAre("smc CHTE <- 00 00 00 00", "smc CHIE <- 00",
                          "power native limit none (pid 501)", "power SleepDisabled = 0"));
}

TEST(ResetTest, KeepsBandVerificationAndBanner) {
  Bench bench;
  HelperState record = savedLimit(50);
  record.sailingBand = 9;
  bench.saveState(record);
  bench.mac().smc.key("CHTE")->silentlyRefuses = true;
  bench.charge(70);
  bench.boot();
  bench.call(bench.app->forceDischarge(true));
  bench.mac().lid.close();
  bench.run(1);
  bench.mac().lid.open();
  bench.run(1);
  const HelperState before = bench.state();
  ASSERT_TRUE(before.lastDischargeAbortReason.has_value());
  ASSERT_FALSE(before.lastWriteVerified);
  bench.call(bench.app->resetAllSMCKeys());
  const HelperState left = bench.onDisk();
  EXPECT_EQ(left.sailingBand, 9);
  EXPECT_FALSE(left.lastWriteVerified);
  EXPECT_EQ(left.lastDischargeAbortReason, before.lastDischargeAbortReason);
  EXPECT_EQ(left.lastDischargeAbortAt, before.lastDischargeAbortAt);
  EXPECT_EQ(left.helperVersion, "2.0.0");
}

TEST(ResetTest, EndsASavedHeatPause) {
  Bench bench;
  HelperState record = savedLimit(50);
  record.heatPauseActive = true;
  bench.saveState(record);
  bench.charge(49);
  bench.boot();
  ASSERT_TRUE(bench.onDisk().heatPauseActive);
  bench.call(bench.app->resetAllSMCKeys());
  EXPECT_FALSE(bench.state().heatPauseActive);
  EXPECT_FALSE(bench.onDisk().heatPauseActive);
}

TEST(ResetTest, LeavesTheGraceTimerOfTheLastClientToRunOut) {
  Bench bench;
  bench.excuse(replyRule);  // The calls are the test's own.
  const auto core = HelperImpl::create(bench.world.startBareHelper());
  core->clientDidConnect();
  core->clientDidDisconnect();
  core->resetAllSMCKeys(ignored());
  bench.run(29.9);
  bench.mark();
  bench.run(0.2);
  EXPECT_THAT(bench.logs(),
              ElementsAre("default client gone — nothing to suspend (no active limit)"));
}

TEST(ResetTest, LogsEachFailureGoesOnAndSucceeds) {
  Bench bench("newer-keys-and-native");
  bench.boot();
  bench.mac().smc.key("CHTE")->writeResult = 134;
  bench.mac().smc.key("CHIE")->writeResult = 130;
  bench.mac().powerUI.setError = "not now";
  EXPECT_EQ(outcome(bench.call(bench.app->resetAllSMCKeys())), "ok");
  EXPECT_THAT(
      bench.logs(),
      ElementsAre(audit(bench, "resetAllSMCKeys"),
                  "error resetAll: CHTE failed — kSMCWriteKey failed (kIOReturn=0, smcResult=134)",
                  "error resetAll: CHIE failed — kSMCWriteKey failed (kIOReturn=0, smcResult=130)",
                  "error resetAll: native limit restore failed — PowerUI call failed: not now"));
}

TEST(ResetTest, NativeLimitGoesBackToNone) {
  Bench bench("native-only");
  bench.bootWithLimit(80);
  bench.charge(90);
  bench.run(5);
  bench.call(bench.app->resetAllSMCKeys());
  EXPECT_EQ(bench.mac().powerUI.currentLimit(), 0);
}

TEST(ResetTest, PendingTopOffLoopFindsItselfSuperseded) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.call(bench.app->resetAllSMCKeys());
  EXPECT_FALSE(bench.state().topUpActive);
  bench.mark();
  bench.run(5);
  EXPECT_THAT(bench.logs(), ElementsAre("default top-off restore loop superseded — bailing"));
  const auto before = bench.world.callCounts();
  bench.run(20);
  EXPECT_EQ((bench.world.callCounts() - before).text(), "");
}

TEST(ResetTest, LimitStaysInTheStateAndInTheFile) {
  Bench bench;
  bench.bootWithLimit(65);
  bench.call(bench.app->resetAllSMCKeys());
  EXPECT_EQ(bench.state().chargeLimit, 65);
  EXPECT_EQ(bench.onDisk().chargeLimit, 65);
}

TEST(ResetTest, SetsTheTimeOfTheLastWriteSoThatTheNextClientArmsAgain) {
  Bench bench;
  bench.charge(78);
  bench.boot();  // A fresh install: the record's date is the distant past, nothing is armed.
  bench.call(bench.app->resetAllSMCKeys());
  bench.mark();
  const auto second = bench.world.connectApp();
  second->await(second->ping());
  bench.world.runUntilIdle();
  EXPECT_THAT(bench.logs(), ElementsAre("default client connected (count=2)",
                                        "default client connect — arming polling loop at "
                                        "limit=80"));
}

TEST(ResetTest, MachineWithoutAnSmcSkipsEveryKeySilentlyAndSucceeds) {
  Bench bench("no-smc");
  bench.boot();
  EXPECT_EQ(outcome(bench.call(bench.app->resetAllSMCKeys())), "ok");
  EXPECT_THAT(bench.logs(), ElementsAre(audit(bench, "resetAllSMCKeys")));
}

TEST(ResetTest, SmcThatAppearsIsConnectedForTheFirstKey) {
  Bench bench;
  bench.mac().smc.servicePresent = false;
  bench.boot();
  bench.mac().smc.servicePresent = true;
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->resetAllSMCKeys())), "ok");
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHTE <- 00 00 00 00", "smc CHIE <- 00"));
  EXPECT_EQ(bench.logs("SMCWriter").front(),
            "default AppleSMC connection reopened after stale-handle recovery");
}

TEST(ResetTest, SmcThatGoesAwayFailsOneKeyAndSkipsTheRest) {
  // The first key's size is still remembered, so its write is tried; after that there is no
  // connection, and a key that cannot be asked for counts as absent.
  Bench bench;
  bench.boot();
  bench.mac().smc.servicePresent = false;
  bench.mac().smc.invalidateConnections();
  EXPECT_EQ(outcome(bench.call(bench.app->resetAllSMCKeys())), "ok");
  EXPECT_THAT(bench.logs(), ElementsAre(audit(bench, "resetAllSMCKeys"),
                                        "error resetAll: CHTE failed — kSMCWriteKey failed "
                                        "(kIOReturn=-536870208, smcResult=0)"));
  EXPECT_THAT(bench.since("smc"), IsEmpty());
}

TEST(ResetTest, LeavesToTheSystemWhatAFailedReleaseForgot) {
  Bench bench;
  bench.bootDischarging();
  ASSERT_EQ(bench.mac().power.assertions().size(), 2U);
  bench.mac().power.assertionReleaseRefusal = ioReturnError;
  bench.call(bench.app->forceDischarge(false));
  bench.mac().power.assertionReleaseRefusal.reset();
  EXPECT_EQ(outcome(bench.call(bench.app->resetAllSMCKeys())), "ok");
  EXPECT_EQ(bench.mac().power.assertions().size(), 2U)
      << "bookkeeping was dropped with the failed release; the system's time-out ends them";
}

}  // namespace
}  // namespace korvel::test
