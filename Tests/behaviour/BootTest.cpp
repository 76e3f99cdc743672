// How a helper starts: in which order, from which record, and what it cleans up.

#include <algorithm>

#include "HelperImpl.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

HelperState crashed(bool discharging, bool keptAwake) {
  HelperState record = savedLimit(60);
  record.forceDischargeActive = discharging;
  record.sleepDisabledByKorvel = keptAwake;
  return record;
}

/// Starts a helper on a record, without a client.
void startOn(Bench& bench, const HelperState& record) {
  bench.saveState(record);
  bench.mark();
  bench.world.startHelper();
  bench.world.runUntilIdle();
}

constexpr const char* clearingKeys =
    "default crash-recovery: clearing stuck discharge keys from previous run";
constexpr const char* clearingSleep =
    "default crash-recovery: clearing SleepDisabled set by previous run";

TEST(BootTest, ComponentsStateProbeObserverInThisOrder) {
  Bench bench("newer-keys-and-native");
  std::vector<SeamCall> firsts;
  bench.world.faults().observe([&firsts](SeamCall call) {
    if (std::find(firsts.begin(), firsts.end(), call) == firsts.end()) firsts.push_back(call);
  });
  const auto core = HelperImpl::create(bench.world.startBareHelper());
  const auto place = [&firsts](SeamCall call) {
    return std::find(firsts.begin(), firsts.end(), call) - firsts.begin();
  };
  EXPECT_LT(place(SeamCall::smcOpen), place(SeamCall::runtimeDlopen));
  EXPECT_LT(place(SeamCall::runtimeDlopen), place(SeamCall::fileExists));
  EXPECT_LT(place(SeamCall::fileExists), place(SeamCall::smcCallStruct));
  EXPECT_LT(place(SeamCall::smcCallStruct), place(SeamCall::powerRegister));
  EXPECT_LT(place(SeamCall::powerRegister), static_cast<std::ptrdiff_t>(firsts.size()));
}

TEST(BootTest, StuckNewerDischargeKeyIsClearedAndTheRecordRewritten) {
  Bench bench;
  bench.mac().smc.setValue("CHIE", {0x08});
  startOn(bench, crashed(true, false));
  EXPECT_THAT(bench.since("smc disk"),
              ElementsAre("smc CHIE <- 00",
                          "disk state.json replaced: forceDischargeActive=false "
                          "helperVersion=2.0.0"));
  EXPECT_THAT(bench.logs(), ElementsAre("default HelperImpl boot pid=501 limit=60", clearingKeys));
}

TEST(BootTest, StuckOlderDischargeKeysAreClearedInReverse) {
  Bench bench("older-pair");
  startOn(bench, crashed(true, false));
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0J <- 00", "smc CH0I <- 00"));
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
}

TEST(BootTest, WithoutDischargeKeysTheFlagIsClearedAllTheSame) {
  Bench bench("native-only");
  startOn(bench, crashed(true, false));
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
}

TEST(BootTest, WithoutAnSmcTheFlagIsClearedAllTheSame) {
  Bench bench("no-smc");
  startOn(bench, crashed(true, false));
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
}

TEST(BootTest, KeyThatCannotBeClearedIsTriedOnce) {
  Bench bench;
  bench.mac().smc.key("CHIE")->writeResult = 134;
  startOn(bench, crashed(true, false));
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
  bench.world.killHelper();
  bench.mark();
  bench.world.startHelper();
  bench.world.runUntilIdle();
  EXPECT_THAT(bench.since("smc"), IsEmpty());
}

TEST(BootTest, OwnedSleepDisabledIsClearedOnce) {
  Bench bench;
  bench.mac().power.setSleepDisabledExternally(true);
  startOn(bench, crashed(false, true));
  EXPECT_THAT(bench.since("power disk"),
              ElementsAre("power SleepDisabled = 0",
                          "disk state.json replaced: helperVersion=2.0.0 "
                          "sleepDisabledByKorvel=false"));
  EXPECT_THAT(bench.logs(), ElementsAre("default HelperImpl boot pid=501 limit=60", clearingSleep));
}

