#include <gtest/gtest.h>

#include <csignal>
#include <functional>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

namespace {

/// The helper's own bound is half a second; the rest allows for a busy computer.
constexpr double endBound = 2.0;

/// A machine on which the helper has paused charging, with the client that asked for it.
class Holding {
 protected:
  Holding() : journal(mac.follow()), client(mac) {
    mac.tell({"set", "battery", "70"});
    EXPECT_TRUE(succeeded(client.setChargeLimit(50)));
    EXPECT_TRUE(mac.becomes([](const auto& status) { return status.at("chargingInhibited"); }));
    pid = mac.helper().value_or(0);
  }

  /// Blocks the helper's queue: the first tick of another limit hangs in the hardware.
  void hangTheHardware() {
    mac.tell({"fault", "smc-latency", "100000", "on"});
    EXPECT_TRUE(succeeded(client.setChargeLimit(60)));
    pauseFor(0.2);
  }
  void send(int signal) const { EXPECT_EQ(::kill(pid, signal), 0); }
  void quit() { client.send(callBody(0, "quit").frame()); }
  /// Returns the real seconds from `end` until the helper exited with status 0.
  double secondsToExit(const std::function<void()>& end) {
    const double begun = clockNow();
    end();
    EXPECT_TRUE(journal.waitFor("helper " + std::to_string(pid) + " exited 0", endBound + 10));
    return clockNow() - begun;
  }

  Mac mac;
  JournalFollower journal;
  RawClient client;
  pid_t pid = 0;
};

struct Signal {
  const char* name;
  int number;
  const char* line;
};

class SignalsTest : public testing::TestWithParam<Signal>, protected Holding {};
class QuitTest : public testing::Test, protected Holding {};

}  // namespace

TEST_P(SignalsTest, EndsWithStatusZeroAndChargingRestored) {
  const double seconds = secondsToExit([this] { send(GetParam().number); });
  EXPECT_LT(seconds, endBound);
  EXPECT_EQ(mac.journalCount(GetParam().line, 1), 1U);
  EXPECT_EQ(mac.journalCount("shutdownGracefully — restoring SMC before exit", 1), 1U);
  EXPECT_EQ(mac.status().at("chargingInhibited"), false);
  EXPECT_EQ(mac.state().at("chargeLimit"), 50);
  EXPECT_TRUE(client.isCutOff());
}

// Hanging hardware blocks the helper's queue. The helper still ends after half a second, and leaves
// the hardware as it was.
TEST_P(SignalsTest, EndsInTimeWhenTheHardwareHangs) {
  hangTheHardware();
  const double seconds = secondsToExit([this] { send(GetParam().number); });
  EXPECT_GE(seconds, 0.45);
  EXPECT_LT(seconds, endBound);
  EXPECT_EQ(mac.status().at("chargingInhibited"), true);
}

TEST_P(SignalsTest, ASecondSignalDuringTheEndChangesNothing) {
  hangTheHardware();
  const double seconds = secondsToExit([this] {
    send(GetParam().number);
    pauseFor(0.1);
    for (const int again : {SIGTERM, SIGINT, SIGABRT}) send(again);
  });
  EXPECT_GE(seconds, 0.45);
  EXPECT_EQ(mac.journalCount("shutdownGracefully — restoring SMC before exit", 1), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    , SignalsTest,
    testing::Values(Signal{"Term", SIGTERM, "Boot default \"SIGTERM — shutting down gracefully\""},
                    Signal{"Int", SIGINT, "Boot default \"SIGINT — shutting down gracefully\""},
                    Signal{"Abrt", SIGABRT,
                           "Boot fault \"SIGABRT — running shutdownGracefully before exit\""}),
    [](const testing::TestParamInfo<Signal>& tested) { return tested.param.name; });

TEST_F(QuitTest, EndsWithStatusZeroAndTheClientSeesItsConnectionEnd) {
  const double seconds = secondsToExit([this] { quit(); });
  EXPECT_LT(seconds, endBound);
  EXPECT_FALSE(client.receive(1)) << "quit has no reply";
  EXPECT_EQ(mac.journalCount("quit() received pid=" + std::to_string(pid), 1), 1U);
  EXPECT_EQ(mac.status().at("chargingInhibited"), false);
}

TEST_F(QuitTest, EndsInTimeWhenTheHardwareHangs) {
  hangTheHardware();
  const double seconds = secondsToExit([this] { quit(); });
  EXPECT_GE(seconds, 0.45);
  EXPECT_LT(seconds, endBound);
}

// A hung end could not restore the hardware; the next start does.
TEST_F(QuitTest, TheNextStartClearsADischargeThatAHungEndLeft) {
  EXPECT_TRUE(succeeded(client.forceDischarge(true)));
  EXPECT_EQ(mac.status().at("inflowInhibited"), true);
  hangTheHardware();
  secondsToExit([this] { send(SIGTERM); });
  EXPECT_EQ(mac.status().at("inflowInhibited"), true);
  mac.tell({"fault", "smc-latency", "off"});
  mac.tell({"speed", "20"});
  ASSERT_EQ(mac.app({"ping"}).status, 0);
  EXPECT_TRUE(mac.becomes([](const auto& status) { return !status.at("inflowInhibited"); }));
  EXPECT_EQ(mac.journalCount("crash-recovery: clearing stuck discharge keys", 1), 1U);
}

}  // namespace processtests
