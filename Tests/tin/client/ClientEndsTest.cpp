#include <csignal>
#include <memory>
#include <vector>

#include "Tests/process/RawClient.h"
#include "Tests/tin/client/ClientMac.h"

namespace processtests {

namespace {

constexpr const char* lost =
    "Couldn’t communicate with a helper application. (NSCocoaErrorDomain 4097)";
constexpr const char* refused =
    "Couldn’t communicate with a helper application. (NSCocoaErrorDomain 4102)";

class ClientEndsTest : public ClientMac {
 protected:
  /// Blocks the helper's queue: a tick of the limit hangs in the hardware.
  void hangTheHardware(RawClient& client) {
    mac().tell({"set", "battery", "70"});
    EXPECT_TRUE(succeeded(client.setChargeLimit(50)));
    EXPECT_TRUE(
        mac().becomes([](const auto& status) { return status.at("chargingInhibited") == true; }));
    mac().tell({"fault", "smc-latency", "100000", "on"});
    EXPECT_TRUE(succeeded(client.setChargeLimit(60)));
  }
};

class StrangerTest : public ClientEndsTest, public testing::WithParamInterface<const char*> {};
class TeamlessTest : public ClientEndsTest, public testing::WithParamInterface<const char*> {};
class DoubtfulHelperTest : public ClientEndsTest,
                           public testing::WithParamInterface<const char*> {};

std::string nameOf(const testing::TestParamInfo<const char*>& tested) {
  std::string name = tested.param;
  std::erase(name, '-');
  return name;
}

}  // namespace

TEST_P(StrangerTest, IsCutOffAndToldSo) {
  fail({"set-limit", "33"}, lost, GetParam());
  EXPECT_EQ(mac().journalCount("cut off: does not satisfy the code-signing requirement", 1), 1U);
  EXPECT_EQ(mac().journalCount("setChargeLimit(33)"), 0U);
  succeed({"set-limit", "75"});
}
INSTANTIATE_TEST_SUITE_P(, StrangerTest,
                         testing::Values("other-team", "other-identifier", "development"), nameOf);

TEST_P(TeamlessTest, DoesNotEvenTry) {
  fail({"state"}, "This program is signed without a team; the helper would not listen to it.",
       GetParam());
  EXPECT_EQ(mac().journalCount("connected"), 0U);
}
INSTANTIATE_TEST_SUITE_P(, TeamlessTest, testing::Values("ad-hoc", "unsigned", "apple"), nameOf);

// The helper has looked at its own signature before, and serves the client. The client does not
// take its word.
TEST_P(DoubtfulHelperTest, IsNotListenedTo) {
  succeed({"set-limit", "70"});
  mac().tell({"fault", GetParam(), "on"});
  fail({"ping"}, refused);
  EXPECT_EQ(mac().journalCount("ping " + std::to_string(mac().helper().value_or(0)), 1), 1U);
  mac().tell({"fault", GetParam(), "off"});
  EXPECT_EQ(client({"ping"}).status, 0);
}
INSTANTIATE_TEST_SUITE_P(, DoubtfulHelperTest,
                         testing::Values("helper-unsigned", "helper-without-team"), nameOf);

TEST_F(ClientEndsTest, AHelperThatIsKilledDuringACallIsToldOnce) {
  RawClient holding(mac());
  hangTheHardware(holding);
  const auto journal = std::make_unique<JournalFollower>(mac().follow());
  auto waiting = clientBeside({"set-limit", "80"});
  ASSERT_TRUE(journal->waitFor("setChargeLimit(80)"));
  mac().tell({"kill"});
  const Result result = waiting.get();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, std::string(lost) + "\n");
  mac().tell({"fault", "smc-latency", "off"});
  succeed({"set-limit", "80"});
}

// The machine's launchd keeps the service's socket, so what waits there outlives the helper.
TEST_F(ClientEndsTest, AMessageThatTheHelperHasNotTakenIsServedByTheNext) {
  RawClient stopping(mac());
  static_cast<void>(stopHelper(mac(), stopping));
  const auto first = mac().helper();
  auto waiting = clientBeside({"ping"});
  pauseFor(1);
  mac().tell({"kill"});
  const Result result = waiting.get();
  EXPECT_EQ(result.status, 0) << result.err;
  const auto second = mac().helper();
  EXPECT_NE(second, first);
  EXPECT_EQ(result.out, std::to_string(second.value_or(0)) + "\n");
}

