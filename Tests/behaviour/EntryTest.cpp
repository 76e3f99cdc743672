// The process starts in a fixed order, ends on signals, and knows its own team.

#include <csignal>

#include "HelperEntry.h"
#include "HelperImpl.h"
#include "Platform/Process.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"
#include "Tests/behaviour/EntryDoubles.h"

namespace korvel::test {
namespace {

using EntryTest = OnBench;

TEST_F(EntryTest, FirstStartWritesTheseLinesInThisOrder) {
  startHelper();
  EXPECT_THAT(
      since("log disk"),
      ElementsAre(
          "log Boot default \"KorvelHelper starting pid=501 team=ABCDE12345\"",
          "log Persistence default \"state.json missing — first run or post-uninstall reinstall; "
          "continuing with empty defaults\"",
          "log HelperImpl default \"HelperImpl boot pid=501 limit=80\"",
          "log SMCWriter default \"capability probe: tahoeC=1 preTahoeC=0 (metaB=0 metaC=0) "
          "tahoeD=1 preTahoeD=0\"",
          ::testing::StartsWith("log SystemPower default \"system power observer registered"),
          ::testing::StartsWith("disk state.json created: chargeLimit=80")));
  EXPECT_TRUE(world.helperRunning());
}

TEST_F(EntryTest, CoreThenListenerThenSignalsThenTheMainLoop) {
  Platform& real = world.startBareHelper();
  RecordingHost host(real.dispatch, real.xpc);
  Platform platform = with(real, host);
  EXPECT_EQ(runHelper(platform), 0) << "a main loop that returns ends the entry with 0";
  EXPECT_THAT(host.steps, ElementsAre("source 6", "handler 6", "resume 6", "ignore 6",
                                      "listener com.korvel.app.helper", "delegate",
                                      "resume listener", "source 15", "handler 15", "resume 15",
                                      "ignore 15", "source 2", "handler 2", "resume 2", "ignore 2",
                                      "main loop", "drop 2", "drop 15", "drop 6"))
      << "each source is resumed before the default action is taken away";
}

TEST_F(EntryTest, QueuesHaveTheirPublishedLabels) {
  Platform& real = world.startBareHelper();
  RecordingHost host(real.dispatch, real.xpc);
  Platform platform = with(real, host);
  runHelper(platform);
  EXPECT_THAT(host.queues, ElementsAre("com.korvel.app.helper.smc", "com.korvel.app.helper.iopm"));
}

/// Sends the signal to an idle helper and expects it to log, restore and exit with 0.
void expectGracefulEnd(int signal, const std::string& name) {
  Bench bench;
  bench.boot();
  bench.world.sendSignal(signal);
  bench.run(0.5);
  EXPECT_EQ(bench.world.exitStatus(), 0);
  EXPECT_THAT(bench.since("log smc proc"),
              ElementsAre("proc signal " + std::to_string(signal) + " to helper 501",
                          "log Boot default \"" + name + " — shutting down gracefully\"",
                          "log HelperImpl default \"shutdownGracefully — restoring SMC before "
                          "exit\"",
                          "smc CHTE <- 00 00 00 00",
                          "log SMCWriter default \"SMC write CHTE bytes=[0, 0, 0, 0]\"",
                          "smc CHIE <- 00", "log SMCWriter default \"SMC write CHIE bytes=[0]\"",
                          "proc helper 501 exited 0"));
}

TEST_F(EntryTest, SigtermWhenIdleRestoresAndExitsWithZero) {
  expectGracefulEnd(SIGTERM, "SIGTERM");
}

TEST_F(EntryTest, SigintDoesTheSameUnderItsOwnName) { expectGracefulEnd(SIGINT, "SIGINT"); }

TEST_F(EntryTest, SecondSigtermDuringShutdownDoesNotKill) {
  boot();
  world.faults().setLatency(SeamCall::smcCallStruct, 1);
  world.sendSignal(SIGTERM);
  run(0.1);
  ASSERT_TRUE(world.helperRunning());
  world.sendSignal(SIGTERM);
  run(0.3);
  EXPECT_TRUE(world.helperRunning());
  run(0.2);
  EXPECT_EQ(world.exitStatus(), 0);
  EXPECT_THAT(logs("Boot"), ElementsAre("default SIGTERM — shutting down gracefully"));
}

TEST_F(EntryTest, OtherSignalsAreNotHandled) {
  boot();
  world.sendSignal(SIGHUP);
  world.runUntilIdle();
  EXPECT_FALSE(world.helperRunning());
  EXPECT_EQ(world.exitStatus(), std::nullopt);
}

TEST_F(EntryTest, HelperWithoutATeamStartsAndAcceptsNobody) {
  mac().signatures.setPath(*mac().bundleExecutablePath, "ad-hoc");
  startHelper();
  EXPECT_THAT(logs("Boot"), ElementsAre("default KorvelHelper starting pid=501 team="));
  mark();
  for (int attempt = 0; attempt < 2; ++attempt) {
    const auto client = world.connectApp();
    const AppCallRef ping = client->ping();
    world.runUntilIdle();
    EXPECT_TRUE(ping->failed);
  }
  EXPECT_THAT(
      since("log"),
      ElementsAre("log Listener fault \"Release build with unreadable Team ID — refusing XPC "
                  "connection\"",
                  "log Listener fault \"Release build with unreadable Team ID — refusing XPC "
                  "connection\""));
  EXPECT_TRUE(world.helperRunning());
}

TEST_F(EntryTest, AcceptableAppVersionIsPublished) {
  EXPECT_EQ(minimumAcceptableAppVersion, "2.0.0");
}

class TeamTest : public ::testing::Test {
 protected:
  TeamTest() : platform(with(bench.world.startBareHelper(), signing)) {
    signing.information = PropertyValue::Dictionary{{"teamid", PropertyValue("TEAM123456")}};
  }
  void TearDown() override { EXPECT_EQ(signing.alive, 0) << "a code object was not given back"; }

  Bench bench;
  ScriptedCodeSigning signing;
  Platform platform;
};

TEST_F(TeamTest, IsReadFromTheSigningInformationOfTheExecutable) {
  EXPECT_EQ(bundleTeamIdentifier(platform), "TEAM123456");
  EXPECT_THAT(signing.flagsSeen, ElementsAre(2U));
}

TEST_F(TeamTest, IsEmptyWithoutAnExecutablePath) {
  bench.mac().bundleExecutablePath.reset();
  EXPECT_EQ(bundleTeamIdentifier(platform), "");
  EXPECT_TRUE(signing.flagsSeen.empty());
}

TEST_F(TeamTest, IsEmptyWhenAnyStepFails) {
  signing.pathStatus = -67068;
  EXPECT_EQ(bundleTeamIdentifier(platform), "");
  signing.pathStatus = 0;
  signing.givesNoStatic = true;
  EXPECT_EQ(bundleTeamIdentifier(platform), "");
  signing.givesNoStatic = false;
  signing.informationStatus = -67061;
  EXPECT_EQ(bundleTeamIdentifier(platform), "");
}

TEST_F(TeamTest, IsEmptyWithoutADictionaryAKeyOrText) {
  for (const PropertyValue& information :
       {PropertyValue(), PropertyValue("text"), PropertyValue(PropertyValue::Dictionary{}),
        PropertyValue(PropertyValue::Dictionary{{"teamid", PropertyValue(7)}})}) {
    signing.information = information;
    EXPECT_EQ(bundleTeamIdentifier(platform), "");
  }
}

}  // namespace
}  // namespace korvel::test
