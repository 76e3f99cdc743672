// These tests cover the read-only calls, the capability cache and the caller's identity.

#include "HelperImpl.h"
#include "HelperPersistence.h"
#include "Platform/Process.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"
#include "VirtualMac/Schedule/Lane.h"
#include "VirtualMac/Schedule/Observer.h"
#include "VirtualMac/Schedule/VirtualLock.h"

namespace korvel::test {
namespace {

using CoreObjectTest = OnBench;

TEST_F(CoreObjectTest, PingAnswersWithTheHelpersOwnPid) {
  boot();
  const AppCall& answered = call(app->ping());
  EXPECT_EQ(answered.pid, 501U);
  EXPECT_NE(answered.pid, static_cast<std::uint64_t>(app->pid()));
}

TEST_F(CoreObjectTest, FreshInstallReportsTheEmptyRecordWithTheRunningVersion) {
  boot();
  const AppCall& answered = call(app->getState());
  EXPECT_EQ(answered.data,
            "{\"chargeLimit\":80,\"sailingBand\":5,\"forceDischargeActive\":false,"
            "\"heatPauseActive\":false,\"lastWriteAt\":-63114076800,\"lastWriteVerified\":true,"
            "\"topUpActive\":false,\"sleepDisabledByKorvel\":false,\"helperVersion\":\"2.0.0\"}");
}

TEST_F(CoreObjectTest, BundleWithoutAVersionLeavesTheKeyOut) {
  mac().bundleInformation.erase("CFBundleShortVersionString");
  boot();
  EXPECT_FALSE(state().helperVersion.has_value());
  world.killHelper();
  mac().bundleInformation.insert_or_assign("CFBundleShortVersionString", PropertyValue(2));
  boot();
  EXPECT_FALSE(state().helperVersion.has_value()) << "a version that is not text";
}

TEST_F(CoreObjectTest, ReplyHasDatesAsNumbersAndTheFileHasThemAsText) {
  bootWithLimit(60);
  EXPECT_EQ(call(app->getState()).data,
            "{\"chargeLimit\":60,\"sailingBand\":5,\"forceDischargeActive\":false,"
            "\"heatPauseActive\":false,\"lastWriteAt\":788918400,\"lastWriteVerified\":true,"
            "\"topUpActive\":false,\"sleepDisabledByKorvel\":false,\"helperVersion\":\"2.0.0\"}")
      << "in the order of the fields, on one line";
  EXPECT_EQ(mac().disk.content(HelperPersistence::statePath),
            "{\n"
            "  \"chargeLimit\" : 60,\n"
            "  \"forceDischargeActive\" : false,\n"
            "  \"heatPauseActive\" : false,\n"
            "  \"helperVersion\" : \"2.0.0\",\n"
            "  \"lastWriteAt\" : \"2026-01-01T00:00:00Z\",\n"
            "  \"lastWriteVerified\" : true,\n"
            "  \"sailingBand\" : 5,\n"
            "  \"sleepDisabledByKorvel\" : false,\n"
            "  \"topUpActive\" : false\n"
            "}")
      << "sorted and indented";
}

TEST_F(CoreObjectTest, CapabilitiesTellTheFamiliesAndTheNativeLimit) {
  const std::vector<std::pair<std::string, HelperCapabilities>> expected = {
      {"newer-keys", {.tahoeCharging = true, .tahoeDischarge = true}},
      {"older-pair", {.preTahoeCharging = true, .preTahoeDischarge = true}},
      {"both-families", {.tahoeCharging = true, .tahoeDischarge = true}},
      {"mixed-families", {.tahoeCharging = true, .preTahoeDischarge = true}},
      {"discharge-only", {.tahoeDischarge = true}},
      {"native-only", {.nativeCharging = true}},
      {"newer-keys-and-native",
       {.tahoeCharging = true, .tahoeDischarge = true, .nativeCharging = true}},
      {"no-control", {}},
      {"no-smc", {}},
  };
  for (const auto& [profile, capabilities] : expected) {
    Bench bench(profile);
    bench.boot();
    EXPECT_EQ(bench.app->capabilityRecord(), capabilities) << profile;
  }
}

TEST_F(CoreObjectTest, NativeChargingIsFalseWithoutAnUsableBackend) {
  using Damage = void (*)(virtualmac::PowerUI&);
  const std::vector<std::pair<std::string, Damage>> damages = {
      {"no framework", [](virtualmac::PowerUI& ui) { ui.frameworkPresent = false; }},
      {"no class", [](virtualmac::PowerUI& ui) { ui.classPresent = false; }},
      {"unsupported", [](virtualmac::PowerUI& ui) { ui.supported = false; }},
  };
  for (const auto& [name, damage] : damages) {
    Bench bench("newer-keys-and-native");
    damage(bench.mac().powerUI);
    bench.boot();
    EXPECT_EQ(bench.call(bench.app->capabilities()).data,
              "{\"tahoeCharging\":true,\"preTahoeCharging\":false,\"tahoeDischarge\":true,"
              "\"preTahoeDischarge\":false,\"nativeCharging\":false}")
        << name;
  }
}

TEST_F(CoreObjectTest, CapabilitiesAreProbedOnceAndNeverAgain) {
  boot();
  mac().smc.removeKey("CHTE");
  const auto before = world.callCounts();
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(app->capabilityRecord()->tahoeCharging);
  }
  EXPECT_EQ((world.callCounts() - before)[SeamCall::smcCallStruct], 0U);
}

/// Lists the locks that are held while the SMC is called, one entry per call.
class LocksAroundTheSMC final : public virtualmac::ScheduleObserver {
 public:
  explicit LocksAroundTheSMC(Bench& watched) : world(watched.world) {
    world.observers().add(*this);
  }
  ~LocksAroundTheSMC() override { world.observers().remove(*this); }
  LocksAroundTheSMC(const LocksAroundTheSMC&) = delete;
  LocksAroundTheSMC& operator=(const LocksAroundTheSMC&) = delete;

