// Keep-awake is armed and disarmed, and the system's setting has an owner.

#include "DischargeDecision.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

std::string keepAwakeAudit(const Bench& bench, bool enabled) {
  return "default setClamshellKeepAwake(" + std::string(enabled ? "1" : "0") +
         ") pid=" + std::to_string(bench.app->pid()) + " signingID=com.korvel.app";
}

using KeepAwakeTest = OnBench;

TEST_F(KeepAwakeTest, OwnershipIsOnDiskBeforeTheSettingIsWritten) {
  boot();
  EXPECT_EQ(ask(app->setClamshellKeepAwake(true)), "ok");
  EXPECT_THAT(since("disk power reply"),
              ElementsAre("disk state.json replaced: sleepDisabledByKorvel=true",
                          "power SleepDisabled = 1", "reply setClamshellKeepAwake ok"));
  EXPECT_THAT(logs(),
              ElementsAre(keepAwakeAudit(*this, true), "default clamshell keep-awake ARMED"));
  mark();
  EXPECT_EQ(ask(app->setClamshellKeepAwake(false)), "ok");
  EXPECT_THAT(since("disk power reply"),
              ElementsAre("power SleepDisabled = 0",
                          "disk state.json replaced: sleepDisabledByKorvel=false",
                          "reply setClamshellKeepAwake ok"));
  EXPECT_THAT(logs(),
              ElementsAre(keepAwakeAudit(*this, false), "default clamshell keep-awake DISARMED"));
}

TEST_F(KeepAwakeTest, SettingThatSomebodyElseMadeIsLeftAlone) {
  boot();
  mac().power.setSleepDisabledExternally(true);
  mark();
  EXPECT_EQ(ask(app->setClamshellKeepAwake(true)), "ok");
  EXPECT_EQ(ask(app->setClamshellKeepAwake(false)), "ok");
  EXPECT_THAT(since("disk power"), IsEmpty());
  EXPECT_TRUE(mac().power.sleepDisabled());
  EXPECT_THAT(
      logs(),
      ElementsAre(keepAwakeAudit(*this, true),
                  "default clamshell keep-awake ARMED (SleepDisabled already set externally — not "
                  "taking ownership)",
                  keepAwakeAudit(*this, false),
                  "default clamshell keep-awake DISARMED (SleepDisabled left as found — set "
                  "externally)"));
}

TEST_F(KeepAwakeTest, ArmingTwiceWritesAgainAndRestartsTheLidClock) {
  bootDockedDischarge();
  temperature(30);
  mac().lid.close();
  run(3500);
  mark();
  EXPECT_EQ(ask(app->setClamshellKeepAwake(true)), "ok");
  EXPECT_THAT(since("power"), ElementsAre("power SleepDisabled = 1"));
  run(3500);
  EXPECT_TRUE(state().forceDischargeActive);
  run(110);
  EXPECT_FALSE(state().forceDischargeActive);
}

TEST_F(KeepAwakeTest, ArmingTwiceUnderAnExternalSettingAlsoRestartsTheLidClock) {
  mac().power.setSleepDisabledExternally(true);
  bootArmedDischarge();
  temperature(30);
  mac().lid.close();
  run(3500);
  call(app->setClamshellKeepAwake(true));
  run(3500);
  EXPECT_TRUE(state().forceDischargeActive);
}

TEST_F(KeepAwakeTest, DisarmUnderAClosedLidStopsTheDischarge) {
  bootDockedDischarge();
  mac().lid.close();
  EXPECT_EQ(ask(app->setClamshellKeepAwake(false)), "ok");
  EXPECT_THAT(
      logs(),
      ElementsAre(keepAwakeAudit(*this, false), "default clamshell keep-awake DISARMED",
                  "default keep-awake disarmed under a closed lid — aborting active discharge",
                  "default force-discharge auto-stopped: reason=clamshellDisarmed"));
  EXPECT_EQ(onDisk().lastDischargeAbortReason, bannerCopy(DischargeStopReason::clamshellDisarmed));
}

TEST_F(KeepAwakeTest, DisarmUnderAnOpenLidLetsTheDischargeGoOn) {
  bootArmedDischarge();
  EXPECT_EQ(ask(app->setClamshellKeepAwake(false)), "ok");
  EXPECT_THAT(logs(),
              ElementsAre(keepAwakeAudit(*this, false), "default clamshell keep-awake DISARMED"));
  run(60);
  EXPECT_TRUE(state().forceDischargeActive);
}

TEST_F(KeepAwakeTest, DisarmWhenNotArmedRepliesYesAndTouchesNothing) {
  boot();
  EXPECT_EQ(ask(app->setClamshellKeepAwake(false)), "ok");
  EXPECT_THAT(since("disk power"), IsEmpty());
  EXPECT_THAT(logs(), ElementsAre(keepAwakeAudit(*this, false)));
  EXPECT_THAT(logs("ClamshellSleep"), IsEmpty());
}

TEST_F(KeepAwakeTest, DisarmWhenNotArmedTouchesNotEvenASettingThatTheRecordClaims) {
  // A disarm whose record could not take its place: the claim is back, keep-awake is not.
  boot();
  call(app->setClamshellKeepAwake(true));
  mac().disk.replaceFails = true;
  call(app->setClamshellKeepAwake(false));
  mac().disk.replaceFails = false;
  ASSERT_TRUE(state().sleepDisabledByKorvel);
  mac().power.setSleepDisabledExternally(true);
  mark();
  EXPECT_EQ(ask(app->setClamshellKeepAwake(false)), "ok");
  EXPECT_THAT(since("disk power"), IsEmpty());
  EXPECT_THAT(logs(), ElementsAre(keepAwakeAudit(*this, false)));
  EXPECT_TRUE(mac().power.sleepDisabled());
  EXPECT_TRUE(state().sleepDisabledByKorvel);
}

