#include <gtest/gtest.h>

#include <csignal>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

// Nobody needs to ask: what a crashed predecessor left is undone at boot.
TEST(LifeTest, TheHelperIsStartedAtBoot) {
  const Mac mac;
  EXPECT_TRUE(mac.helper());
  EXPECT_EQ(mac.status().at("helperStarts"), 1);
}

TEST(LifeTest, TheFirstConnectionIsAnsweredByTheHelperOfTheBoot) {
  const Mac mac;
  const Result ping = mac.app({"--json", "ping"});
  ASSERT_EQ(ping.status, 0) << ping.err;
  const auto pid = mac.helper();
  ASSERT_TRUE(pid);
  EXPECT_EQ(nlohmann::json::parse(ping.out).at("pid"), *pid);
  const std::string line = "KorvelHelper starting pid=" + std::to_string(*pid) + " team=ABCDE12345";
  EXPECT_EQ(mac.journalCount(line, 1), 1U);
}

TEST(LifeTest, TheSameHelperServesTheNextClient) {
  const Mac mac;
  const Result first = mac.app({"ping"});
  const Result second = mac.app({"ping"});
  EXPECT_EQ(first.status, 0);
  EXPECT_EQ(first.out, second.out);
  EXPECT_EQ(mac.status().at("helperStarts"), 1);
}

// Two starts are at least ten seconds apart, however soon the helper died.
TEST(LifeTest, ACrashedHelperIsStartedAgainButNotTooSoon) {
  const Mac mac({.speed = 20});
  auto journal = mac.follow();
  mac.tell({"kill"});
  const auto first = journal.waitFor("started");
  ASSERT_TRUE(first);
  mac.tell({"kill"});
  ASSERT_TRUE(journal.waitFor("killed by signal 9"));
  const auto second = journal.waitFor("started");
  ASSERT_TRUE(second);
  EXPECT_GT(second->time - first->time, 9.999) << "the journal tells milliseconds";
  EXPECT_LT(second->time - first->time, 25.0);
}

// Exit status 0 is deliberate: launchd starts the helper again only on demand.
TEST(LifeTest, AnEndThatWasMeantIsNotUndone) {
  const Mac mac({.speed = 20});
  auto journal = mac.follow();
  EXPECT_EQ(mac.app({"quit"}).status, 0);
  ASSERT_TRUE(journal.waitFor("exited 0"));
  for (const JournalLine& line : journal.collect(1.5)) EXPECT_NE(line.kind, "proc") << line.text;
  EXPECT_FALSE(mac.helper());
  EXPECT_EQ(mac.app({"ping"}).status, 0);
  EXPECT_EQ(mac.status().at("helperStarts"), 2);
}

// A connection that comes while launchd may not start a helper yet waits for one.
TEST(LifeTest, AClientThatComesTooSoonWaitsForTheNextHelper) {
  const Mac mac({.speed = 20});
  auto journal = mac.follow();
  ASSERT_EQ(mac.app({"quit"}).status, 0);
  ASSERT_TRUE(journal.waitFor("exited 0"));
  EXPECT_EQ(mac.app({"ping"}).status, 0);
}

// The machine's process stands for the computer, so the helper cannot go on without it.
TEST(LifeTest, AHelperDoesNotOutliveItsMachine) {
  const Mac mac;
  ASSERT_EQ(mac.app({"ping"}).status, 0);
  const pid_t helper = mac.helper().value_or(0);
  ASSERT_GT(helper, 0);
  ASSERT_EQ(::kill(mac.machinePid(), SIGKILL), 0);
  const double deadline = clockNow() + 20;
  while (isAlive(helper) && clockNow() < deadline) pauseFor(0.02);
  EXPECT_FALSE(isAlive(helper));
}

}  // namespace processtests
