#include <gtest/gtest.h>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

namespace {

void expectSays(const Result& result, int status, const std::vector<std::string>& words) {
  EXPECT_EQ(result.status, status) << result.out << result.err;
  for (const std::string& word : words)
    EXPECT_NE((result.out + result.err).find(word), std::string::npos)
        << "no \"" << word << "\" in: " << result.out << result.err;
}

}  // namespace

TEST(CommandLineTest, HelpListsTheCommands) {
  expectSays(run("virtual-mac", {"--help"}), 0, {"up", "down", "status", "fault", "journal"});
  expectSays(run("virtual-mac", {"up", "--help"}), 0, {"--profile", "--speed", "--foreground"});
  expectSays(run("korvel-app", {"--help"}), 0, {"set-limit", "discharge", "watch", "--as"});
  expectSays(run("KorvelHelper", {"--help"}), 0, {"virtual-mac starts it"});
}

TEST(CommandLineTest, AWordThatIsNoCommandIsAnsweredWithTheNearest) {
  expectSays(run("virtual-mac", {"stauts"}), 2, {"\"stauts\"", "did you mean \"status\"?"});
  expectSays(run("korvel-app", {"set-limt", "80"}), 2, {"did you mean \"set-limit\"?"});
  expectSays(run("virtual-mac", {"xyzzy"}), 2, {"allowed: "});
}

TEST(CommandLineTest, NothingWorksWithoutAMachine) {
  const std::string nowhere = "/tmp/korvel-process-nowhere";
  expectSays(run("virtual-mac", {"--root", nowhere, "status"}), 1, {"no virtual Mac is up in"});
  expectSays(run("virtual-mac", {"--root", nowhere, "down"}), 1, {"no virtual Mac is up in"});
  expectSays(run("virtual-mac", {"--root", nowhere, "journal"}), 1, {"no virtual Mac is up in"});
  expectSays(run("korvel-app", {"--root", nowhere, "ping"}), 1, {"no virtual Mac is up in"});
}

TEST(CommandLineTest, AnUnknownProfileIsAnsweredWithTheKnownOnes) {
  expectSays(
      run("virtual-mac", {"--root", "/tmp/korvel-process-nowhere", "up", "--profile", "mac"}), 2,
      {"mac", "newer-keys"});
}

TEST(CommandLineTest, ARootThatIsTooLongForASocketIsNamed) {
  const std::string root = "/tmp/korvel-process-" + std::string(100, 'x');
  expectSays(run("virtual-mac", {"--root", root, "up"}), 1, {"too long"});
  std::filesystem::remove_all(root);
}

TEST(CommandLineTest, ARootThatCannotBeMadeIsNamed) {
  expectSays(run("virtual-mac", {"--root", "/proc/nowhere", "up"}), 1, {"/proc/nowhere: "});
}

TEST(CommandLineTest, TwoMachinesDoNotShareARoot) {
  const Mac mac;
  expectSays(mac.command({"up"}), 1, {"already up in " + mac.root()});
}

TEST(CommandLineTest, ADiskSurvivesFromOneMachineToTheNext) {
  const Mac mac;
  ASSERT_EQ(mac.app({"set-limit", "44"}).status, 0);
  ASSERT_EQ(mac.command({"down"}).status, 0);
  const Result up = mac.command({"up", "--profile", "older-pair"});
  expectSays(up, 0, {"older-pair is up at 1x"});
  expectSays(mac.app({"status"}), 0, {"limit          44 %", "CH0B and CH0C"});
  EXPECT_EQ(mac.command({"down"}).status, 0);
}

TEST(CommandLineTest, AValueBelowZeroIsAValue) {
  const Mac mac;
  expectSays(mac.command({"set", "temperature", "-5"}), 0, {});
  expectSays(mac.command({"status"}), 0, {"-5.0 C"});
}

TEST(CommandLineTest, DownReturnsWhenTheNextMachineCanStart) {
  const Mac mac;
  for (int round = 0; round < 10; ++round) {
    ASSERT_EQ(mac.command({"down"}).status, 0);
    expectSays(mac.command({"up"}), 0, {"is up at"});
  }
}

TEST(CommandLineTest, StatusShowsTheMachineAtOneGlance) {
  const Mac mac;
  mac.tell({"set", "battery", "61"});
  mac.tell({"set", "adapter", "off"});
  mac.tell({"set", "lid", "closed"});
  expectSays(mac.command({"status"}), 0,
             {"battery        61 %", "adapter        disconnected",
              "gate           charging allowed", "inflow         flows", "lid            closed",
              "SleepDisabled  0", "helper         not running"});
  const auto status = mac.status();
  EXPECT_NEAR(status.at("batteryPercent").get<double>(), 61, 0.5);
  EXPECT_EQ(status.at("adapterConnected"), false);
  EXPECT_EQ(status.at("lidClosed"), true);
}

