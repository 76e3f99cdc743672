// Arming and disarming keep-awake, and who owns the system's setting.

#include "DischargeDecision.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

std::string keepAwakeAudit(const Bench& bench, bool enabled) {
  return "default setClamshellKeepAwake(" + std::string(enabled ? "1" : "0") +
         ") pid=" + std::to_string(bench.app->pid()) + " signingID=com.korvel.app";
}

TEST(KeepAwakeTest, OwnershipIsOnDiskBeforeTheSettingIsWritten) {
  Bench bench;
  bench.boot();
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(true))), "ok");
  EXPECT_THAT(bench.since("disk power reply"),
              ElementsAre("disk state.json replaced: sleepDisabledByKorvel=true",
                          "power SleepDisabled = 1", "reply setClamshellKeepAwake ok"));
  EXPECT_THAT(bench.logs(),
              ElementsAre(keepAwakeAudit(bench, true), "default clamshell keep-awake ARMED"));
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(false))), "ok");
  EXPECT_THAT(bench.since("disk power reply"),
              ElementsAre("power SleepDisabled = 0",
                          "disk state.json replaced: sleepDisabledByKorvel=false",
                          "reply setClamshellKeepAwake ok"));
  EXPECT_THAT(bench.logs(),
              ElementsAre(keepAwakeAudit(bench, false), "default clamshell keep-awake DISARMED"));
}

TEST(KeepAwakeTest, SettingThatSomebodyElseMadeIsLeftAlone) {
  Bench bench;
  bench.boot();
  bench.mac().power.setSleepDisabledExternally(true);
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(true))), "ok");
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(false))), "ok");
  EXPECT_THAT(bench.since("disk power"), IsEmpty());
  EXPECT_TRUE(bench.mac().power.sleepDisabled());
  EXPECT_THAT(
      bench.logs(),
      ElementsAre(keepAwakeAudit(bench, true),
                  "default clamshell keep-awake ARMED (SleepDisabled already set externally — not "
                  "taking ownership)",
                  keepAwakeAudit(bench, false),
                  "default clamshell keep-awake DISARMED (SleepDisabled left as found — set "
                  "externally)"));
}

TEST(KeepAwakeTest, ArmingTwiceWritesAgainAndRestartsTheLidClock) {
  Bench bench;
  bench.mac().lid.connectDisplay();
  bench.bootArmedDischarge();
  bench.temperature(30);
  bench.mac().lid.close();
  bench.run(3500);
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(true))), "ok");
  EXPECT_THAT(bench.since("power"), ElementsAre("power SleepDisabled = 1"));
  bench.run(3500);
  EXPECT_TRUE(bench.state().forceDischargeActive);
  bench.run(110);
  EXPECT_FALSE(bench.state().forceDischargeActive);
}

TEST(KeepAwakeTest, ArmingTwiceUnderAnExternalSettingAlsoRestartsTheLidClock) {
  Bench bench;
  bench.mac().power.setSleepDisabledExternally(true);
  bench.bootArmedDischarge();
  bench.temperature(30);
  bench.mac().lid.close();
  bench.run(3500);
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.run(3500);
  EXPECT_TRUE(bench.state().forceDischargeActive);
}

TEST(KeepAwakeTest, DisarmUnderAClosedLidStopsTheDischarge) {
  Bench bench;
  bench.mac().lid.connectDisplay();
  bench.bootArmedDischarge();
  bench.mac().lid.close();
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(false))), "ok");
  EXPECT_THAT(
      bench.logs(),
      ElementsAre(keepAwakeAudit(bench, false), "default clamshell keep-awake DISARMED",
                  "default keep-awake disarmed under a closed lid — aborting active discharge",
                  "default force-discharge auto-stopped: reason=clamshellDisarmed"));
  EXPECT_EQ(bench.onDisk().lastDischargeAbortReason,
            std::string(bannerCopy(DischargeStopReason::clamshellDisarmed)));
}

TEST(KeepAwakeTest, DisarmUnderAnOpenLidLetsTheDischargeGoOn) {
  Bench bench;
  bench.bootArmedDischarge();
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(false))), "ok");
  EXPECT_THAT(bench.logs(),
              ElementsAre(keepAwakeAudit(bench, false), "default clamshell keep-awake DISARMED"));
  bench.run(60);
  EXPECT_TRUE(bench.state().forceDischargeActive);
}

TEST(KeepAwakeTest, DisarmWhenNotArmedRepliesYesAndTouchesNothing) {
  Bench bench;
  bench.boot();
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(false))), "ok");
  EXPECT_THAT(bench.since("disk power"), IsEmpty());
  EXPECT_THAT(bench.logs(), ElementsAre(keepAwakeAudit(bench, false)));
  EXPECT_THAT(bench.logs("ClamshellSleep"), IsEmpty());
}

TEST(KeepAwakeTest, DisarmWhenNotArmedTouchesNotEvenASettingThatTheRecordClaims) {
  // A disarm whose record could not take its place: the claim is back, keep-awake is not.
  Bench bench;
  bench.boot();
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mac().disk.replaceFails = true;
  bench.call(bench.app->setClamshellKeepAwake(false));
  bench.mac().disk.replaceFails = false;
  ASSERT_TRUE(bench.state().sleepDisabledByKorvel);
  bench.mac().power.setSleepDisabledExternally(true);
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(false))), "ok");
  EXPECT_THAT(bench.since("disk power"), IsEmpty());
  EXPECT_THAT(bench.logs(), ElementsAre(keepAwakeAudit(bench, false)));
  EXPECT_TRUE(bench.mac().power.sleepDisabled());
  EXPECT_TRUE(bench.state().sleepDisabledByKorvel);
}

