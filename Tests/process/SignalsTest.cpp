#include <gtest/gtest.h>

#include <csignal>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

namespace {

/// The helper's own bound is half a second; the rest allows for a busy computer.
constexpr double endBound = 2.0;

/// A machine on which the helper has paused charging, with the client that asked for it.
class Holding {
 public:
  Holding() : journal(mac.follow()), client(mac) {
    mac.tell({"set", "battery", "70"});
    EXPECT_TRUE(succeeded(client.setChargeLimit(50)));
    EXPECT_TRUE(mac.becomes([](const auto& status) { return status.at("chargingInhibited"); }));
  }

  [[nodiscard]] pid_t helper() const { return mac.helper().value_or(0); }
  /// Returns the real seconds until the helper exited with status 0; none: it did not.
  std::optional<double> secondsToExit(pid_t pid, double begun) {
    if (!journal.waitFor("helper " + std::to_string(pid) + " exited 0", endBound + 10))
      return std::nullopt;
    return clockNow() - begun;
  }

  Mac mac;
  JournalFollower journal;
  RawClient client;
};

struct Signal {
  const char* name;
  int number;
  const char* line;
};

class SignalsTest : public testing::TestWithParam<Signal> {};

}  // namespace

TEST_P(SignalsTest, EndsWithStatusZeroAndChargingRestored) {
  Holding scene;
  const pid_t pid = scene.helper();
  const double begun = clockNow();
  ASSERT_EQ(::kill(pid, GetParam().number), 0);
  const auto seconds = scene.secondsToExit(pid, begun);
  ASSERT_TRUE(seconds);
  EXPECT_LT(*seconds, endBound);
  EXPECT_EQ(scene.mac.journalCount(GetParam().line), 1U);
  EXPECT_EQ(scene.mac.journalCount("shutdownGracefully — restoring SMC before exit"), 1U);
  EXPECT_EQ(scene.mac.status().at("chargingInhibited"), false);
  EXPECT_EQ(scene.mac.state().at("chargeLimit"), 50);
  EXPECT_TRUE(scene.client.isCutOff());
}

// Hanging hardware blocks the helper's queue. The helper still ends after half a second, and leaves
// the hardware as it was.
TEST_P(SignalsTest, EndsInTimeWhenTheHardwareHangs) {
  Holding scene;
  const pid_t pid = scene.helper();
  scene.mac.tell({"fault", "smc-latency", "100000", "on"});
  EXPECT_TRUE(succeeded(scene.client.setChargeLimit(60)));  // Its first tick hangs.
  pauseFor(0.2);
  const double begun = clockNow();
  ASSERT_EQ(::kill(pid, GetParam().number), 0);
  const auto seconds = scene.secondsToExit(pid, begun);
  ASSERT_TRUE(seconds);
  EXPECT_GE(*seconds, 0.45);
  EXPECT_LT(*seconds, endBound);
  EXPECT_EQ(scene.mac.status().at("chargingInhibited"), true);
}

TEST_P(SignalsTest, ASecondSignalDuringTheEndChangesNothing) {
  Holding scene;
  const pid_t pid = scene.helper();
  scene.mac.tell({"fault", "smc-latency", "100000", "on"});
  EXPECT_TRUE(succeeded(scene.client.setChargeLimit(60)));
  pauseFor(0.2);
  const double begun = clockNow();
  ASSERT_EQ(::kill(pid, GetParam().number), 0);
  pauseFor(0.1);
  for (const int again : {SIGTERM, SIGINT, SIGABRT}) ASSERT_EQ(::kill(pid, again), 0);
  const auto seconds = scene.secondsToExit(pid, begun);
  ASSERT_TRUE(seconds);
  EXPECT_GE(*seconds, 0.45);
  EXPECT_EQ(scene.mac.journalCount("shutdownGracefully — restoring SMC before exit"), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    , SignalsTest,
    testing::Values(Signal{"Term", SIGTERM, "Boot default \"SIGTERM — shutting down gracefully\""},
                    Signal{"Int", SIGINT, "Boot default \"SIGINT — shutting down gracefully\""},
                    Signal{"Abrt", SIGABRT,
                           "Boot fault \"SIGABRT — running shutdownGracefully before exit\""}),
    [](const testing::TestParamInfo<Signal>& tested) { return tested.param.name; });

TEST(QuitTest, EndsWithStatusZeroAndTheClientSeesItsConnectionEnd) {
  Holding scene;
  const pid_t pid = scene.helper();
  const double begun = clockNow();
  scene.client.send(callBody(0, "quit").frame());
  const auto seconds = scene.secondsToExit(pid, begun);
  ASSERT_TRUE(seconds);
  EXPECT_LT(*seconds, endBound);
  EXPECT_FALSE(scene.client.receive(1)) << "quit has no reply";
  EXPECT_EQ(scene.mac.journalCount("quit() received pid=" + std::to_string(pid)), 1U);
  EXPECT_EQ(scene.mac.status().at("chargingInhibited"), false);
}

TEST(QuitTest, EndsInTimeWhenTheHardwareHangs) {
  Holding scene;
  const pid_t pid = scene.helper();
  scene.mac.tell({"fault", "smc-latency", "100000", "on"});
  EXPECT_TRUE(succeeded(scene.client.setChargeLimit(60)));
  pauseFor(0.2);
  const double begun = clockNow();
  scene.client.send(callBody(0, "quit").frame());
  const auto seconds = scene.secondsToExit(pid, begun);
  ASSERT_TRUE(seconds);
  EXPECT_GE(*seconds, 0.45);
  EXPECT_LT(*seconds, endBound);
}

// A hung end could not restore the hardware; the next start does.
TEST(QuitTest, TheNextStartClearsADischargeThatAHungEndLeft) {
  Holding scene;
  EXPECT_TRUE(succeeded(scene.client.forceDischarge(true)));
  EXPECT_EQ(scene.mac.status().at("inflowInhibited"), true);
  const pid_t pid = scene.helper();
  scene.mac.tell({"fault", "smc-latency", "100000", "on"});
  EXPECT_TRUE(succeeded(scene.client.setChargeLimit(60)));
  pauseFor(0.2);
  const double begun = clockNow();
  ASSERT_EQ(::kill(pid, SIGTERM), 0);
  ASSERT_TRUE(scene.secondsToExit(pid, begun));
  EXPECT_EQ(scene.mac.status().at("inflowInhibited"), true);
  scene.mac.tell({"fault", "smc-latency", "off"});
  scene.mac.tell({"speed", "20"});
  ASSERT_EQ(scene.mac.app({"ping"}).status, 0);
  EXPECT_TRUE(scene.mac.becomes([](const auto& status) { return !status.at("inflowInhibited"); }));
  EXPECT_EQ(scene.mac.journalCount("crash-recovery: clearing stuck discharge keys"), 1U);
}

}  // namespace processtests
