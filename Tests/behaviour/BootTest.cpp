// A helper starts in a fixed order, from the record it finds, and cleans up after the last one.

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
  bench.startHelper();
}

constexpr const char* clearingKeys =
    "default crash-recovery: clearing stuck discharge keys from previous run";
constexpr const char* clearingSleep =
    "default crash-recovery: clearing SleepDisabled set by previous run";

using BootTest = OnBench;

TEST_F(BootTest, ComponentsStateProbeObserverInThisOrder) {
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

TEST_F(BootTest, StuckNewerDischargeKeyIsClearedAndTheRecordRewritten) {
  mac().smc.setValue("CHIE", {0x08});
  startOn(*this, crashed(true, false));
  EXPECT_THAT(since("smc disk"), ElementsAre("smc CHIE <- 00",
                                             "disk state.json replaced: forceDischargeActive=false "
                                             "helperVersion=2.0.0"));
  EXPECT_THAT(logs(), ElementsAre("default HelperImpl boot pid=501 limit=60", clearingKeys));
}

TEST_F(BootTest, StuckOlderDischargeKeysAreClearedInReverse) {
  Bench bench("older-pair");
  startOn(bench, crashed(true, false));
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0J <- 00", "smc CH0I <- 00"));
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
}

TEST_F(BootTest, WithoutDischargeKeysTheFlagIsClearedAllTheSame) {
  Bench bench("native-only");
  startOn(bench, crashed(true, false));
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
}

TEST_F(BootTest, WithoutAnSmcTheFlagIsClearedAllTheSame) {
  Bench bench("no-smc");
  startOn(bench, crashed(true, false));
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
}

TEST_F(BootTest, KeyThatCannotBeClearedIsTriedOnce) {
  mac().smc.key("CHIE")->writeResult = 134;
  startOn(*this, crashed(true, false));
  EXPECT_FALSE(onDisk().forceDischargeActive);
  world.killHelper();
  mark();
  startHelper();
  EXPECT_THAT(since("smc"), IsEmpty());
}

TEST_F(BootTest, OwnedSleepDisabledIsClearedOnce) {
  mac().power.setSleepDisabledExternally(true);
  startOn(*this, crashed(false, true));
  EXPECT_THAT(since("power disk"), ElementsAre("power SleepDisabled = 0",
                                               "disk state.json replaced: helperVersion=2.0.0 "
                                               "sleepDisabledByKorvel=false"));
  EXPECT_THAT(logs(), ElementsAre("default HelperImpl boot pid=501 limit=60", clearingSleep));
}

TEST_F(BootTest, SleepDisabledThatCannotBeClearedIsNotTriedAgain) {
  mac().power.setSleepDisabledExternally(true);
  mac().power.settingRefusal = ioReturnError;
  startOn(*this, crashed(false, true));
  EXPECT_TRUE(mac().power.sleepDisabled());
  EXPECT_FALSE(onDisk().sleepDisabledByKorvel);
}

TEST_F(BootTest, SleepDisabledOfSomebodyElseIsLeftAlone) {
  mac().power.setSleepDisabledExternally(true);
  startOn(*this, crashed(false, false));
  EXPECT_TRUE(mac().power.sleepDisabled());
}

TEST_F(BootTest, BothAreClearedDischargeFirst) {
  mac().power.setSleepDisabledExternally(true);
  startOn(*this, crashed(true, true));
  EXPECT_THAT(since("smc power"), ElementsAre("smc CHIE <- 00", "power SleepDisabled = 0"));
  EXPECT_THAT(logs(),
              ElementsAre("default HelperImpl boot pid=501 limit=60", clearingKeys, clearingSleep));
}

TEST_F(BootTest, TransientFieldsAreClearedAndTheOthersKept) {
  HelperState record = savedLimit(63);
  record.sailingBand = 11;
  record.heatPauseActive = true;
  record.lastWriteVerified = false;
  record.lastDischargeAbortReason = "some banner";
  record.lastDischargeAbortAt = Date{700000000};
  record.topUpActive = true;
  record.helperVersion = "1.0.0";
  startOn(*this, record);

  HelperState expected = savedLimit(63);
  expected.sailingBand = 11;
  expected.heatPauseActive = true;
  expected.lastWriteVerified = false;
  expected.helperVersion = "2.0.0";
  EXPECT_EQ(onDisk(), expected);
}

TEST_F(BootTest, RecordOfAnOlderHelperGetsTheRunningVersion) {
  HelperState record = savedLimit(60);
  record.helperVersion = "1.4.2";
  startOn(*this, record);
  EXPECT_EQ(onDisk().helperVersion, "2.0.0");
}

TEST_F(BootTest, BundleWithoutAVersionDropsTheRecordsVersion) {
  mac().bundleInformation.erase("CFBundleShortVersionString");
  HelperState record = savedLimit(60);
  record.helperVersion = "1.4.2";
  startOn(*this, record);
  EXPECT_FALSE(onDisk().helperVersion.has_value());
}

TEST_F(BootTest, NoStateFileStartsAtEightyAndWritesOne) {
  startHelper();
  EXPECT_EQ(logs().front(), "default HelperImpl boot pid=501 limit=80");
  HelperState expected;
  expected.helperVersion = "2.0.0";
  EXPECT_EQ(onDisk(), expected);
}

TEST_F(BootTest, CorruptStateFileStartsAtEightyAndIsReplaced) {
  mac().disk.writeFile("/Library/Application Support/com.korvel.app.helper/state.json",
                       "{\"chargeLimit\": 60", 0600);
  startHelper();
  EXPECT_EQ(logs().front(), "default HelperImpl boot pid=501 limit=80");
  ASSERT_EQ(logs("Persistence").size(), 1U);
  EXPECT_THAT(logs("Persistence").front(), ::testing::StartsWith("fault state.json corrupt"));
  EXPECT_EQ(onDisk().chargeLimit, 80);
}

TEST_F(BootTest, ChargingKeysAndNativeLimitStayAsTheyWere) {
  Bench bench("newer-keys-and-native");
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.mac().powerUI.setLimitByUser(80);
  startOn(bench, crashed(true, true));
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00");
  EXPECT_EQ(bench.mac().powerUI.currentLimit(), 80);
}

TEST_F(BootTest, NothingTicksAfterwards) {
  charge(95);
  startOn(*this, savedLimit(60));
  EXPECT_EQ(callsDuring(600).text(), "") << "a client has to come first";
}

TEST_F(BootTest, RecoveryComesBeforeTheFirstCommandOfAWaitingClient) {
  saveState(crashed(true, false));
  mark();
  world.startHelper();
  const auto early = world.connectApp();
  const AppCallRef set = early->setChargeLimit(70);
  world.runUntilIdle();
  ASSERT_TRUE(set->answered);
  const Lines lines = since("smc disk reply");
  ASSERT_GE(lines.size(), 3U);
  EXPECT_EQ(lines[0], "smc CHIE <- 00");
  EXPECT_THAT(lines[1], ::testing::HasSubstr("forceDischargeActive=false"));
  EXPECT_THAT(lines[2], ::testing::HasSubstr("chargeLimit=70"));
}

TEST_F(BootTest, RecordThatNeedsNoRecoveryIsWrittenAllTheSame) {
  HelperState record = savedLimit(60);
  record.helperVersion = "2.0.0";
  startOn(*this, record);
  EXPECT_THAT(since("disk"), ElementsAre("disk state.json replaced: no field differs"));
}

TEST_F(BootTest, StateAskedForBeforeTheRecoveryStillHasItsFlags) {
  excuse(replyRule);  // The calls are the test's own.
  saveState(crashed(true, true));
  const auto core = HelperImpl::create(world.startBareHelper());
  const auto ask = [&core] {
    std::string answer;
    core->getState(DataReply(std::make_unique<FunctionReplySink<std::string>>(
        [&answer](std::string data) { answer = std::move(data); })));
    return decodeStateReply(answer).value_or(HelperState());
  };
  EXPECT_TRUE(ask().forceDischargeActive);
  EXPECT_TRUE(ask().sleepDisabledByKorvel);
  world.runUntilIdle();
  EXPECT_FALSE(ask().forceDischargeActive);
  EXPECT_FALSE(ask().sleepDisabledByKorvel);
}

TEST_F(BootTest, RegistrationThatFailsLeavesAHelperWithoutSleepHandling) {
  mac().power.registrationFails = true;
  boot();
  charge(90);
  call(app->setChargeLimit(50));
  mark();
  sleepNow();
  EXPECT_TRUE(mac().power.isAsleep());
  EXPECT_THAT(since("log"), IsEmpty());
}

TEST_F(BootTest, DischargeThatStartedBeforeItsRecordWasWrittenIsNotRecovered) {
  bootWithLimit(50, 70);
  world.faults().killAtCall(0);
  world.faults().observe([this, armed = true](SeamCall call) mutable {
    // The first file call after the inhibit was written is the record's.
    if (armed && call == SeamCall::fileUmask && key("CHIE") == "08") {
      armed = false;
      world.faults().killAtCall(world.callCounts().total);
    }
  });
  app->forceDischarge(true);
  world.runUntilIdle();
  ASSERT_FALSE(world.helperRunning());
  ASSERT_EQ(key("CHIE"), "08");
  world.faults().observe({});
  startHelper();
  EXPECT_EQ(key("CHIE"), "08") << "the record never said that a discharge runs";
}

}  // namespace
}  // namespace korvel::test
