#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <nlohmann/json.hpp>
#include <optional>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

namespace {

constexpr const char* rule =
    "enforced       charging stops at 80 %, goes on below 75 %, while the adapter is in and the "
    "charge can be read\n";

/// A machine at 85 % with a limit of 80 %, whose minute lasts a second. One application stays
/// connected; else asking for the status would itself arm the limit.
class StatusTest : public testing::Test {
 protected:
  void begin(const std::string& profile = "newer-keys") {
    mac.emplace(MacOptions{.speed = 60, .profile = profile});
    application.emplace("korvel-app", std::vector<std::string>{"--root", mac->root(), "watch"});
    mac->tell({"set", "battery", "85"});
    ASSERT_EQ(mac->app({"set-limit", "80"}).status, 0);
  }

  /// Waits until the helper has counted so many connections. A connection arms the limit when it is
  /// counted, which can be after its first request was answered.
  void expectConnects(int count) {
    EXPECT_TRUE(mac->becomes(
        [count](const auto& status) { return status.at("enforcement").at("connects") == count; }));
  }

  void expectStatus(const std::vector<std::string>& words) { expectSoon({"status"}, true, words); }
  void expectMachine(const std::string& row) { expectSoon({"status"}, false, {row}); }

  std::optional<Mac> mac;
  std::optional<Background> application;

 private:
  /// Asks until the answer has all words, because the helper decides only at its next tick.
  void expectSoon(const std::vector<std::string>& question, bool app,
                  const std::vector<std::string>& words) {
    const double deadline = clockNow() + 20;
    Result said;
    const auto saysAll = [&] {
      said = app ? mac->app(question) : mac->command(question);
      return std::ranges::all_of(
          words, [&](const std::string& each) { return said.out.find(each) != std::string::npos; });
    };
    while (!saysAll()) {
      if (clockNow() > deadline) {
        for (const std::string& each : words)
          EXPECT_NE(said.out.find(each), std::string::npos) << each << "\nin\n" << said.out;
        return;
      }
      pauseFor(0.02);
    }
  }
};

}  // namespace

TEST_F(StatusTest, ALimitThatIsEnforcedIsToldWithItsLastOutcome) {
  begin();
  expectStatus({rule, "last outcome   pause:ok\n"});
  expectMachine("enforcement    at 80 %, last outcome pause:ok\n");
  const auto told = nlohmann::json::parse(mac->app({"--json", "status"}).out);
  EXPECT_EQ(told.at("enforcement").at("loop"), "running");
  EXPECT_EQ(told.at("enforcement").at("outcome"), "pause:ok");
  EXPECT_EQ(told.at("state").at("chargeLimit"), 80);
}

TEST_F(StatusTest, AMacThatCannotBeControlledIsNotSaidToStopAnything) {
  begin("no-control");
  expectStatus(
      {"enforced       nothing can be: the helper found neither CHTE, nor CH0B and CH0C, "
       "nor a charge limit of macOS\n",
       "last outcome   pause:AppleSMC service unavailable\n"});
}

TEST_F(StatusTest, WritesThatAreRefusedAreToldWithTheLastError) {
  begin();
  expectStatus({"last outcome   pause:ok\n"});
  mac->tell({"fault", "smc-write-result", "CHTE", "130", "on"});
  mac->tell({"set", "battery", "60"});
  expectStatus({"! The last change of the charging hardware did not take hold.\n",
                "enforced       holding 80 % is tried, and fails: resume:kSMCWriteKey failed "
                "(kIOReturn=0, smcResult=130)\n",
                "last error     "});
  mac->tell({"fault", "smc-write-result", "CHTE", "off"});
  expectStatus({rule, "last outcome   resume:ok\n"});
}

TEST_F(StatusTest, AWriteThatTheFirmwareIgnoresIsToldWithTheLastError) {
  begin();
  expectStatus({"last outcome   pause:ok\n"});
  mac->tell({"fault", "smc-silent-refusal", "CHTE", "on"});
  mac->tell({"set", "battery", "60"});
  expectStatus(
      {"enforced       holding 80 % is tried, but the last write of the gate did not take "
       "hold\n",
       "last outcome   resume:ok\n",
       "last error     HelperImpl: SMC write unverified — read-back disagreed; "});
}

TEST_F(StatusTest, ADischargeIsTold) {
  begin();
  ASSERT_EQ(mac->app({"discharge", "on"}).status, 0);
  expectStatus(
      {"enforced       discharging to 80 %: the hardware was told to draw nothing from the "
       "adapter\n"});
}

// Asking connects, and that arms the saved limit, even during a top-off.
TEST_F(StatusTest, AskingDuringATopOffArmsTheLimitAndSaysSo) {
  begin();
  Conversation session("korvel-app", {"--root", mac->root(), "session"});
  session.say("ping");
  expectConnects(3);
  session.say("top-off");
  expectMachine("enforcement    nothing: a top-off is under way\n");
  const std::string said = mac->app({"status"}).out;
  EXPECT_EQ(
      said.find("! Connecting has armed the limit. Before, nothing was enforced: a top-off is "
                "under way.\n"),
      0U)
      << said;
  EXPECT_NE(said.find("can be read; a connection armed this during a top-off\n"), std::string::npos)
      << said;
}

