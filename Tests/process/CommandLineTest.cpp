#include <gtest/gtest.h>

#include <array>
#include <future>
#include <sstream>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

namespace {

void quit(const Mac& mac) {
  ASSERT_EQ(mac.app({"quit"}).status, 0);
  ASSERT_TRUE(mac.becomes([](const auto& status) { return status.at("helperPid").is_null(); }));
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
  expectSays(run("virtual-mac", {"--root", nowhere, "fault", "smc-missing", "on"}), 1,
             {"no virtual Mac is up in"});
}

TEST(CommandLineTest, FaultsAreListedWithoutAMachineToo) {
  const Mac mac;
  const std::vector<std::string> nowhere = {"--root", "/tmp/korvel-process-nowhere", "fault",
                                            "list"};
  const Result without = run("virtual-mac", nowhere);
  EXPECT_EQ(without.status, 0) << without.err;
  EXPECT_EQ(without.out, mac.command({"fault", "list"}).out);
  EXPECT_NE(without.out.find("smc-latency SECONDS"), std::string::npos);
  std::vector<std::string> asJSON = nowhere;
  asJSON.emplace_back("--json");
  EXPECT_EQ(run("virtual-mac", asJSON).out, mac.command({"fault", "list", "--json"}).out);
}

TEST(CommandLineTest, OutputThatCannotBeWrittenIsAFailure) {
  const Mac mac;
  ASSERT_EQ(mac.app({"ping"}).status, 0) << "the journal needs something to tell";
  const auto at = [&mac](std::vector<std::string> words) {
    words.insert(words.begin(), {"--root", mac.root()});
    return words;
  };
  const auto expectFails = [&at](const std::string& program, std::vector<std::string> words) {
    const Result result = runUnheard(program, at(std::move(words)), 10);
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find(program + ": the output cannot be written: "), std::string::npos)
        << result.err;
  };
  expectFails("virtual-mac", {"--help"});
  expectFails("virtual-mac", {"profiles"});
  expectFails("virtual-mac", {"fault", "list"});
  expectFails("virtual-mac", {"status", "--json"});
  expectFails("virtual-mac", {"journal"});
  expectFails("virtual-mac", {"log", "--follow"});
  expectFails("korvel-app", {"--help"});
  expectFails("korvel-app", {"ping"});
  expectFails("korvel-app", {"watch"});
  expectFails("korvel-app", {"session"});
  EXPECT_EQ(runUnheard("virtual-mac", at({"--json", "stauts"})).status, 2)
      << "what is worse is told";
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
  EXPECT_EQ(mac.command({"down"}).status, 0) << "the last one would be left behind";
}

TEST(CommandLineTest, StatusShowsTheMachineAtOneGlance) {
  const Mac mac;
  expectSays(mac.command({"status"}), 0, {"helper         pid "});
  quit(mac);
  mac.tell({"set", "battery", "61"});
  mac.tell({"set", "adapter", "off"});
  mac.tell({"set", "lid", "closed"});
  expectSays(mac.command({"status"}), 0,
             {"battery        61 %", "adapter        disconnected",
              "gate           charging allowed", "inflow         flows", "lid            closed",
              "SleepDisabled  0", "helper         not running"});
  const auto status = mac.status();
  EXPECT_NEAR(status.at("batteryPercent").get<double>(), 61, 0.5);
  EXPECT_EQ(mac.journalCount("battery set to 61 %", 1), 1U)
      << "what a person sets is journalled too";
  mac.tell({"touch"});
  EXPECT_EQ(mac.journalCount("touched", 1), 1U);
  EXPECT_EQ(status.at("adapterConnected"), false);
  EXPECT_EQ(status.at("lidClosed"), true);
}