TEST(BootTest, SleepDisabledThatCannotBeClearedIsNotTriedAgain) {
  Bench bench;
  bench.mac().power.setSleepDisabledExternally(true);
  bench.mac().power.settingRefusal = ioReturnError;
  startOn(bench, crashed(false, true));
  EXPECT_TRUE(bench.mac().power.sleepDisabled());
  EXPECT_FALSE(bench.onDisk().sleepDisabledByKorvel);
}

TEST(BootTest, SleepDisabledOfSomebodyElseIsLeftAlone) {
  Bench bench;
  bench.mac().power.setSleepDisabledExternally(true);
  startOn(bench, crashed(false, false));
  EXPECT_TRUE(bench.mac().power.sleepDisabled());
}

TEST(BootTest, BothAreClearedDischargeFirst) {
  Bench bench;
  bench.mac().power.setSleepDisabledExternally(true);
  startOn(bench, crashed(true, true));
  EXPECT_THAT(bench.since("smc power"), ElementsAre("smc CHIE <- 00", "power SleepDisabled = 0"));
  EXPECT_THAT(bench.logs(),
              ElementsAre("default HelperImpl boot pid=501 limit=60", clearingKeys, clearingSleep));
}

TEST(BootTest, TransientFieldsAreClearedAndTheOthersKept) {
  Bench bench;
  HelperState record = savedLimit(63);
  record.sailingBand = 11;
  record.heatPauseActive = true;
  record.lastWriteVerified = false;
  record.lastDischargeAbortReason = "some banner";
  record.lastDischargeAbortAt = Date{700000000};
  record.topUpActive = true;
  record.helperVersion = "1.0.0";
  startOn(bench, record);

  HelperState expected = savedLimit(63);
  expected.sailingBand = 11;
  expected.heatPauseActive = true;
  expected.lastWriteVerified = false;
  expected.helperVersion = "2.0.0";
  EXPECT_EQ(bench.onDisk(), expected);
}

TEST(BootTest, RecordOfAnOlderHelperGetsTheRunningVersion) {
  Bench bench;
  HelperState record = savedLimit(60);
  record.helperVersion = "1.4.2";
  startOn(bench, record);
  EXPECT_EQ(bench.onDisk().helperVersion, "2.0.0");
}

TEST(BootTest, BundleWithoutAVersionDropsTheRecordsVersion) {
  Bench bench;
  bench.mac().bundleInformation.erase("CFBundleShortVersionString");
  HelperState record = savedLimit(60);
  record.helperVersion = "1.4.2";
  startOn(bench, record);
  EXPECT_FALSE(bench.onDisk().helperVersion.has_value());
}

TEST(BootTest, NoStateFileStartsAtEightyAndWritesOne) {
  Bench bench;
  bench.world.startHelper();
  bench.world.runUntilIdle();
  EXPECT_EQ(bench.logs().front(), "default HelperImpl boot pid=501 limit=80");
  HelperState expected;
  expected.helperVersion = "2.0.0";
  EXPECT_EQ(bench.onDisk(), expected);
}

TEST(BootTest, CorruptStateFileStartsAtEightyAndIsReplaced) {
  Bench bench;
  bench.mac().disk.writeFile("/Library/Application Support/com.korvel.app.helper/state.json",
                             "{\"chargeLimit\": 60", 0600);
  bench.world.startHelper();
  bench.world.runUntilIdle();
  EXPECT_EQ(bench.logs().front(), "default HelperImpl boot pid=501 limit=80");
  ASSERT_EQ(bench.logs("Persistence").size(), 1U);
  EXPECT_THAT(bench.logs("Persistence").front(), ::testing::StartsWith("fault state.json corrupt"));
  EXPECT_EQ(bench.onDisk().chargeLimit, 80);
}

