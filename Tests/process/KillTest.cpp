#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <random>
#include <thread>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

namespace {

/// Keeps asking, and reconnects after each end of the helper, until it is destroyed.
class BusyClient {
 public:
  BusyClient(const Mac& target, unsigned seed)
      : thread([this, &target, seed] { work(target, seed); }) {}
  ~BusyClient() {
    stop = true;
    thread.join();
  }
  BusyClient(const BusyClient&) = delete;
  BusyClient& operator=(const BusyClient&) = delete;
  [[nodiscard]] int answered() const { return answers; }

 private:
  void work(const Mac& mac, unsigned seed) {
    std::mt19937 random(seed);
    while (!stop) {
      RawClient client(mac);
      while (!stop) {
        const bool answer =
            random() % 3 == 0
                ? client.forceDischarge(random() % 2 == 0).has_value()
                : client.setChargeLimit(static_cast<int>(50 + random() % 40)).has_value();
        if (!answer) break;
        ++answers;
      }
    }
  }

  std::atomic<bool> stop = false;
  std::atomic<int> answers = 0;
  std::thread thread;
};

void expectWhole(const nlohmann::json& state) {
  ASSERT_TRUE(state.is_object()) << "the state file is not whole";
  for (const char* field :
       {"chargeLimit", "sailingBand", "forceDischargeActive", "heatPauseActive", "lastWriteAt"})
    ASSERT_TRUE(state.contains(field)) << field;
}

}  // namespace

// Kills the helper two hundred times at random moments, also during its start. Each time the state
// file is whole, launchd restarts the helper and the next client finds it working; nothing that the
// dead helpers held is left.
TEST(KillTest, TwoHundredKillsLeaveNothingBehind) {
  constexpr int kills = 200;
  std::mt19937 random(announceSeed());
  const Mac mac({.speed = 200});
  mac.tell({"set", "battery", "95"});
  auto journal = mac.follow();
  mac.tell({"kill"});  // The helper of the boot: the starts of all others are followed.
  int answered = 0;
  {
    const BusyClient client(mac, static_cast<unsigned>(random()));
    for (int kill = 0; kill < kills; ++kill) {
      SCOPED_TRACE("kill " + std::to_string(kill));
      const auto started = journal.waitFor("started");
      ASSERT_TRUE(started);
      const pid_t pid = std::stoi(started->text.substr(started->text.find(' ')));
      // The kill comes between the first instruction and a while after the first answers.
      pauseFor(std::uniform_real_distribution<double>(0, 0.08 * slowness())(random));
      ASSERT_EQ(::kill(pid, SIGKILL), 0);
      ASSERT_TRUE(journal.waitFor("helper " + std::to_string(pid) + " killed by signal 9"));
      if (const std::string content = readFile(mac.stateFile()); !content.empty())
        expectWhole(nlohmann::json::parse(content, nullptr, false));
    }
    answered = client.answered();
  }
  EXPECT_GT(answered, kills / 4) << "most helpers never got to work";

  mac.tell({"set", "battery", "95"});
  RawClient client(mac);
  ASSERT_TRUE(succeeded(client.setChargeLimit(60)));
  ASSERT_TRUE(succeeded(client.call("resetAllSMCKeysWithReply:")));
  const auto status = mac.status();
  EXPECT_EQ(status.at("assertions").size(), 0U);
  EXPECT_EQ(status.at("inflowInhibited"), false);
  EXPECT_EQ(status.at("chargingInhibited"), false);
  EXPECT_EQ(status.at("forbiddenWrites"), 0);
  EXPECT_FALSE(std::filesystem::exists(mac.stateFile() + ".tmp"));
  EXPECT_EQ(mac.state().at("forceDischargeActive"), false);
}

// The application survives its helper and reconnects; the new helper enforces the saved limit by
// itself.
TEST(KillTest, AClientThatReconnectsFindsTheLimitEnforcedAgain) {
  const Mac mac({.speed = 20});
  mac.tell({"set", "battery", "70"});
  auto journal = mac.follow();
  const Background application("korvel-app", {"--root", mac.root(), "watch", "--every", "0.05"});
  ASSERT_EQ(mac.app({"set-limit", "50"}).status, 0);
  ASSERT_TRUE(journal.waitFor("CHTE <- 01 00 00 00"));
  mac.tell({"kill"});
  ASSERT_TRUE(journal.waitFor("killed by signal 9"));
  EXPECT_TRUE(journal.waitFor("client connect — arming polling loop at limit=50"));
  EXPECT_TRUE(mac.becomes([](const auto& status) { return status.at("chargingInhibited"); }));
}

// The helper is killed during a discharge; the next start restores the adapter.
TEST(KillTest, TheNextStartEndsADischarge) {
  const Mac mac({.speed = 20});
  mac.tell({"set", "battery", "70"});
  RawClient client(mac);
  ASSERT_TRUE(succeeded(client.setChargeLimit(50)));
  ASSERT_TRUE(succeeded(client.forceDischarge(true)));
  EXPECT_EQ(mac.status().at("assertions").size(), 2U);
  auto journal = mac.follow();
  mac.tell({"kill"});
  ASSERT_TRUE(journal.waitFor("killed by signal 9"));
  EXPECT_EQ(mac.status().at("assertions").size(), 0U);
  ASSERT_TRUE(journal.waitFor("crash-recovery: clearing stuck discharge keys"));
  ASSERT_TRUE(journal.waitFor("CHIE <- 00"));
}

// A stopped helper is not dead: nobody is served and nothing is restarted, and afterwards it goes
// on as before.
TEST(KillTest, AStoppedHelperGoesOnWhereItWas) {
  const Mac mac;
  RawClient client(mac);
  ASSERT_TRUE(succeeded(client.setChargeLimit(60)));
  const auto pid = mac.helper();
  const std::uint32_t waiting = stopHelper(mac, client);
  mac.tell({"kill", "CONT"});
  const auto late = client.receive();
  ASSERT_TRUE(late);
  EXPECT_EQ(late->ticket, waiting);
  EXPECT_EQ(mac.helper(), pid);
}

}  // namespace processtests