TEST(CommandLineTest, AWrongValueIsAnsweredWithTheAllowedOnes) {
  const Mac mac;
  expectSays(mac.command({"set", "battery", "101"}), 2, {"\"101\"", "0 to 100"});
  expectSays(mac.command({"set", "battery", "half"}), 2, {"\"half\"", "0 to 100"});
  expectSays(mac.command({"set", "lid", "opne"}), 2, {"did you mean \"open\"?"});
  expectSays(mac.command({"set", "batery", "50"}), 2, {"did you mean \"battery\"?"});
  expectSays(mac.command({"set", "battery"}), 2, {"a value"});
  expectSays(mac.command({"speed", "0"}), 2, {"0.01 to 10000"});
  expectSays(mac.command({"kill", "HUP"}), 2, {"\"HUP\"", "TERM"});
  expectSays(mac.command({"kill"}), 1, {"not running"});
  expectSays(mac.command({"fault", "smc-latancy", "1", "on"}), 2, {"smc-latency"});
  expectSays(mac.command({"fault", "smc-latency", "soon", "on"}), 2, {"\"soon\""});
  expectSays(mac.command({"fault", "smc-latency"}), 2, {"on or off"});
  expectSays(mac.app({"discharge", "maybe"}), 2, {"on"});
  expectSays(mac.app({"set-limit", "300"}), 2, {"255"});
  expectSays(mac.app({"--as", "ap", "ping"}), 1, {"did you mean \"app\"?"});
}

TEST(CommandLineTest, FaultsAreListedAndShownWhenOn) {
  const Mac mac;
  expectSays(mac.command({"fault", "list"}), 0, {"smc-latency SECONDS", "disk-full"});
  mac.tell({"fault", "smc-latency", "0.5", "on"});
  expectSays(mac.command({"status"}), 0, {"faults         smc-latency 0.5"});
  EXPECT_EQ(mac.status().at("faults"), nlohmann::json({"smc-latency 0.5"}));
  mac.tell({"fault", "smc-latency", "off"});
  expectSays(mac.command({"status"}), 0, {"faults         none"});
}

TEST(CommandLineTest, TheJournalCanBeCutToWhatIsAskedFor) {
  const Mac mac;
  ASSERT_EQ(mac.app({"set-limit", "80"}).status, 0);
  const Result log = mac.command({"log", "--category", "Boot"});
  expectSays(log, 0, {"KorvelHelper starting"});
  EXPECT_EQ(log.out.find("HelperImpl"), std::string::npos);
  const Result replies = mac.command({"journal", "--kinds", "reply,disk"});
  expectSays(replies, 0, {"setChargeLimit ok", "state.json"});
  EXPECT_EQ(replies.out.find(" log "), std::string::npos);
  expectSays(mac.command({"log", "--level", "fault"}), 0, {});
  expectSays(mac.command({"log", "--level", "loud"}), 2, {"loud"});
  const Result first = mac.command({"--json", "journal", "--until", "started"});
  expectSays(first, 0, {});
  EXPECT_EQ(nlohmann::json::parse(first.out).at("kind"), "proc");
}

TEST(CommandLineTest, FollowingEndsAtTheTextOrTheTime) {
  const Mac mac;
  expectSays(mac.command({"journal", "--follow", "--until", "never", "--timeout", "0.2"}), 1, {});
  ASSERT_EQ(mac.app({"ping"}).status, 0);
  expectSays(mac.command({"journal", "--follow", "--until", "ping", "--timeout", "20"}), 0,
             {"ping"});
}

TEST(CommandLineTest, TheApplicationTellsThePersonWhatIsEnforcedAndWhy) {
  const Mac mac;
  expectSays(mac.app({"status"}), 0, {"nothing: no limit was ever set", "by CHTE"});
  ASSERT_EQ(mac.app({"set-limit", "80"}).status, 0);
  expectSays(mac.app({"status"}), 0, {"charging stops at 80 %, goes on below 75 %"});
  ASSERT_EQ(mac.app({"top-off"}).status, 0);
  expectSays(mac.app({"status"}), 0, {"charging to full once, then back to 80 %"});
  ASSERT_EQ(mac.app({"cancel-top-off"}).status, 0);
  expectSays(mac.app({"set-limit", "5"}), 1, {"error 400: Charge limit must be between"});
  expectSays(mac.app({"--json", "set-limit", "5"}), 1, {R"("ok":false)", R"("code":400)"});
  EXPECT_EQ(nlohmann::json::parse(mac.app({"--json", "status"}).out).at("state").at("chargeLimit"),
            80);
  EXPECT_EQ(nlohmann::json::parse(mac.app({"state"}).out).at("sailingBand"), 5);
  ASSERT_EQ(mac.app({"clear-limit"}).status, 0);
  expectSays(mac.app({"reset"}), 0, {"ok"});
}

}  // namespace processtests