/// Records the order in which the lid is read and the setting is written.
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

TEST_F(KeepAwakeTest, DuringADischargeTheLidIsReadBeforeTheSettingIsGivenBack) {
  bootArmedDischarge();
  const LidAndSettingCalls calls(*this);
  call(app->setClamshellKeepAwake(false));
  EXPECT_THAT(calls.seen, ElementsAre("lid read", "setting written"));
}

TEST_F(KeepAwakeTest, DisarmWithoutADischargeDoesNotAskForTheLid) {
  boot();
  call(app->setClamshellKeepAwake(true));
  mac().lid.connectDisplay();
  mac().lid.close();
  mark();
  const LidAndSettingCalls calls(*this);
  call(app->setClamshellKeepAwake(false));
  EXPECT_THAT(calls.seen, ElementsAre("setting written"));
  EXPECT_THAT(logs(),
              ElementsAre(keepAwakeAudit(*this, false), "default clamshell keep-awake DISARMED"));
}

TEST_F(KeepAwakeTest, DisarmWhenNotArmedUnderAClosedLidStillStopsAnActiveDischarge) {
  mac().lid.connectDisplay();
  bootDischarging();
  mac().lid.close();
  EXPECT_EQ(ask(app->setClamshellKeepAwake(false)), "ok");
  EXPECT_EQ(logs().back(), "default force-discharge auto-stopped: reason=clamshellDisarmed");
}

TEST_F(KeepAwakeTest, FailedWriteRollsEverythingBackAndIsError501) {
  boot();
  mac().power.settingRefusal = ioReturnNotPrivileged;
  EXPECT_EQ(ask(app->setClamshellKeepAwake(true)),
            "failed 501 Could not keep the Mac awake for clamshell discharge (SleepDisabled write "
            "failed).");
  EXPECT_THAT(since("disk"), ElementsAre("disk state.json replaced: sleepDisabledByKorvel=true",
                                         "disk state.json replaced: sleepDisabledByKorvel=false"));
  EXPECT_EQ(app->calls().back()->error->userInfo.size(), 1U) << "only the description";
  mac().power.settingRefusal.reset();
  mark();
  call(app->setClamshellKeepAwake(false));
  EXPECT_THAT(logs(), ElementsAre(keepAwakeAudit(*this, false))) << "it was not armed";
}

TEST_F(KeepAwakeTest, FailedWriteWhenArmedAlreadyDropsOwnershipOfASettingThatIsOn) {
  boot();
  call(app->setClamshellKeepAwake(true));
  mac().power.settingRefusal = ioReturnError;
  EXPECT_EQ(call(app->setClamshellKeepAwake(true)).errorCode(), 501);
  EXPECT_TRUE(mac().power.sleepDisabled());
  EXPECT_FALSE(onDisk().sleepDisabledByKorvel);
  mark();
  call(app->setClamshellKeepAwake(false));
  EXPECT_THAT(logs(), ElementsAre(keepAwakeAudit(*this, false))) << "no longer armed";
}

TEST_F(KeepAwakeTest, FailedClearOnDisarmStillDropsTheOwnership) {
  boot();
  call(app->setClamshellKeepAwake(true));
  mac().power.settingRefusal = ioReturnError;
  mark();
  EXPECT_EQ(ask(app->setClamshellKeepAwake(false)), "ok");
  EXPECT_TRUE(mac().power.sleepDisabled());
  EXPECT_FALSE(onDisk().sleepDisabledByKorvel);
  EXPECT_EQ(logs().back(), "default clamshell keep-awake DISARMED");
  EXPECT_EQ(logs("ClamshellSleep").size(), 1U);
}

TEST_F(KeepAwakeTest, SettingThatIsOnAndOurOwnIsTakenOver) {
  boot();
  call(app->setClamshellKeepAwake(true));
  mark();
  call(app->setClamshellKeepAwake(true));
  EXPECT_THAT(since("power"), ElementsAre("power SleepDisabled = 1"));
  EXPECT_EQ(logs().back(), "default clamshell keep-awake ARMED");
}

TEST_F(KeepAwakeTest, AuditLineCarriesNeitherTeamNorHash) {
  boot();
  call(app->setClamshellKeepAwake(true));
  EXPECT_EQ(logs().front(), keepAwakeAudit(*this, true));
}

TEST_F(KeepAwakeTest, SettingThatSomebodyElseGaveUpBecomesOursWhenArmedAgain) {
  mac().power.setSleepDisabledExternally(true);
  boot();
  ASSERT_EQ(ask(app->setClamshellKeepAwake(true)), "ok");
  ASSERT_FALSE(state().sleepDisabledByKorvel);
  mac().power.setSleepDisabledExternally(false);
  mark();
  EXPECT_EQ(ask(app->setClamshellKeepAwake(true)), "ok");
  EXPECT_THAT(since("disk power"),
              ElementsAre("disk state.json replaced: sleepDisabledByKorvel=true",
                          "power SleepDisabled = 1"));
  EXPECT_EQ(ask(app->setClamshellKeepAwake(false)), "ok");
  EXPECT_FALSE(mac().power.sleepDisabled());
}

}  // namespace
}  // namespace korvel::test
