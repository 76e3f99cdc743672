// A reset restores every charging key while the helper keeps running.

#include "HelperImpl.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"

namespace korvel::test {
namespace {

using ResetTest = OnBench;

TEST_F(ResetTest, WritesOnlyTheKeysThatThisMacHasAndSaysNothingOfTheOthers) {
  boot();
  EXPECT_EQ(ask(app->resetAllSMCKeys()), "ok");
  EXPECT_THAT(since("smc"), ElementsAre("smc CHTE <- 00 00 00 00", "smc CHIE <- 00"));
  EXPECT_THAT(logs(), ElementsAre(audit("resetAllSMCKeys")));
  EXPECT_THAT(logs("SMCWriter"), ElementsAre("default SMC write CHTE bytes=[0, 0, 0, 0]",
                                             "default SMC write CHIE bytes=[0]"));
}

TEST_F(ResetTest, WritesEveryKeyInItsOrderWhereAllAreThere) {
  Bench bench("both-families");
  bench.boot();
  bench.call(bench.app->resetAllSMCKeys());
  EXPECT_THAT(bench.since("smc"),
              ElementsAre("smc CHTE <- 00 00 00 00", "smc CH0B <- 00", "smc CH0C <- 00",
                          "smc CHIE <- 00", "smc CH0I <- 00", "smc CH0J <- 00"));
}

TEST_F(ResetTest, EndsADischargeAndDisarmsKeepAwakeAfterTheHardware) {
  bootArmedDischarge();
  run(1);
  mark();
  EXPECT_EQ(ask(app->resetAllSMCKeys()), "ok");
  EXPECT_THAT(since("smc power disk reply"),
              ElementsAre("smc CHTE <- 00 00 00 00", "smc CHIE <- 00", "power SleepDisabled = 0",
                          "disk state.json replaced: sleepDisabledByKorvel=false",
                          "power assertion 33001 released", "power assertion 33002 released",
                          "disk state.json replaced: forceDischargeActive=false "
                          "lastWriteAt=2026-01-01T00:00:01Z",
                          "reply resetAllSMCKeys ok"));
  EXPECT_FALSE(state().forceDischargeActive);
  EXPECT_FALSE(state().lastDischargeAbortReason.has_value());
  mark();
  run(60);
  EXPECT_THAT(since("smc disk log"), IsEmpty()) << "nothing runs afterwards";
}

TEST_F(ResetTest, DisarmsKeepAwakeOnlyAfterTheNativeLimit) {
  Bench bench("newer-keys-and-native");
  bench.boot();
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mark();
  bench.call(bench.app->resetAllSMCKeys());
  EXPECT_THAT(bench.since("smc power"),
              ElementsAre("smc CHTE <- 00 00 00 00", "smc CHIE <- 00",
                          "power native limit none (pid 501)", "power SleepDisabled = 0"));
}

TEST_F(ResetTest, KeepsBandVerificationAndBanner) {
  HelperState record = savedLimit(50);
  record.sailingBand = 9;
  saveState(record);
  mac().smc.key("CHTE")->silentlyRefuses = true;
  bootAt(70);
  call(app->forceDischarge(true));
  mac().lid.close();
  run(1);
  mac().lid.open();
  run(1);
  const HelperState before = state();
  ASSERT_TRUE(before.lastDischargeAbortReason.has_value());
  ASSERT_FALSE(before.lastWriteVerified);
  call(app->resetAllSMCKeys());
  const HelperState left = onDisk();
  EXPECT_EQ(left.sailingBand, 9);
  EXPECT_FALSE(left.lastWriteVerified);
  EXPECT_EQ(left.lastDischargeAbortReason, before.lastDischargeAbortReason);
  EXPECT_EQ(left.lastDischargeAbortAt, before.lastDischargeAbortAt);
  EXPECT_EQ(left.helperVersion, "2.0.0");
}

TEST_F(ResetTest, EndsASavedHeatPause) {
  bootHeatPaused();
  call(app->resetAllSMCKeys());
  EXPECT_FALSE(state().heatPauseActive);
  EXPECT_FALSE(onDisk().heatPauseActive);
}

TEST_F(ResetTest, LeavesTheGraceTimerOfTheLastClientToRunOut) {
  excuse(replyRule);  // The calls are the test's own.
  const auto core = HelperImpl::create(world.startBareHelper());
  core->clientDidConnect();
  core->clientDidDisconnect();
  core->resetAllSMCKeys(ignored());
  run(29.9);
  mark();
  run(0.2);
  EXPECT_THAT(logs(), ElementsAre("default client gone — nothing to suspend (no active limit)"));
}

TEST_F(ResetTest, LogsEachFailureGoesOnAndSucceeds) {
  Bench bench("newer-keys-and-native");
  bench.boot();
  bench.mac().smc.key("CHTE")->writeResult = 134;
  bench.mac().smc.key("CHIE")->writeResult = 130;
  bench.mac().powerUI.setError = "not now";
  EXPECT_EQ(bench.ask(bench.app->resetAllSMCKeys()), "ok");
  EXPECT_THAT(
      bench.logs(),
      ElementsAre(bench.audit("resetAllSMCKeys"),
                  "error resetAll: CHTE failed — kSMCWriteKey failed (kIOReturn=0, smcResult=134)",
                  "error resetAll: CHIE failed — kSMCWriteKey failed (kIOReturn=0, smcResult=130)",
                  "error resetAll: native limit restore failed — PowerUI call failed: not now"));
}

TEST_F(ResetTest, NativeLimitGoesBackToNone) {
  Bench bench("native-only");
  bench.bootWithLimit(80);
  bench.tickAt(90);
  bench.call(bench.app->resetAllSMCKeys());
  EXPECT_EQ(bench.mac().powerUI.currentLimit(), 0);
}

TEST_F(ResetTest, PendingTopOffLoopFindsItselfSuperseded) {
  bootToppingOff(80);
  call(app->resetAllSMCKeys());
  EXPECT_FALSE(state().topUpActive);
  mark();
  run(5);
  EXPECT_THAT(logs(), ElementsAre("default top-off restore loop superseded — bailing"));
  EXPECT_EQ(callsDuring(20).text(), "");
}

TEST_F(ResetTest, LimitStaysInTheStateAndInTheFile) {
  bootWithLimit(65);
  call(app->resetAllSMCKeys());
  EXPECT_EQ(state().chargeLimit, 65);
  EXPECT_EQ(onDisk().chargeLimit, 65);
}

TEST_F(ResetTest, SetsTheTimeOfTheLastWriteSoThatTheNextClientArmsAgain) {
  bootAt(78);  // A fresh install: the record's date is the distant past, nothing is armed.
  call(app->resetAllSMCKeys());
  mark();
  const auto second = connectAnother();
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=2)",
                                  "default client connect — arming polling loop at "
                                  "limit=80"));
}