// The watcher's call is lost with the helper; the next one starts another, on the same connection.
TEST_F(ClientEndsTest, AWatcherWhoseCallIsLostSaysSoAndAsksAgain) {
  auto watcher = clientBeside({"watch"});
  ASSERT_GE(mac().journalCount("getState ok", 1), 1U);
  const pid_t process = lastClient();
  RawClient stopping(mac());
  static_cast<void>(stopHelper(mac(), stopping));
  pauseFor(5);
  const std::size_t before = mac().journalCount("getState ok");
  mac().tell({"kill"});
  ASSERT_GE(mac().journalCount("getState ok", before + 1), before + 1);
  ASSERT_EQ(::kill(process, SIGTERM), 0);
  EXPECT_EQ(watcher.get().err, std::string(lost) + "\n");
}

TEST_F(ClientEndsTest, AClientEndsWithItsMachine) {
  auto watcher = clientBeside({"watch"});
  ASSERT_GE(mac().journalCount("getState ok", 1), 1U);
  mac().tell({"reboot"});
  const Result result = watcher.get();
  EXPECT_EQ(result.status, 69);
  EXPECT_EQ(client({"ping"}).status, 0);
}

TEST_F(ClientEndsTest, SixtyFourOthersAreServedBesideIt) {
  constexpr std::uint32_t count = 64;
  std::vector<std::unique_ptr<RawClient>> others;
  for (std::uint32_t index = 0; index < count; ++index)
    others.push_back(std::make_unique<RawClient>(mac()));
  for (const auto& other : others) other->send(callBody(1, "getStateWithReply:").frame());
  const Result result = client({"ping"});
  EXPECT_EQ(result.status, 0) << result.err;
  for (const auto& other : others) {
    const auto reply = other->receive();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->ticket, 1U);
  }
  others.clear();
  EXPECT_EQ(mac().journalCount("client disconnected (count=0)", 1), 1U);
}

// The helper's bound for its end counts time awake, so a sleep that comes in between stops it.
TEST_F(ClientEndsTest, AMacMayFallAsleepDuringTheHelpersEnd) {
  // The end waits in one group and the message of sleep in the other.
  helperMayLeave("dispatch_group", 2);
  RawClient holding(mac());
  hangTheHardware(holding);
  const pid_t helper = mac().helper().value_or(0);
  JournalFollower journal = mac().follow();
  auto ending = clientBeside({"quit"});
  ASSERT_TRUE(journal.waitFor("quit() received"));
  mac().tell({"sleep"});
  EXPECT_TRUE(mac().becomes([](const auto& status) { return status.at("power") == "asleep"; }, 60));
  mac().tell({"fault", "smc-latency", "off"});
  mac().tell({"wake"});
  EXPECT_EQ(ending.get().status, 0);
  EXPECT_EQ(mac().journalCount("helper " + std::to_string(helper) + " exited 0", 1), 1U);
  EXPECT_EQ(client({"ping"}).status, 0);
}

TEST_F(ClientEndsTest, ClientsThatLeaveWhileTheirRepliesComeAreForgotten) {
  constexpr std::uint32_t rounds = 20;
  constexpr std::uint32_t calls = 30;
  const auto helper = mac().helper();
  for (std::uint32_t round = 0; round < rounds; ++round) {
    RawClient hasty(mac());
    std::string messages;
    for (std::uint32_t ticket = 1; ticket <= calls; ++ticket)
      messages += callBody(ticket, "getStateWithReply:").frame();
    hasty.send(messages);
    // The first reply is there, so others are on their way.
    ASSERT_TRUE(hasty.receive());
  }
  const Result result = client({"ping"});
  EXPECT_EQ(result.out, std::to_string(helper.value_or(0)) + "\n") << result.err;
  EXPECT_GE(mac().journalCount("client disconnected (count=0)", 1), 1U);
}

}  // namespace processtests
