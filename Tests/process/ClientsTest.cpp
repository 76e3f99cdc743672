#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

// A client that sends calls but never reads fills its own connection and waits. The helper neither
// grows nor delays other clients, and nothing is lost once the client reads.
TEST(ClientsTest, AClientThatNeverReadsWaitsAlone) {
  const Mac mac;
  RawClient other(mac);
  ASSERT_TRUE(other.call("pingWithReply:"));
  const pid_t helper = mac.helper().value_or(0);
  const auto before = factsOf(helper);
  ASSERT_TRUE(before);

  RawClient silent(mac);
  std::uint32_t sent = 0;
  std::string unsent;
  const double deadline = clockNow() + 20;
  while (unsent.empty() && clockNow() < deadline) {
    const std::string call = callBody(++sent, "getStateWithReply:").frame();
    unsent = call.substr(silent.sendWithoutWaiting(call));
  }
  ASSERT_FALSE(unsent.empty()) << "the connection never filled";
  for (int round = 0; round < 20; ++round) {
    const double begun = clockNow();
    ASSERT_TRUE(other.call("pingWithReply:"));
    EXPECT_LT(clockNow() - begun, 2.0);
  }
  const auto during = factsOf(helper);
  ASSERT_TRUE(during);
  EXPECT_LT(during->residentKilobytes - before->residentKilobytes, 8 * 1024);

  for (std::uint32_t ticket = 1; ticket < sent; ++ticket) {
    const auto reply = silent.receive();
    ASSERT_TRUE(reply) << "after " << ticket - 1 << " of " << sent;
    ASSERT_EQ(reply->ticket, ticket);
  }
  silent.send(unsent);
  const auto last = silent.receive();
  ASSERT_TRUE(last);
  EXPECT_EQ(last->ticket, sent);
}

TEST(ClientsTest, SixtyFourClientsAtOnceAreAllServedAndAllCounted) {
  constexpr int count = 64;
  constexpr int rounds = 10;
  const Mac mac;
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int index = 0; index < count; ++index) clients.push_back(std::make_unique<RawClient>(mac));
  for (std::uint32_t round = 1; round <= rounds; ++round) {
    // Every client asks before any is answered.
    for (const auto& client : clients)
      client->send(
          callBody(round, "setChargeLimit:reply:", Bytes().integer(20 + static_cast<int>(round)), 1)
              .frame());
    for (const auto& client : clients) {
      const auto reply = client->receive();
      ASSERT_TRUE(succeeded(reply));
      EXPECT_EQ(reply->ticket, round);
    }
  }
  EXPECT_EQ(clients.front()->getState().value().at("chargeLimit"), 20 + rounds);
  EXPECT_EQ(mac.journalCount("client connected (count=64)", 1), 1U);
  EXPECT_EQ(mac.status().at("helperStarts"), 1);
  auto journal = mac.follow();
  clients.clear();
  EXPECT_TRUE(journal.waitFor("client disconnected (count=0)"));
}

namespace {

/// The helper's lines come on a way of their own and may be told late. So it is counted from a
/// moment at which the last client is still there.
constexpr double halfAMinute = 30;
double secondsOf(const Mac& mac) { return mac.status().at("seconds").get<double>(); }

class BrokenAcceptanceTest : public testing::TestWithParam<const char*> {};

}  // namespace

// A connection's handlers run beside the accepting thread. A connection that ends before its
// acceptance is complete still counts: in, out, and with the half minute of grace.
TEST_P(BrokenAcceptanceTest, IsCountedInAndThenOut) {
  const Mac mac({.speed = 20});
  auto journal = mac.follow();
  auto first = std::make_unique<RawClient>(mac);
  ASSERT_TRUE(succeeded(first->setChargeLimit(50)));
  first.reset();
  ASSERT_TRUE(journal.waitFor("client disconnected (count=0)"));

  mac.tell({"fault", "connection-breaks", GetParam(), "on"});
  const double before = secondsOf(mac);
  RawClient brief(mac);
  EXPECT_TRUE(brief.isCutOff());
  mac.tell({"fault", "connection-breaks", GetParam(), "off"});
  ASSERT_TRUE(journal.waitFor("client connected (count=1)"));
  ASSERT_TRUE(journal.waitFor("client disconnected (count=0)"));
  EXPECT_EQ(mac.journalCount("cut off: the connection broke", 1), 1U);
  EXPECT_EQ(mac.journalCount("connection invalidated", 2), 2U);
  EXPECT_EQ(mac.journalCount("accepted XPC connection", 2), 2U);
  const auto released = journal.waitFor("all clients gone — suspending enforcement");
  ASSERT_TRUE(released);
  EXPECT_GE(released->time - before, halfAMinute);
}

