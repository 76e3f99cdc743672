// One file for somebody who was not there: all of it, and nothing private.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Tests/process/Mac.h"

namespace processtests {
namespace {

using nlohmann::json;

json bundleOf(const Mac& mac, const std::vector<std::string>& options = {}) {
  std::vector<std::string> words{"bundle"};
  words.insert(words.end(), options.begin(), options.end());
  const Result said = mac.command(words);
  EXPECT_EQ(said.status, 0) << said.err;
  json bundle = json::parse(said.out, nullptr, false);
  EXPECT_TRUE(bundle.is_object()) << said.out;
  return bundle;
}

bool tells(const json& lines, const std::string& words) {
  return std::ranges::any_of(lines, [&](const json& line) {
    return line.get<std::string>().find(words) != std::string::npos;
  });
}

TEST(BundleTest, HoldsWhatSomebodyWhoWasNotThereNeeds) {
  const Mac mac({.profile = "older-pair"});
  ASSERT_EQ(mac.app({"set-limit", "70"}).status, 0);
  const json bundle = bundleOf(mac);
  EXPECT_EQ(bundle["versions"], (json{{"installed", "2.0.0"}, {"running", "2.0.0"}}));
  EXPECT_EQ(bundle["machine"]["profile"], "older-pair");
  EXPECT_TRUE(bundle["machine"]["smcKeys"].contains("CH0B"));
  EXPECT_EQ(bundle["machine"]["sleepDisabled"], false);
  EXPECT_TRUE(bundle["machine"]["assertions"].is_array());
  EXPECT_TRUE(bundle["profile"]["smc"]["keys"].contains("CH0B"));
  EXPECT_EQ(bundle["helper"]["state"]["chargeLimit"], 70);
  EXPECT_EQ(bundle["helper"]["capabilities"]["preTahoeCharging"], true);
  EXPECT_EQ(json::parse(bundle["stateFile"].get<std::string>())["chargeLimit"], 70);
  EXPECT_TRUE(tells(bundle["log"], "capability probe"));
  EXPECT_FALSE(tells(bundle["log"], " disk "));
  EXPECT_TRUE(tells(bundle["journal"], "chargeLimit=70"));
}

TEST(BundleTest, NamesNeitherTheUserNorThePlace) {
  const Mac mac;
  mac.tell({"set", "battery", "60"});
  const Result said = mac.command({"bundle"});
  ASSERT_EQ(said.status, 0);
  EXPECT_EQ(said.out.find(mac.root()), std::string::npos);
  EXPECT_EQ(json::parse(said.out)["machine"]["root"], "ROOT");
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  const char* home = std::getenv("HOME");
  if (home != nullptr && std::string(home).size() > 1) {
    EXPECT_EQ(said.out.find(home), std::string::npos);
  }
}

TEST(BundleTest, AsksNothingWhereThatIsWanted) {
  const Mac mac;
  ASSERT_EQ(mac.app({"set-limit", "70"}).status, 0);
  ASSERT_TRUE(mac.becomes(
      [&](const json&) { return mac.journalCount("client disconnected (count=0)") == 1; }));
  const auto connects = mac.status()["enforcement"]["connects"];
  const json bundle = bundleOf(mac, {"--ask-nothing"});
  EXPECT_EQ(bundle["helper"]["problem"], "it was not asked");
  EXPECT_EQ(bundle["machine"]["enforcement"]["connects"], connects);
  EXPECT_EQ(mac.status()["enforcement"]["connects"], connects);
}

TEST(BundleTest, AMachineThatIsDownLeavesItsRecords) {
  const Mac mac;
  ASSERT_EQ(mac.app({"set-limit", "70"}).status, 0);
  mac.tell({"down"});
  const json bundle = bundleOf(mac);
  EXPECT_NE(bundle["machine"]["problem"].get<std::string>().find("no virtual Mac is up"),
            std::string::npos);
  EXPECT_EQ(json::parse(bundle["stateFile"].get<std::string>())["chargeLimit"], 70);
  EXPECT_TRUE(tells(bundle["log"], "shutdownGracefully"));
  EXPECT_TRUE(bundle["profile"]["smc"]["keys"].contains("CHTE"));
}

TEST(BundleTest, AHelperThatStandsStillIsNotWaitedForTwice) {
  const Mac mac;
  ASSERT_EQ(mac.app({"ping"}).status, 0);
  mac.tell({"kill", "STOP"});
  const json bundle = bundleOf(mac, {"--timeout", "0.2"});
  EXPECT_EQ(bundle["helper"]["state"]["problem"], "no reply in time");
  EXPECT_EQ(bundle["versions"]["running"], nullptr);
  mac.tell({"kill", "CONT"});
}

TEST(BundleTest, IsWrittenToAFileOrRefusedWithItsName) {
  const Mac mac;
  const std::string file = mac.root() + "/bundle.json";
  expectSays(mac.command({"bundle", file}), 0, {file + " has it all"});
  EXPECT_TRUE(json::parse(readFile(file))["journal"].is_array());
  const std::string nowhere = mac.root() + "/nowhere/bundle.json";
  expectSays(mac.command({"--json", "bundle", nowhere}), 1,
             {"\"ok\":false", nowhere + " cannot be written"});
}

TEST(BundleTest, WhereNoMachineEverWasIsNothingToTell) {
  const Mac mac({.up = false});
  expectSays(mac.command({"bundle"}), 1, {"no virtual Mac is up", "there is no journal of one"});
}

}  // namespace
}  // namespace processtests