TEST(BootTest, ChargingKeysAndNativeLimitStayAsTheyWere) {
  Bench bench("newer-keys-and-native");
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.mac().powerUI.setLimitByUser(80);
  startOn(bench, crashed(true, true));
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00");
  EXPECT_EQ(bench.mac().powerUI.currentLimit(), 80);
}

TEST(BootTest, NothingTicksAfterwards) {
  Bench bench;
  bench.charge(95);
  startOn(bench, savedLimit(60));
  const auto before = bench.world.callCounts();
  bench.run(600);
  EXPECT_EQ((bench.world.callCounts() - before).text(), "") << "a client has to come first";
}

TEST(BootTest, RecoveryComesBeforeTheFirstCommandOfAWaitingClient) {
  Bench bench;
  bench.saveState(crashed(true, false));
  bench.mark();
  bench.world.startHelper();
  const auto early = bench.world.connectApp();
  const AppCallRef set = early->setChargeLimit(70);
  bench.world.runUntilIdle();
  ASSERT_TRUE(set->answered);
  const Lines lines = bench.since("smc disk reply");
  ASSERT_GE(lines.size(), 3U);
  EXPECT_EQ(lines[0], "smc CHIE <- 00");
  EXPECT_THAT(lines[1], ::testing::HasSubstr("forceDischargeActive=false"));
  EXPECT_THAT(lines[2], ::testing::HasSubstr("chargeLimit=70"));
}

TEST(BootTest, RecordThatNeedsNoRecoveryIsWrittenAllTheSame) {
  Bench bench;
  HelperState record = savedLimit(60);
  record.helperVersion = "2.0.0";
  startOn(bench, record);
  EXPECT_THAT(bench.since("disk"), ElementsAre("disk state.json replaced: no field differs"));
}

TEST(BootTest, StateAskedForBeforeTheRecoveryStillHasItsFlags) {
  Bench bench;
  bench.excuse(replyRule);  // The calls are the test's own.
  bench.saveState(crashed(true, true));
  const auto core = HelperImpl::create(bench.world.startBareHelper());
  const auto ask = [&core] {
    std::string answer;
    core->getState(DataReply(std::make_unique<FunctionReplySink<std::string>>(
        [&answer](std::string data) { answer = std::move(data); })));
    return decodeStateReply(answer).value_or(HelperState());
  };
  EXPECT_TRUE(ask().forceDischargeActive);
  EXPECT_TRUE(ask().sleepDisabledByKorvel);
  bench.world.runUntilIdle();
  EXPECT_FALSE(ask().forceDischargeActive);
  EXPECT_FALSE(ask().sleepDisabledByKorvel);
}

TEST(BootTest, RegistrationThatFailsLeavesAHelperWithoutSleepHandling) {
  Bench bench;
  bench.mac().power.registrationFails = true;
  bench.boot();
  bench.charge(90);
  bench.call(bench.app->setChargeLimit(50));
  bench.mark();
  bench.mac().power.requestSleep();
  bench.run(1);
  EXPECT_TRUE(bench.mac().power.isAsleep());
  EXPECT_THAT(bench.since("log"), IsEmpty());
}

TEST(BootTest, DischargeThatStartedBeforeItsRecordWasWrittenIsNotRecovered) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.world.faults().killAtCall(0);
  bench.world.faults().observe([&bench, armed = true](SeamCall call) mutable {
    // The first file call after the inhibit was written is the record's.
    if (armed && call == SeamCall::fileUmask && bench.key("CHIE") == "08") {
      armed = false;
      bench.world.faults().killAtCall(bench.world.callCounts().total);
    }
  });
  bench.app->forceDischarge(true);
  bench.world.runUntilIdle();
  ASSERT_FALSE(bench.world.helperRunning());
  ASSERT_EQ(bench.key("CHIE"), "08");
  bench.world.faults().observe({});
  bench.world.startHelper();
  bench.world.runUntilIdle();
  EXPECT_EQ(bench.key("CHIE"), "08") << "the record never said that a discharge runs";
}

}  // namespace
}  // namespace korvel::test