INSTANTIATE_TEST_SUITE_P(, BrokenAcceptanceTest, testing::Values("handler", "resume", "after"),
                         [](const testing::TestParamInfo<const char*>& tested) {
                           return std::string(tested.param);
                         });

TEST(ClientsTest, ClientsThatLeaveAsTheyComeAreEachCountedInAndOut) {
  constexpr std::size_t count = 200;
  const Mac mac;
  auto journal = mac.follow();
  for (std::size_t index = 0; index < count; ++index) const RawClient brief(mac, std::nullopt);
  std::size_t in = 0;
  std::size_t out = 0;
  while (out < count) {
    const auto line = journal.waitFor("connected (count=");
    ASSERT_TRUE(line) << in << " counted in, " << out << " out";
    line->text.find("disconnected") == std::string::npos ? ++in : ++out;
    ASSERT_LE(out, in);
  }
  EXPECT_EQ(in, count);
  EXPECT_EQ(mac.journalCount("accepted XPC connection", count), count);
  RawClient last(mac);
  ASSERT_TRUE(last.call("pingWithReply:"));
  EXPECT_TRUE(journal.waitFor("client connected (count=1)"));
}

// One of two clients leaves, and nothing changes. The other leaves and returns within the half
// minute, and nothing changes. It leaves for good: after half a minute charging is the system's
// again, and the saved limit waits for the next client.
TEST(ClientsTest, TheLastClientHasHalfAMinuteToComeBack) {
  const Mac mac({.speed = 20});
  mac.tell({"set", "battery", "70"});
  auto journal = mac.follow();
  auto first = std::make_unique<RawClient>(mac);
  auto second = std::make_unique<RawClient>(mac);
  ASSERT_TRUE(second->call("pingWithReply:"));
  ASSERT_TRUE(succeeded(first->setChargeLimit(50)));
  ASSERT_TRUE(journal.waitFor("CHTE <- 01 00 00 00"));

  first.reset();
  ASSERT_TRUE(journal.waitFor("client disconnected (count=1)"));
  for (const JournalLine& line : journal.collect(2)) EXPECT_NE(line.kind, "smc") << line.text;

  second.reset();
  ASSERT_TRUE(journal.waitFor("client disconnected (count=0)"));
  pauseFor(0.5);
  second = std::make_unique<RawClient>(mac);
  ASSERT_TRUE(second->call("pingWithReply:"));
  for (const JournalLine& line : journal.collect(2)) EXPECT_NE(line.kind, "smc") << line.text;
  EXPECT_EQ(mac.journalCount("arming polling loop"), 0U);

  const double before = secondsOf(mac);
  second.reset();
  const auto gone = journal.waitFor("client disconnected (count=0)");
  ASSERT_TRUE(gone);
  const auto released = journal.waitFor(
      "all clients gone — suspending enforcement, resuming normal charging (saved limit=50 "
      "retained)");
  ASSERT_TRUE(released);
  EXPECT_GE(released->time - before, halfAMinute);
  EXPECT_LT(released->time - gone->time, 45.0);
  ASSERT_TRUE(journal.waitFor("CHTE <- 00 00 00 00"));
  EXPECT_EQ(mac.state().at("chargeLimit"), 50);

  RawClient third(mac);
  ASSERT_TRUE(third.call("pingWithReply:"));
  EXPECT_TRUE(journal.waitFor("client connect — arming polling loop at limit=50"));
  EXPECT_TRUE(journal.waitFor("CHTE <- 01 00 00 00"));
}

}  // namespace processtests
