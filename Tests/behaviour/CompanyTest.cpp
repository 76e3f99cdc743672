// Clients come and go at critical moments: applications during a top-off, strangers at any time.

#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

constexpr const char* arming = "default client connect — arming polling loop at limit=80";

void startTopOff(Bench& bench) {
  bench.bootWithLimit(80, 85);
  ASSERT_EQ(bench.ask(bench.app->releaseLimitUntilFullThenRestore()), "ok");
  bench.mark();
}

using CompanyTest = OnBench;

TEST_F(CompanyTest, AClientThatConnectsDuringATopOffBringsTheLimitBackBesideIt) {
  startTopOff(*this);
  const auto second = connectAnother();
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=2)", arming,
                                  "default charge enforcement pause:ok"));
  run(600);
  EXPECT_EQ(key("CHTE"), "01 00 00 00") << "the battery does not fill";
  EXPECT_TRUE(state().topUpActive) << "and the top-off waits for it all the same";
  mark();
  run(7200);
  EXPECT_THAT(logs(),
              ElementsAre("error top-off restore loop timed out without reaching 100% — restoring "
                          "limit"));
  EXPECT_FALSE(state().topUpActive);
}

TEST_F(CompanyTest, TheLastClientThatComesBackDuringATopOffDoesTheSame) {
  startTopOff(*this);
  app->disconnect();
  run(1);
  const auto again = connectAnother();
  EXPECT_THAT(logs(), ElementsAre("default client disconnected (count=0)",
                                  "default client connected (count=1)", arming,
                                  "default charge enforcement pause:ok"));
}

TEST_F(CompanyTest, ATopOffThatIsAskedForAgainLeavesTheLimitBehind) {
  startTopOff(*this);
  const auto second = connectAnother();
  ASSERT_EQ(key("CHTE"), "01 00 00 00");
  EXPECT_EQ(ask(second->releaseLimitUntilFullThenRestore()), "ok");
  run(600);
  EXPECT_EQ(key("CHTE"), "00 00 00 00");
}

TEST_F(CompanyTest, ATopOffThatTheLastClientLeftGoesOnUntilTheBatteryIsFull) {
  startTopOff(*this);
  app->disconnect();
  run(3600);
  EXPECT_EQ(logs().back(), "default client gone — nothing to suspend (no active limit)");
  EXPECT_TRUE(onDisk().topUpActive);
  EXPECT_EQ(key("CHTE"), "00 00 00 00");
}

TEST_F(CompanyTest, ATopOffThatEndsWithNobodyThereEnforcesTheLimitForNobody) {
  startTopOff(*this);
  app->disconnect();
  run(60);
  charge(100);
  mark();
  run(3600);
  EXPECT_THAT(logs(), ElementsAre("default top-off complete — restored limit 80",
                                  "default charge enforcement pause:ok"));
  EXPECT_EQ(key("CHTE"), "01 00 00 00");
}

TEST_F(CompanyTest, ATopOffThatHasCompanyOfTheLimitEndsWithTheLastClient) {
  startTopOff(*this);
  app->disconnect();
  auto again = connectAnother();
  again->disconnect();
  run(35);
  EXPECT_THAT(logs(), ::testing::Contains("default top-off restore loop superseded — bailing"));
  EXPECT_FALSE(onDisk().topUpActive);
  EXPECT_EQ(key("CHTE"), "00 00 00 00");
}

TEST_F(CompanyTest, AClientThatConnectsAfterATopOffThatCouldNotStartBringsTheLimitBack) {
  bootWithLimit(80);
  tickAt(85);
  mac().smc.key("CHTE")->writeResult = 134;
  ASSERT_EQ(call(app->releaseLimitUntilFullThenRestore()).errorCode(), 500);
  mac().smc.key("CHTE")->writeResult.reset();
  charge(60);
  run(60);
  ASSERT_EQ(key("CHTE"), "01 00 00 00") << "enforcement stays stopped";
  const auto second = connectAnother();
  EXPECT_EQ(key("CHTE"), "00 00 00 00");
}

// The requirement is asked at the first message, and a connection counts from its acceptance.
TEST_F(CompanyTest, APeerThatIsCutOffHasArmedTheSavedLimitForHalfAMinute) {
  saveState(savedLimit(80));
  charge(85);
  startHelper();
  mark();
  const auto stranger = world.connectApp("other-team");
  world.runUntilIdle();
  const AppCallRef refused = stranger->ping();
  world.runUntilIdle();
  EXPECT_TRUE(refused->failed);
  EXPECT_EQ(key("CHTE"), "01 00 00 00");
  run(30);
  EXPECT_EQ(key("CHTE"), "00 00 00 00");
  EXPECT_THAT(
      logs(),
      ElementsAre("default client connected (count=1)", arming,
                  "default charge enforcement pause:ok", "default client disconnected (count=0)",
                  "default all clients gone — suspending enforcement, resuming normal "
                  "charging (saved limit=80 retained)"));
}

TEST_F(CompanyTest, APeerThatSaysNothingCountsAsLongAsItStays) {
  saveState(savedLimit(80));
  charge(85);
  startHelper();
  const auto stranger = world.connectApp("unsigned");
  world.runUntilIdle();
  run(3600);
  EXPECT_TRUE(stranger->connected());
  EXPECT_EQ(key("CHTE"), "01 00 00 00") << "the saved limit is enforced for it";
}

}  // namespace
}  // namespace korvel::test