TEST_F(StatusTest, AskingAfterASuspensionArmsTheLimitAndSaysSo) {
  begin();
  application.reset();
  expectMachine("enforcement    nothing: nobody connected for 30 s\n");
  const std::string said = mac->app({"status"}).out;
  EXPECT_EQ(said.find("! Connecting has armed the limit. Before, nothing was enforced: nobody "
                      "connected for 30 s.\n"),
            0U)
      << said;
  EXPECT_NE(said.find(rule), std::string::npos) << said;
}

// The helper answers the first question while its queue is still busy with the start.
TEST_F(StatusTest, AskingWaitsUntilTheHelperHasCountedTheConnection) {
  begin();
  application.reset();
  ASSERT_EQ(mac->app({"quit"}).status, 0);
  ASSERT_TRUE(mac->becomes([](const auto& status) { return status.at("helperPid").is_null(); }));
  mac->tell({"fault", "call-latency", "fileFsync", "30", "on"});
  const std::string said = mac->app({"status"}).out;
  EXPECT_EQ(
      said.find("! Connecting has armed the limit. Before, nothing was enforced: no helper.\n"), 0U)
      << said;
  EXPECT_NE(said.find(rule), std::string::npos) << said;
}

TEST_F(StatusTest, ACallThatIsHeldIsToldAndAfterADeathIsTheLast) {
  begin();
  EXPECT_EQ(mac->status().at("lastCallOfEndedHelper"), nullptr);
  mac->tell({"fault", "call-latency", "fileFsync", "100000", "on"});
  Background late("korvel-app", {"--root", mac->root(), "set-limit", "70"});
  EXPECT_TRUE(mac->becomes([](const auto& status) {
    return status.at("callsUnderWay") == nlohmann::json{"fileFsync"};
  }));
  mac->tell({"kill"});
  EXPECT_TRUE(mac->becomes(
      [](const auto& status) { return status.at("lastCallOfEndedHelper") == "fileFsync"; }));
}

TEST_F(StatusTest, ChargingThatWasHandedBackIsTold) {
  begin();
  RawClient client(*mac);
  expectConnects(3);
  ASSERT_TRUE(succeeded(client.setChargeLimit(100)));
  expectMachine("enforcement    nothing: the limit is 100 %\n");
  ASSERT_TRUE(succeeded(client.setChargeLimit(80)));
  ASSERT_TRUE(succeeded(client.call("clearChargeLimitWithReply:")));
  expectMachine("enforcement    nothing: the limit was cleared\n");
  const std::string said = mac->app({"status"}).out;
  EXPECT_EQ(
      said.find("! Connecting has armed the limit. Before, nothing was enforced: the limit was "
                "cleared.\n"),
      0U)
      << said;
  ASSERT_TRUE(succeeded(client.call("resetAllSMCKeysWithReply:")));
  expectMachine("enforcement    nothing: everything was reset\n");
  ASSERT_TRUE(succeeded(client.setChargeLimit(100)));
  expectStatus({"enforced       nothing: the limit is 100 %, charging is left to macOS\n"});
}

TEST_F(StatusTest, ALimitThatIsOutOfRangeIsTold) {
  begin();
  application.reset();
  ASSERT_EQ(mac->app({"quit"}).status, 0);
  ASSERT_TRUE(mac->becomes([](const auto& status) { return status.at("helperPid").is_null(); }));
  nlohmann::json state = mac->state();
  state["chargeLimit"] = 10;
  writeFile(mac->stateFile(), state.dump());
  expectStatus({"limit          10 %\nenforced       nothing: a limit of 10 % is out of range\n"});
}

// A watcher is connected already, so its own questions change nothing.
TEST_F(StatusTest, AWatcherIsToldEveryChange) {
  begin();
  RawClient client(*mac);
  expectConnects(3);
  auto watching = std::async(std::launch::async, [this] {
    return run("korvel-app", {"--root", mac->root(), "watch", "--every", "0.02", "--for", "8"});
  });
  const auto expectDone = [](const std::optional<RawReply>& reply) {
    ASSERT_TRUE(succeeded(reply));
    pauseFor(0.4);  // Time for the watcher to look, on a busy computer too.
  };
  expectConnects(4);
  pauseFor(0.4);
  expectDone(client.call("clearChargeLimitWithReply:"));
  expectDone(client.setChargeLimit(80));
  expectDone(client.call("releaseLimitUntilFullThenRestoreWithReply:"));
  expectDone(client.call("cancelTopUpWithReply:"));
  expectDone(client.call("resetAllSMCKeysWithReply:"));
  expectDone(client.setChargeLimit(100));
  const std::string said = watching.get().out;
  std::size_t at = 0;
  for (const char* words :
       {"limit 80 %, charging stops at 80 %", ", last outcome pause:ok\n",
        "limit 80 %, nothing: the limit was cleared, charging is left to macOS\n",
        "limit 80 %, charging stops at 80 %",
        "limit 80 %, topping off to full, or for two hours, then back to 80 %\n",
        "limit 80 %, charging stops at 80 %",
        "limit 80 %, nothing: everything was reset, charging is left to macOS\n",
        "limit 100 %, nothing: the limit is 100 %, charging is left to macOS\n"}) {
    const std::size_t found = said.find(words, at);
    ASSERT_NE(found, std::string::npos) << words << "\nin\n" << said;
    at = found + 1;
  }
}

}  // namespace processtests