  Lines held;
  void callMade(const virtualmac::Lane& lane, SeamCall call) override {
    if (call != SeamCall::smcCallStruct) return;
    std::string names = lane.name() + ":";
    for (const virtualmac::VirtualLock* lock : lane.locksHeld()) names += " " + lock->name();
    held.push_back(names);
  }

 private:
  World& world;
};

TEST_F(CoreObjectTest, CapabilitiesLockIsHeldAcrossTheWholeProbe) {
  // A second caller on the empty cache would wait for the first one's answer.
  const LocksAroundTheSMC locks(*this);
  const auto core = HelperImpl::create(world.startBareHelper());
  EXPECT_THAT(locks.held,
              ::testing::AllOf(::testing::SizeIs(5),
                               ::testing::Each("com.korvel.app.helper.smc: capabilitiesLock")));
}

TEST_F(CoreObjectTest, ReadOnlyCallsAnswerWhileTheHardwareHangs) {
  boot();
  world.faults().setLatency(SeamCall::smcCallStruct, 10);
  charge(90);
  app->setChargeLimit(80);
  run(1);
  const double askedAt = world.now();
  EXPECT_TRUE(app->await(app->ping()).answered);
  EXPECT_TRUE(app->await(app->getState()).answered);
  EXPECT_TRUE(app->await(app->capabilities()).answered);
  EXPECT_EQ(world.now(), askedAt) << "an answer waited for the hardware";
  const AppCallRef waits = app->cancelTopUp();
  run(5);
  EXPECT_FALSE(waits->over()) << "the queue was not blocked, so the above proves nothing";
  run(60);
  EXPECT_TRUE(waits->answered);
}

TEST_F(CoreObjectTest, StateIsTheOldOrTheNewRecordNeverAMix) {
  constexpr double start = 788918400;
  std::size_t seen = 0;
  for (std::uint64_t seed = 1; seed <= 25; ++seed) {
    WorldOptions options;
    options.profile = "newer-keys";
    options.seed = seed;
    options.scheduling = virtualmac::Scheduling::Seeded;
    World seeded(options);
    seeded.startHelper();
    const auto writer = seeded.connectApp();
    const auto reader = seeded.connectApp();
    writer->await(writer->ping());
    seeded.runUntilIdle();
    std::vector<AppCallRef> answers;
    for (std::uint8_t second = 1; second <= 10; ++second) {
      seeded.runFor(1);
      // Each second sets another limit, so the limit tells when it was set.
      writer->setChargeLimit(static_cast<std::uint8_t>(60 + second));
      for (int read = 0; read < 4; ++read) answers.push_back(reader->getState());
    }
    seeded.runFor(1);
    for (const AppCallRef& answer : answers) {
      const auto record = decodeStateReply(answer->data);
      ASSERT_TRUE(record.has_value());
      if (record->chargeLimit == 80) {
        EXPECT_EQ(record->lastWriteAt, Date::distantPast());
      } else {
        EXPECT_EQ(record->lastWriteAt.secondsSinceReference,
                  start + static_cast<double>(record->chargeLimit - 60));
        ++seen;
      }
    }
  }
  EXPECT_GT(seen, 500U);
}

/// Builds a core over code signing whose answers the test sets.
class CallerIdentityTest : public OnBench {
 protected:
  CallerIdentityTest() : platform(with(world.startBareHelper(), signing)) {
    signing.information =
        PropertyValue::Dictionary{{"identifier", PropertyValue("com.example.client")},
                                  {"teamid", PropertyValue("TEAM")},
                                  {"cdhash", PropertyValue(PropertyValue::Data{0x00, 0x0f, 0xab})}};
    excuse(replyRule);               // The test calls the core directly.
    excuse("no call under a lock");  // It assumes one probe per process; each core makes one.
  }
  void TearDown() override { EXPECT_EQ(signing.alive, 0) << "a code object leaked"; }