TEST_F(ResetTest, MachineWithoutAnSmcSkipsEveryKeySilentlyAndSucceeds) {
  Bench bench("no-smc");
  bench.boot();
  EXPECT_EQ(bench.ask(bench.app->resetAllSMCKeys()), "ok");
  EXPECT_THAT(bench.logs(), ElementsAre(bench.audit("resetAllSMCKeys")));
}

TEST_F(ResetTest, SmcThatAppearsIsConnectedForTheFirstKey) {
  mac().smc.servicePresent = false;
  boot();
  mac().smc.servicePresent = true;
  mark();
  EXPECT_EQ(ask(app->resetAllSMCKeys()), "ok");
  EXPECT_THAT(since("smc"), ElementsAre("smc CHTE <- 00 00 00 00", "smc CHIE <- 00"));
  EXPECT_EQ(logs("SMCWriter").front(),
            "default AppleSMC connection reopened after stale-handle recovery");
}

TEST_F(ResetTest, SmcThatGoesAwayFailsOneKeyAndSkipsTheRest) {
  // The first key's size is still remembered, so its write is tried; after that there is no
  // connection, and a key that cannot be asked for counts as absent.
  boot();
  mac().smc.servicePresent = false;
  mac().smc.invalidateConnections();
  EXPECT_EQ(ask(app->resetAllSMCKeys()), "ok");
  EXPECT_THAT(logs(), ElementsAre(audit("resetAllSMCKeys"),
                                  "error resetAll: CHTE failed — kSMCWriteKey failed "
                                  "(kIOReturn=-536870208, smcResult=0)"));
  EXPECT_THAT(since("smc"), IsEmpty());
}

TEST_F(ResetTest, LeavesToTheSystemWhatAFailedReleaseForgot) {
  bootDischarging();
  ASSERT_EQ(mac().power.assertions().size(), 2U);
  mac().power.assertionReleaseRefusal = ioReturnError;
  call(app->forceDischarge(false));
  mac().power.assertionReleaseRefusal.reset();
  EXPECT_EQ(ask(app->resetAllSMCKeys()), "ok");
  EXPECT_EQ(mac().power.assertions().size(), 2U)
      << "bookkeeping was dropped with the failed release; the system's time-out ends them";
}

}  // namespace
}  // namespace korvel::test