/// The calls that tell the lid's state and that change the setting, in their order.
class LidAndSettingCalls {
 public:
  explicit LidAndSettingCalls(Bench& observed) : bench(observed) {
    bench.world.faults().observe([this](SeamCall call) {
      if (call == SeamCall::registryCreateProperty) seen.emplace_back("lid read");
      if (call == SeamCall::settingsSet) seen.emplace_back("setting written");
    });
  }
  ~LidAndSettingCalls() { bench.world.faults().observe({}); }
  LidAndSettingCalls(const LidAndSettingCalls&) = delete;
  LidAndSettingCalls& operator=(const LidAndSettingCalls&) = delete;

  Lines seen;

 private:
  Bench& bench;
};

TEST(KeepAwakeTest, DuringADischargeTheLidIsReadBeforeTheSettingIsGivenBack) {
  Bench bench;
  bench.bootArmedDischarge();
  const LidAndSettingCalls calls(bench);
  bench.call(bench.app->setClamshellKeepAwake(false));
  EXPECT_THAT(calls.seen, ElementsAre("lid read", "setting written"));
}

TEST(KeepAwakeTest, DisarmWithoutADischargeDoesNotAskForTheLid) {
  Bench bench;
  bench.boot();
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mac().lid.connectDisplay();
  bench.mac().lid.close();
  bench.mark();
  const LidAndSettingCalls calls(bench);
  bench.call(bench.app->setClamshellKeepAwake(false));
  EXPECT_THAT(calls.seen, ElementsAre("setting written"));
  EXPECT_THAT(bench.logs(),
              ElementsAre(keepAwakeAudit(bench, false), "default clamshell keep-awake DISARMED"));
}

TEST(KeepAwakeTest, DisarmWhenNotArmedUnderAClosedLidStillStopsAnActiveDischarge) {
  Bench bench;
  bench.mac().lid.connectDisplay();
  bench.bootDischarging();
  bench.mac().lid.close();
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(false))), "ok");
  EXPECT_EQ(bench.logs().back(), "default force-discharge auto-stopped: reason=clamshellDisarmed");
}

TEST(KeepAwakeTest, FailedWriteRollsEverythingBackAndIsError501) {
  Bench bench;
  bench.boot();
  bench.mac().power.settingRefusal = ioReturnNotPrivileged;
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(true))),
            "failed 501 Could not keep the Mac awake for clamshell discharge (SleepDisabled write "
            "failed).");
  EXPECT_THAT(bench.since("disk"),
              ElementsAre("disk state.json replaced: sleepDisabledByKorvel=true",
                          "disk state.json replaced: sleepDisabledByKorvel=false"));
  EXPECT_EQ(bench.app->calls().back()->error->userInfo.size(), 1U) << "only the description";
  bench.mac().power.settingRefusal.reset();
  bench.mark();
  bench.call(bench.app->setClamshellKeepAwake(false));
  EXPECT_THAT(bench.logs(), ElementsAre(keepAwakeAudit(bench, false))) << "it was not armed";
}

TEST(KeepAwakeTest, FailedWriteWhenArmedAlreadyDropsOwnershipOfASettingThatIsOn) {
  Bench bench;
  bench.boot();
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mac().power.settingRefusal = ioReturnError;
  EXPECT_EQ(bench.call(bench.app->setClamshellKeepAwake(true)).errorCode(), 501);
  EXPECT_TRUE(bench.mac().power.sleepDisabled());
  EXPECT_FALSE(bench.onDisk().sleepDisabledByKorvel);
  bench.mark();
  bench.call(bench.app->setClamshellKeepAwake(false));
  EXPECT_THAT(bench.logs(), ElementsAre(keepAwakeAudit(bench, false))) << "no longer armed";
}

TEST(KeepAwakeTest, FailedClearOnDisarmStillDropsTheOwnership) {
  Bench bench;
  bench.boot();
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mac().power.settingRefusal = ioReturnError;
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(false))), "ok");
  EXPECT_TRUE(bench.mac().power.sleepDisabled());
  EXPECT_FALSE(bench.onDisk().sleepDisabledByKorvel);
  EXPECT_EQ(bench.logs().back(), "default clamshell keep-awake DISARMED");
  EXPECT_EQ(bench.logs("ClamshellSleep").size(), 1U);
}

TEST(KeepAwakeTest, SettingThatIsOnAndOurOwnIsTakenOver) {
  Bench bench;
  bench.boot();
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mark();
  bench.call(bench.app->setClamshellKeepAwake(true));
  EXPECT_THAT(bench.since("power"), ElementsAre("power SleepDisabled = 1"));
  EXPECT_EQ(bench.logs().back(), "default clamshell keep-awake ARMED");
}

TEST(KeepAwakeTest, AuditLineCarriesNeitherTeamNorHash) {
  Bench bench;
  bench.boot();
  bench.call(bench.app->setClamshellKeepAwake(true));
  EXPECT_EQ(bench.logs().front(), keepAwakeAudit(bench, true));
}

TEST(KeepAwakeTest, SettingThatSomebodyElseGaveUpBecomesOursWhenArmedAgain) {
  Bench bench;
  bench.mac().power.setSleepDisabledExternally(true);
  bench.boot();
  ASSERT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(true))), "ok");
  ASSERT_FALSE(bench.state().sleepDisabledByKorvel);
  bench.mac().power.setSleepDisabledExternally(false);
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(true))), "ok");
  EXPECT_THAT(bench.since("disk power"),
              ElementsAre("disk state.json replaced: sleepDisabledByKorvel=true",
                          "power SleepDisabled = 1"));
  EXPECT_EQ(outcome(bench.call(bench.app->setClamshellKeepAwake(false))), "ok");
  EXPECT_FALSE(bench.mac().power.sleepDisabled());
}

}  // namespace
}  // namespace korvel::test