  /// Gives the audit line of a call that the test makes without a connection.
  std::string auditLine() {
    mark();
    const auto core = HelperImpl::create(platform);
    core->cancelTopUp(ignored());
    world.runUntilIdle();
    return logs().back();
  }

  ScriptedCodeSigning signing;
  Platform platform;
};

TEST_F(CallerIdentityTest, WithoutAConnectionThePidIsTheHelpersOwn) {
  EXPECT_EQ(auditLine(),
            "default cancelTopUp pid=501 signingID=com.example.client team=TEAM cdHash=000fab");
  EXPECT_THAT(signing.pidsSeen, ElementsAre(501));
  EXPECT_THAT(signing.flagsSeen, ElementsAre(2U));
}

TEST_F(CallerIdentityTest, EveryStepThatFailsLeavesAllThreeTextsEmpty) {
  const std::string unknown = "default cancelTopUp pid=501 signingID= team= cdHash=";
  signing.guestStatus = 100003;
  EXPECT_EQ(auditLine(), unknown);
  signing.guestStatus = 0;
  signing.givesNoGuest = true;
  EXPECT_EQ(auditLine(), unknown);
  signing.givesNoGuest = false;
  signing.staticStatus = -67061;
  EXPECT_EQ(auditLine(), unknown);
  signing.staticStatus = 0;
  signing.givesNoStatic = true;
  EXPECT_EQ(auditLine(), unknown);
  signing.givesNoStatic = false;
  signing.informationStatus = -67061;
  EXPECT_EQ(auditLine(), unknown);
  signing.informationStatus = 0;
  signing.information = PropertyValue();
  EXPECT_EQ(auditLine(), unknown);
}

TEST_F(CallerIdentityTest, EntriesOfAnotherTypeAreEmptyEachForItself) {
  signing.information = PropertyValue::Dictionary{{"identifier", PropertyValue(3)},
                                                  {"teamid", PropertyValue("TEAM")},
                                                  {"cdhash", PropertyValue("00ff")}};
  EXPECT_EQ(auditLine(), "default cancelTopUp pid=501 signingID= team=TEAM cdHash=");
}

TEST(CallerIdentityOfClientTest, HashIsEmptyBecauseTheSystemFilesItUnderOtherNames) {
  Bench bench;
  bench.boot();
  bench.call(bench.app->cancelTopUp());
  EXPECT_THAT(bench.logs(), ElementsAre("default cancelTopUp pid=901 signingID=com.korvel.app "
                                        "team=ABCDE12345 cdHash="));
}

TEST(CallerIdentityOfClientTest, ClientThatIsGoneIsStillServedWithEmptyTexts) {
  Bench bench;
  bench.boot();
  bench.mac().signatures.removePid(bench.app->pid());
  EXPECT_EQ(bench.ask(bench.app->cancelTopUp()), "ok");
  EXPECT_THAT(bench.logs(), ElementsAre("default cancelTopUp pid=901 signingID= team= cdHash="));
}

TEST_F(CoreObjectTest, WithoutAnSMCTheNativeLimitIsTheOnlyCapability) {
  Bench bench("newer-keys-and-native");
  bench.mac().smc.servicePresent = false;
  bench.boot();
  EXPECT_EQ(bench.app->capabilityRecord(), HelperCapabilities{.nativeCharging = true});
}

TEST_F(CoreObjectTest, AFileOfALaterHelperKeepsTheLimitWhateverItsOwnKeysHold) {
  for (const std::string value : {"1e999", R"("\ud800")", R"([{"chargeLimit":-1e400}])"}) {
    Bench bench;
    bench.charge(75);
    const std::string saved = encodeFile(savedLimit(70));
    bench.mac().disk.writeFile(HelperPersistence::statePath,
                               "{\"later\":" + value + "," + saved.substr(1));
    bench.boot();
    EXPECT_EQ(bench.state().chargeLimit, 70) << value;
    EXPECT_EQ(bench.key("CHTE"), "01 00 00 00") << value;
  }
}

}  // namespace
}  // namespace korvel::test
