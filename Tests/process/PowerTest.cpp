#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

TEST(SleepTest, TheHelperPausesChargingAndLetsTheMachineSleep) {
  const Mac mac({.speed = 10});
  RawClient client(mac);
  ASSERT_TRUE(succeeded(client.setChargeLimit(80)));
  auto journal = mac.follow();
  mac.tell({"sleep"});
  ASSERT_TRUE(journal.waitFor("kIOMessageSystemWillSleep — flushing pre-sleep SMC pause-write"));
  ASSERT_TRUE(journal.waitFor("acknowledged by pid"));
  ASSERT_TRUE(journal.waitFor("asleep"));
  EXPECT_EQ(mac.status().at("power"), "asleep");
  EXPECT_EQ(mac.status().at("chargingInhibited"), true);
  mac.tell({"wake"});
  ASSERT_TRUE(journal.waitFor("kIOMessageSystemHasPoweredOn — re-evaluating charge gate"));
  EXPECT_TRUE(mac.becomes([](const auto& status) { return !status.at("chargingInhibited"); }))
      << "below the limit charging goes on after waking";
}

// The grace period after a client left counts time awake only; a night's sleep stops it.
TEST(SleepTest, TimersStandStillWhileTheMachineSleeps) {
  const Mac mac({.speed = 20});
  mac.tell({"set", "battery", "70"});
  auto journal = mac.follow();
  auto client = std::make_unique<RawClient>(mac);
  ASSERT_TRUE(succeeded(client->setChargeLimit(50)));
  client.reset();
  const auto gone = journal.waitFor("client disconnected (count=0)");
  ASSERT_TRUE(gone);
  mac.tell({"sleep"});
  const auto asleep = journal.waitFor("asleep");
  ASSERT_TRUE(asleep);
  for (const JournalLine& line : journal.collect(4))
    EXPECT_EQ(line.text.find("all clients gone"), std::string::npos);
  mac.tell({"wake"});
  const auto awake = journal.waitFor("awake");
  ASSERT_TRUE(awake);
  const auto released = journal.waitFor("all clients gone");
  ASSERT_TRUE(released);
  const double slept = awake->time - asleep->time;
  EXPECT_GT(slept, 60.0);
  EXPECT_NEAR(released->time - gone->time - slept, 30.0, 8.0);
}

// A helper that does not answer delays sleep, but cannot prevent it.
TEST(SleepTest, AStoppedHelperCannotKeepTheMachineAwake) {
  const Mac mac({.speed = 20});
  RawClient client(mac);
  ASSERT_TRUE(succeeded(client.setChargeLimit(80)));
  auto journal = mac.follow();
  const std::uint32_t waiting = stopHelper(mac, client);
  mac.tell({"sleep"});
  ASSERT_TRUE(journal.waitFor("not acknowledged by pid"));
  ASSERT_TRUE(journal.waitFor("asleep"));
  mac.tell({"kill", "CONT"});
  mac.tell({"wake"});
  EXPECT_TRUE(journal.waitFor("kIOMessageSystemHasPoweredOn"));
  const auto late = client.receive();
  ASSERT_TRUE(late);
  EXPECT_EQ(late->ticket, waiting);
}

TEST(RebootTest, EndsTheHelperInOrderAndKeepsTheSavedLimit) {
  const Mac mac({.speed = 10});
  mac.tell({"set", "battery", "70"});
  auto client = std::make_unique<RawClient>(mac);
  ASSERT_TRUE(succeeded(client->setChargeLimit(50)));
  ASSERT_TRUE(mac.becomes([](const auto& status) { return status.at("chargingInhibited"); }));
  mac.tell({"set", "sleep-disabled", "on"});
  const auto ended = mac.helper();
  auto journal = mac.follow();
  mac.tell({"reboot"});
  ASSERT_TRUE(journal.waitFor("SIGTERM — shutting down gracefully"));
  ASSERT_TRUE(journal.waitFor("exited 0"));
  ASSERT_TRUE(journal.waitFor("reboot"));
  ASSERT_TRUE(journal.waitFor("started"));
  const auto status = mac.status();
  EXPECT_NE(status.at("helperPid"), *ended);
  EXPECT_EQ(status.at("sleepDisabled"), false) << "that setting does not survive a reboot";
  EXPECT_EQ(status.at("chargingInhibited"), false);
  EXPECT_TRUE(client->isCutOff());
  client = std::make_unique<RawClient>(mac);
  EXPECT_EQ(client->getState().value().at("chargeLimit"), 50);
  EXPECT_TRUE(mac.becomes([](const auto& now) { return now.at("chargingInhibited"); }));
}

// The SMC keys outlive a loss of power; the helper of the next boot clears those of a discharge,
// before any client comes.
TEST(PowerLossTest, TheNextHelperPutsRightWhatThePowerLossLeft) {
  const Mac mac({.speed = 20});
  mac.tell({"set", "battery", "70"});
  auto client = std::make_unique<RawClient>(mac);
  ASSERT_TRUE(succeeded(client->setChargeLimit(50)));
  ASSERT_TRUE(succeeded(client->forceDischarge(true)));
  EXPECT_EQ(mac.status().at("inflowInhibited"), true);
  EXPECT_EQ(mac.state().at("forceDischargeActive"), true);
  const std::size_t clearings = mac.journalCount("CHIE <- 00");
  auto journal = mac.follow();
  mac.tell({"power-loss"});
  ASSERT_TRUE(journal.waitFor("power lost"));
  ASSERT_TRUE(journal.waitFor("started"));
  ASSERT_TRUE(journal.waitFor("crash-recovery: clearing stuck discharge keys"));
  ASSERT_TRUE(journal.waitFor("CHIE <- 00"));
  EXPECT_EQ(mac.journalCount("CHIE <- 00", clearings + 1), clearings + 1)
      << "nobody cleared it before";
  EXPECT_EQ(mac.status().at("assertions").size(), 0U);
  EXPECT_TRUE(client->isCutOff());
  client = std::make_unique<RawClient>(mac);
  const auto state = client->getState();
  ASSERT_TRUE(state);
  EXPECT_EQ(state->at("chargeLimit"), 50);
  EXPECT_TRUE(mac.becomes([](const auto& now) { return !now.at("inflowInhibited"); }));
  EXPECT_EQ(client->getState().value().at("forceDischargeActive"), false);
}

// The lid is closed during an armed discharge: the machine stays awake, and SleepDisabled is
// cleared when the arming ends.
TEST(KeepAwakeTest, TheMachineStaysAwakeWithItsLidClosedUntilTheDischargeEnds) {
  const Mac mac({.speed = 10});
  mac.tell({"set", "battery", "70"});
  RawClient client(mac);
  ASSERT_TRUE(succeeded(client.setChargeLimit(50)));
  ASSERT_TRUE(succeeded(client.forceDischarge(true)));
  ASSERT_TRUE(succeeded(client.call("setClamshellKeepAwake:reply:", Bytes().boolean(true), 1)));
  EXPECT_EQ(mac.status().at("sleepDisabled"), true);
  EXPECT_EQ(mac.state().at("sleepDisabledByKorvel"), true);
  mac.tell({"set", "lid", "closed"});
  pauseFor(1);
  EXPECT_EQ(mac.status().at("power"), "awake");
  ASSERT_TRUE(succeeded(client.call("setClamshellKeepAwake:reply:", Bytes().boolean(false), 1)));
  EXPECT_EQ(mac.status().at("sleepDisabled"), false);
  EXPECT_TRUE(mac.becomes([](const auto& status) { return status.at("power") == "asleep"; }));
}

}  // namespace processtests
