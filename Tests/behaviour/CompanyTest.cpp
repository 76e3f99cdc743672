// Clients that come and go at moments that matter: during a top-off, and strangers at any time.

#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

constexpr const char* arming = "default client connect — arming polling loop at limit=80";

std::unique_ptr<AppClient> connectAnother(Bench& bench, std::string_view identity = "app") {
  auto client = bench.world.connectApp(identity);
  bench.world.runUntilIdle();
  return client;
}

void startTopOff(Bench& bench) {
  bench.bootWithLimit(80);
  bench.charge(85);
  ASSERT_EQ(outcome(bench.call(bench.app->releaseLimitUntilFullThenRestore())), "ok");
  bench.mark();
}

TEST(CompanyTest, AClientThatConnectsDuringATopOffBringsTheLimitBackBesideIt) {
  Bench bench;
  startTopOff(bench);
  const auto second = connectAnother(bench);
  EXPECT_THAT(bench.logs(), ElementsAre("default client connected (count=2)", arming,
                                        "default charge enforcement pause:ok"));
  bench.run(600);
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00") << "the battery does not fill";
  EXPECT_TRUE(bench.state().topUpActive) << "and the top-off waits for it all the same";
  bench.mark();
  bench.run(7200);
  EXPECT_THAT(bench.logs(),
              ElementsAre("error top-off restore loop timed out without reaching 100% — restoring "
                          "limit"));
  EXPECT_FALSE(bench.state().topUpActive);
}

TEST(CompanyTest, TheLastClientThatComesBackDuringATopOffDoesTheSame) {
  Bench bench;
  startTopOff(bench);
  bench.app->disconnect();
  bench.run(1);
  const auto again = connectAnother(bench);
  EXPECT_THAT(bench.logs(), ElementsAre("default client disconnected (count=0)",
                                        "default client connected (count=1)", arming,
                                        "default charge enforcement pause:ok"));
}

TEST(CompanyTest, ATopOffThatIsAskedForAgainLeavesTheLimitBehind) {
  Bench bench;
  startTopOff(bench);
  const auto second = connectAnother(bench);
  ASSERT_EQ(bench.key("CHTE"), "01 00 00 00");
  EXPECT_EQ(outcome(bench.call(second->releaseLimitUntilFullThenRestore())), "ok");
  bench.run(600);
  EXPECT_EQ(bench.key("CHTE"), "00 00 00 00");
}

TEST(CompanyTest, ATopOffThatTheLastClientLeftGoesOnUntilTheBatteryIsFull) {
  Bench bench;
  startTopOff(bench);
  bench.app->disconnect();
  bench.run(3600);
  EXPECT_EQ(bench.logs().back(), "default client gone — nothing to suspend (no active limit)");
  EXPECT_TRUE(bench.onDisk().topUpActive);
  EXPECT_EQ(bench.key("CHTE"), "00 00 00 00");
}

TEST(CompanyTest, ATopOffThatEndsWithNobodyThereEnforcesTheLimitForNobody) {
  Bench bench;
  startTopOff(bench);
  bench.app->disconnect();
  bench.run(60);
  bench.charge(100);
  bench.mark();
  bench.run(3600);
  EXPECT_THAT(bench.logs(), ElementsAre("default top-off complete — restored limit 80",
                                        "default charge enforcement pause:ok"));
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00");
}

TEST(CompanyTest, ATopOffThatHasCompanyOfTheLimitEndsWithTheLastClient) {
  Bench bench;
  startTopOff(bench);
  bench.app->disconnect();
  auto again = connectAnother(bench);
  again->disconnect();
  bench.run(35);
  EXPECT_THAT(bench.logs(),
              ::testing::Contains("default top-off restore loop superseded — bailing"));
  EXPECT_FALSE(bench.onDisk().topUpActive);
  EXPECT_EQ(bench.key("CHTE"), "00 00 00 00");
}

TEST(CompanyTest, AClientThatConnectsAfterATopOffThatCouldNotStartBringsTheLimitBack) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.charge(85);
  bench.run(5);
  bench.mac().smc.key("CHTE")->writeResult = 134;
  ASSERT_EQ(bench.call(bench.app->releaseLimitUntilFullThenRestore()).errorCode(), 500);
  bench.mac().smc.key("CHTE")->writeResult.reset();
  bench.charge(60);
  bench.run(60);
  ASSERT_EQ(bench.key("CHTE"), "01 00 00 00") << "enforcement stays stopped";
  const auto second = connectAnother(bench);
  EXPECT_EQ(bench.key("CHTE"), "00 00 00 00");
}

// The requirement is asked at the first message, and a connection counts from its acceptance.
TEST(CompanyTest, APeerThatIsCutOffHasArmedTheSavedLimitForHalfAMinute) {
  Bench bench;
  bench.saveState(savedLimit(80));
  bench.charge(85);
  bench.world.startHelper();
  bench.world.runUntilIdle();
  bench.mark();
  const auto stranger = connectAnother(bench, "other-team");
  const AppCallRef refused = stranger->ping();
  bench.world.runUntilIdle();
  EXPECT_TRUE(refused->failed);
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00");
  bench.run(30);
  EXPECT_EQ(bench.key("CHTE"), "00 00 00 00");
  EXPECT_THAT(
      bench.logs(),
      ElementsAre("default client connected (count=1)", arming,
                  "default charge enforcement pause:ok", "default client disconnected (count=0)",
                  "default all clients gone — suspending enforcement, resuming normal "
                  "charging (saved limit=80 retained)"));
}

TEST(CompanyTest, APeerThatSaysNothingCountsAsLongAsItStays) {
  Bench bench;
  bench.saveState(savedLimit(80));
  bench.charge(85);
  bench.world.startHelper();
  bench.world.runUntilIdle();
  const auto stranger = connectAnother(bench, "unsigned");
  bench.run(3600);
  EXPECT_TRUE(stranger->connected());
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00") << "the saved limit is enforced for it";
}

}  // namespace
}  // namespace korvel::test