TEST(CommandLineTest, AWrongValueIsAnsweredWithTheAllowedOnes) {
  const Mac mac;
  expectSays(mac.command({"set", "battery", "101"}), 2, {"\"101\"", "0 to 100"});
  expectSays(mac.command({"set", "battery", "half"}), 2, {"\"half\"", "0 to 100"});
  expectSays(mac.command({"set", "lid", "opne"}), 2, {"did you mean \"open\"?"});
  expectSays(mac.command({"set", "adapter", "in"}), 2, {"did you mean \"on\"?"});
  expectSays(mac.command({"set", "touch", "on"}), 2, {"setting \"touch\" is unknown"});
  expectSays(mac.app({"clear"}), 2, {"did you mean \"clear-limit\"?"});
  expectSays(mac.command({"set", "batery", "50"}), 2, {"did you mean \"battery\"?"});
  expectSays(mac.command({"set", "battery"}), 2, {"a value"});
  expectSays(mac.command({"speed", "0"}), 2, {"0.01 to 10000"});
  expectSays(mac.command({"kill", "HUP"}), 2, {"\"HUP\"", "TERM"});
  expectSays(mac.command({"kill", "KILL", "TERM"}), 2, {"one signal, not also \"TERM\""});
  expectSays(mac.command({"speed", "x"}), 2, {"speed \"x\" is not allowed", "0.01 to 10000"});
  quit(mac);
  expectSays(mac.command({"kill"}), 1, {"not running"});
  expectSays(mac.app({"watch", "--for", "-1"}), 2,
             {"korvel-app: --for: \"-1\" is not a number from 0 to 1000000"});
  expectSays(mac.command({"fault", "smc-latancy", "1", "on"}), 2, {"smc-latency"});
  expectSays(mac.command({"fault", "smc-latency", "soon", "on"}), 2, {"\"soon\""});
  expectSays(mac.command({"fault", "smc-latency"}), 2, {"on or off"});
  expectSays(mac.app({"discharge", "maybe"}), 2, {"on"});
  for (const char* word : {"abc", "300", "80.5", "-1", "", " 80"})
    expectSays(mac.app({"set-limit", word}), 2,
               {'"' + std::string(word) + "\" is not a whole number from 20 to 100"});
  expectSays(mac.app({"--as", "ap", "ping"}), 2, {"did you mean \"app\"?"});
  expectSays(mac.command({"set", "idle-sleep", "0.5"}), 2, {"\"0.5\"", "whole numbers from 0"});
  expectSays(mac.command({"set", "native-limit", "80.5"}), 2, {"\"80.5\"", "whole numbers from 0"});
  expectSays(mac.command({"journal", "--timeout", "1"}), 2, {"--follow"});
  expectSays(mac.command({"log", "--timeout", "1"}), 2, {"--follow"});
}

TEST(CommandLineTest, WhatThisMacDoesNotHaveIsNotSet) {
  const Mac desktop({.profile = "desktop"});
  expectSays(desktop.command({"set", "lid", "closed"}), 1, {"this Mac has no lid"});
  expectSays(desktop.command({"set", "battery", "50"}), 1, {"this Mac has no battery"});
  expectSays(desktop.command({"set", "temperature", "50"}), 1, {"this Mac has no battery"});
  expectSays(desktop.command({"set", "native-limit", "80"}), 1, {"no charge limit"});
  EXPECT_EQ(desktop.status().at("nativeLimit"), 0);
  const Mac notebook({.profile = "newer-keys-and-native"});
  notebook.tell({"set", "native-limit", "80"});
  EXPECT_EQ(notebook.status().at("nativeLimit"), 80);
  notebook.tell({"set", "adapter", "off"});
  expectSays(notebook.command({"set", "adapter", "renegotiate"}), 1, {"no adapter is connected"});
  notebook.tell({"set", "adapter", "on"});
  notebook.tell({"set", "adapter", "renegotiate"});
}

TEST(CommandLineTest, ARequestOfTheWrongTypesIsRefusedAndTheMachineGoesOn) {
  const Mac mac;
  LineSocket door(mac.controlPath());
  for (const char* wrong :
       {R"({"command":"identify","identity":5})", R"({"command":"identify"})",
        R"({"command":"identify","identity":["app"]})", R"({"command":5})", R"({"command":null})",
        R"({"command":"set","arguments":{}})", R"({"command":"set","arguments":[5]})", "5", "[]",
        "null", "\"down\"", "{", ""}) {
    door.send(wrong);
    const auto answer = nlohmann::json::parse(door.receive(20).value_or("null"));
    ASSERT_TRUE(answer.is_object()) << wrong;
    EXPECT_EQ(answer.at("ok"), false) << wrong;
    EXPECT_EQ(answer.at("usage"), true) << wrong;
  }
  expectSays(mac.command({"set", "battery", "\xff"}), 2, {"is not allowed"});
  EXPECT_EQ(mac.status().at("profile"), "newer-keys");
}

TEST(CommandLineTest, ErrorsAreJSONForPrograms) {
  const Mac mac;
  const auto expectError = [](const Result& result, int status, const std::string& words) {
    EXPECT_EQ(result.status, status) << result.out << result.err;
    EXPECT_EQ(result.err, "");
    const auto error = nlohmann::json::parse(result.out, nullptr, false);
    ASSERT_TRUE(error.is_object()) << result.out;
    EXPECT_EQ(error.at("ok"), false);
    EXPECT_NE(error.at("error").get<std::string>().find(words), std::string::npos) << result.out;
  };
  const std::vector<std::string> nowhere = {"--json", "--root", "/tmp/korvel-process-nowhere"};
  const auto at = [&nowhere](std::vector<std::string> words) {
    words.insert(words.begin(), nowhere.begin(), nowhere.end());
    return words;
  };
  expectError(run("virtual-mac", at({"status"})), 1, "no virtual Mac is up in");
  expectError(run("virtual-mac", at({"journal"})), 1, "no virtual Mac is up in");
  expectError(run("virtual-mac", at({"timeline", "out.svg"})), 1, "cannot be read");
  expectError(run("virtual-mac", at({"up", "--profile", "mac"})), 2, "newer-keys");
  expectError(run("virtual-mac", {"--json", "run", "/no/such/story.yaml"}), 2, "story.yaml");
  expectError(run("korvel-app", at({"ping"})), 1, "no virtual Mac is up in");
  expectError(run("virtual-mac", {"--json", "stauts"}), 2, "did you mean \"status\"?");
  expectError(run("virtual-mac", {"--json", "up", "--speed", "never"}), 2, "--speed");
  expectError(mac.command({"--json", "set", "lid", "opne"}), 2, "did you mean \"open\"?");
  expectError(mac.app({"--json", "--as", "ap", "ping"}), 2, "did you mean \"app\"?");
  expectError(mac.app({"--json", "--as", "other-team", "ping"}), 1, "ended the connection");
  quit(mac);
  expectError(mac.command({"--json", "kill"}), 1, "not running");
}

