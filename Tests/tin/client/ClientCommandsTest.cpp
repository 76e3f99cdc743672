#include <csignal>

#include "Tests/process/RawClient.h"
#include "Tests/tin/client/ClientMac.h"

namespace processtests {

namespace {

/// Each command of the sample client; the machine's hardware, the helper's record or the journal
/// tells whether it was carried out.
class ClientCommandsTest : public ClientMac {
 protected:
  template <class Fact>
  [[nodiscard]] bool shows(Fact fact) {
    return mac().becomes(fact);
  }
  [[nodiscard]] bool isCharging() {
    return shows([](const auto& status) { return !status.at("chargingInhibited"); });
  }
  [[nodiscard]] bool isPaused() {
    return shows([](const auto& status) { return status.at("chargingInhibited") == true; });
  }
  [[nodiscard]] std::string refusal(int percent) {
    return "Charge limit must be between 20 and 100 (got " + std::to_string(percent) +
           "). (KorvelHelperError 400)";
  }
};

class OlderClientCommandsTest : public ClientCommandsTest {
 protected:
  OlderClientCommandsTest() { chooseProfile("older-pair"); }
};

std::size_t countIn(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

}  // namespace

TEST_F(ClientCommandsTest, StateShowsTheHelpersRecord) {
  succeed({"set-limit", "65"});
  const Result result = client({"state"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(
      result.out.starts_with("limit            65 % (band 5 %)\n"
                             "discharging      no\n"
                             "topping off      no\n"
                             "sleep disabled   no\n"
                             "last write       Jan 1, 2026 at 12:0"))
      << result.out;
  EXPECT_NE(result.out.find("\u202f"
                            "AM, verified\nhelper version   2.0.0\n"),
            std::string::npos)
      << result.out;
  EXPECT_EQ(mac().journalCount("getState ok", 1), 1U);
}

TEST_F(ClientCommandsTest, CapabilitiesAreThoseOfTheMac) {
  const Result result = client({"capabilities"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out,
            "nativeCharging     no\npreTahoeCharging   no\npreTahoeDischarge  no\n"
            "tahoeCharging      yes\ntahoeDischarge     yes\n");
}

TEST_F(OlderClientCommandsTest, CapabilitiesAreThoseOfTheMac) {
  const Result result = client({"capabilities"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out,
            "nativeCharging     no\npreTahoeCharging   yes\npreTahoeDischarge  yes\n"
            "tahoeCharging      no\ntahoeDischarge     no\n");
}

TEST_F(ClientCommandsTest, PingTellsTheHelpersProcess) {
  const Result result = client({"ping"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, std::to_string(mac().helper().value_or(0)) + "\n");
}

TEST_F(ClientCommandsTest, ALimitIsHeldAndTakenBack) {
  mac().tell({"set", "battery", "75"});
  succeed({"set-limit", "60"});
  EXPECT_TRUE(isPaused());
  EXPECT_EQ(mac().state().at("chargeLimit"), 60);
  succeed({"clear-limit"});
  EXPECT_TRUE(isCharging());
  EXPECT_EQ(mac().journalCount("clearChargeLimit ok", 1), 1U);
}

TEST_F(ClientCommandsTest, TheHelperSaysWhyItRefusesALimit) {
  for (const int percent : {20, 100}) succeed({"set-limit", std::to_string(percent)});
  for (const int percent : {0, 19, 101, 255})
    fail({"set-limit", std::to_string(percent)}, refusal(percent));
  EXPECT_EQ(mac().state().at("chargeLimit"), 100);
}

TEST_F(ClientCommandsTest, WhatIsNoPercentageIsNotSent) {
  for (const char* word : {"256", "-1", "99999999999999999999"})
    fail({"set-limit", word}, "The limit is a percentage.");
  EXPECT_EQ(mac().journalCount("setChargeLimit"), 0U);
  // A word without a number counts as 0.
  fail({"set-limit", "much"}, refusal(0));
}

TEST_F(ClientCommandsTest, ADischargeBeginsAndEnds) {
  mac().tell({"set", "battery", "80"});
  succeed({"set-limit", "50"});
  succeed({"discharge", "on"});
  EXPECT_TRUE(shows([](const auto& status) { return status.at("inflowInhibited") == true; }));
  EXPECT_NE(client({"state"}).out.find("discharging      yes\n"), std::string::npos);
  succeed({"discharge", "off"});
  EXPECT_TRUE(shows([](const auto& status) { return status.at("inflowInhibited") == false; }));
}

TEST_F(ClientCommandsTest, AMacIsKeptAwake) {
  succeed({"keep-awake", "on"});
  EXPECT_TRUE(shows([](const auto& status) { return status.at("sleepDisabled") == true; }));
  EXPECT_NE(client({"state"}).out.find("sleep disabled   yes\n"), std::string::npos);
  succeed({"keep-awake", "off"});
  EXPECT_TRUE(shows([](const auto& status) { return status.at("sleepDisabled") == false; }));
  fail({"keep-awake", "perhaps"}, "Say on or off.");
}

TEST_F(ClientCommandsTest, ATopOffBeginsAndIsGivenUp) {
  mac().tell({"set", "battery", "75"});
  succeed({"set-limit", "60"});
  ASSERT_TRUE(isPaused());
  succeed({"top-off"});
  EXPECT_TRUE(isCharging());
  EXPECT_EQ(mac().state().at("topUpActive"), true);
  succeed({"cancel-top-off"});
  EXPECT_TRUE(isPaused());
  EXPECT_EQ(mac().state().at("topUpActive"), false);
}

TEST_F(ClientCommandsTest, AResetGivesChargingBack) {
  mac().tell({"set", "battery", "75"});
  succeed({"set-limit", "60"});
  ASSERT_TRUE(isPaused());
  succeed({"reset"});
  EXPECT_TRUE(isCharging());
  EXPECT_EQ(mac().journalCount("resetAllSMCKeys ok", 1), 1U);
}

TEST_F(ClientCommandsTest, QuitEndsTheHelperInOrder) {
  const auto helper = mac().helper();
  ASSERT_TRUE(helper);
  succeed({"quit"});
  EXPECT_EQ(mac().journalCount("helper " + std::to_string(*helper) + " exited 0", 1), 1U);
}

// The watcher has no other connection than its first. Its message after the helper's end starts
// the next helper.
TEST_F(ClientCommandsTest, AWatcherShowsWhatChangesAndOutlivesTheHelper) {
  auto watcher = clientBeside({"watch"});
  ASSERT_GE(mac().journalCount("getState ok", 1), 1U);
  const pid_t process = lastClient();
  RawClient other(mac());
  ASSERT_TRUE(succeeded(other.setChargeLimit(55)));
  const std::size_t soFar = mac().journalCount("getState ok");
  ASSERT_GE(mac().journalCount("getState ok", soFar + 2), soFar + 2);
  mac().tell({"kill"});
  ASSERT_TRUE(shows([](const auto& status) { return status.at("helperStarts") == 2; }));
  const std::size_t before = mac().journalCount("getState ok");
  ASSERT_GE(mac().journalCount("getState ok", before + 1), before + 1);
  ASSERT_EQ(::kill(process, SIGTERM), 0);
  const Result result = watcher.get();
  EXPECT_EQ(result.status, -1) << "the signal ends it";
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(countIn(result.out, "limit            80 %"), 1U) << result.out;
  EXPECT_GE(countIn(result.out, "limit            55 %"), 1U) << result.out;
}

TEST_F(ClientCommandsTest, TheUsageIsToldWithoutAHelper) {
  const Result asked = client({"--help"});
  EXPECT_EQ(asked.status, 0);
  EXPECT_TRUE(asked.out.starts_with("usage: korvel-client COMMAND\n")) << asked.out;
  const Result wrong = client({"dance"});
  EXPECT_EQ(wrong.status, 2);
  EXPECT_EQ(wrong.out, "");
  EXPECT_EQ(wrong.err, asked.out);
  const Result former = client({"limit", "80"});
  EXPECT_EQ(former.status, 2);
  EXPECT_EQ(former.err, "\"limit\" is now \"set-limit\".\n");
  EXPECT_EQ(mac().journalCount("connected"), 0U);
}

TEST_F(ClientCommandsTest, VersionAndCompilerAreToldWithoutAHelper) {
  const Result asked = client({"--version"});
  EXPECT_EQ(asked.status, 0);
  EXPECT_TRUE(asked.out.starts_with("korvel-client 2.0.0, Clang ")) << asked.out;
  EXPECT_EQ(mac().journalCount("connected"), 0U);
}

}  // namespace processtests