TEST(CommandLineTest, QuitSaysWhenItWasRefused) {
  const Mac mac;
  expectSays(mac.app({"--as", "other-team", "quit"}), 1, {"the helper ended the connection"});
  const auto helper = mac.helper();
  ASSERT_TRUE(helper);
  expectSays(mac.app({"quit"}), 0, {"ok"});
  EXPECT_TRUE(mac.becomes([](const auto& status) { return status.at("helperPid").is_null(); }));
}

TEST(CommandLineTest, AWatcherWhoIsRefusedSaysSoOnceAndDoesNotHammer) {
  const Mac mac;
  const Result watched = mac.app({"--as", "other-team", "watch", "--for", "1.5", "--every", "0.3"});
  EXPECT_EQ(watched.status, 0) << watched.err;
  EXPECT_EQ(watched.out, "the helper ended the connection\n");
  EXPECT_GE(mac.journalCount(" cut off: ", 1), 1U);
  EXPECT_LE(mac.journalCount(" cut off: "), 6U);
}

TEST(CommandLineTest, RebootsAtOnceAllComeToAnEnd) {
  const Mac mac;
  ASSERT_EQ(mac.app({"ping"}).status, 0);
  std::array<std::future<Result>, 3> reboots;
  for (auto& reboot : reboots)
    reboot = std::async(std::launch::async, [&mac] { return mac.command({"reboot"}); });
  for (auto& reboot : reboots) EXPECT_EQ(reboot.get().status, 0);
  EXPECT_EQ(mac.app({"ping"}).status, 0);
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

TEST(CommandLineTest, WhatIsNoJournalLineIsPassedOver) {
  const Mac mac;
  ASSERT_EQ(mac.app({"ping"}).status, 0);
  ASSERT_EQ(mac.command({"down"}).status, 0);
  const std::string path = mac.root() + "/journal";
  writeFile(path, "first\n\n" + readFile(path) + "a second line of a text\n12.345\n");
  const Result all = mac.command({"--json", "journal"});
  ASSERT_EQ(all.status, 0) << all.err;
  std::istringstream lines(all.out);
  std::size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count)
    EXPECT_TRUE(nlohmann::json::parse(line).at("seconds").is_number()) << line;
  EXPECT_GE(count, 5U);
  EXPECT_EQ(all.out.find("second line"), std::string::npos);
}

TEST(CommandLineTest, FollowingEndsAtTheTextOrTheTime) {
  const Mac mac;
  expectSays(mac.command({"journal", "--follow", "--until", "never", "--timeout", "0.2"}), 1, {});
  ASSERT_EQ(mac.app({"ping"}).status, 0);
  expectSays(mac.command({"journal", "--follow", "--until", "ping", "--timeout", "20"}), 0,
             {"ping"});
}

// The record keeps the values of an old file, but the helper ignores the heat pause and enforces a
// band of 0 as 1.
TEST(CommandLineTest, TheApplicationTellsTheBandThatIsEnforced) {
  const Mac mac;
  ASSERT_EQ(mac.app({"set-limit", "80"}).status, 0);
  quit(mac);
  nlohmann::json state = mac.state();
  state["sailingBand"] = 0;
  state["heatPauseActive"] = true;
  writeFile(mac.stateFile(), state.dump());
  expectSays(mac.app({"status"}), 0, {"charging stops at 80 %, goes on below 79 %"});
}

TEST(CommandLineTest, TheApplicationTellsThePersonWhatIsEnforcedAndWhy) {
  const Mac mac;
  expectSays(mac.app({"status"}), 0, {"nothing: no limit was ever set", "by CHTE"});
  ASSERT_EQ(mac.app({"set-limit", "80"}).status, 0);
  expectSays(mac.app({"status"}), 0, {"charging stops at 80 %, goes on below 75 %"});
  ASSERT_EQ(mac.app({"top-off"}).status, 0);
  expectSays(mac.app({"status"}), 0, {"; a connection armed this during a top-off"});
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
