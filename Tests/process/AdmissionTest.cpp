#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

namespace {

class AdmissionTest : public testing::TestWithParam<const char*> {};

}  // namespace

// Only the application of the helper's own team is served. Any other caller is cut off at its first
// message, which is never delivered; earlier clients notice nothing.
TEST_P(AdmissionTest, AStrangerIsCutOffBeforeItsFirstMessage) {
  const Mac mac;
  RawClient genuine(mac);
  ASSERT_TRUE(succeeded(genuine.setChargeLimit(75)));
  const Result stranger = mac.app({"--as", GetParam(), "set-limit", "33"});
  EXPECT_EQ(stranger.status, 1);
  EXPECT_NE(stranger.err.find("the helper ended the connection"), std::string::npos)
      << stranger.err;
  // The helper tells the machine and hangs up; either may arrive first.
  EXPECT_TRUE(mac.becomes([&](const auto&) {
    return mac.journalCount("cut off: does not satisfy the code-signing requirement") == 1;
  }));
  EXPECT_EQ(mac.journalCount("setChargeLimit(33)"), 0U);
  const auto state = genuine.getState();
  ASSERT_TRUE(state);
  EXPECT_EQ(state->at("chargeLimit"), 75);
  EXPECT_TRUE(mac.becomes([&](const auto&) {
    return mac.journalCount("client disconnected (count=1)") == 1;
  })) << "the core counts the stranger out again";
}

INSTANTIATE_TEST_SUITE_P(, AdmissionTest,
                         testing::Values("other-identifier", "other-team", "development", "ad-hoc",
                                         "unsigned", "apple", "helper"),
                         [](const testing::TestParamInfo<const char*>& tested) {
                           std::string name = tested.param;
                           std::erase(name, '-');
                           return name;
                         });

TEST(AdmissionByPidTest, AProgramThatTheMachineDoesNotKnowIsCutOff) {
  const Mac mac;
  RawClient nobody(mac, std::nullopt);
  nobody.send(callBody(1, "pingWithReply:").frame());
  EXPECT_TRUE(nobody.isCutOff());
  EXPECT_TRUE(mac.becomes([&](const auto&) {
    return mac.journalCount("cut off: does not satisfy the code-signing requirement") == 1;
  }));
}

// A client's identity ends with its process, so the helper cannot judge the message of a client
// that is gone. It counts as having left, not as cut off.
TEST(AdmissionByPidTest, AClientThatGivesUpWaitingHasLeftAndIsNotCutOff) {
  const Mac mac;
  RawClient patient(mac);
  ASSERT_TRUE(succeeded(patient.setChargeLimit(75)));
  const std::uint32_t waiting = stopHelper(mac, patient);
  auto journal = mac.follow();
  const Result impatient =
      run("korvel-app", {"--root", mac.root(), "--timeout", "0.3", "set-limit", "33"});
  EXPECT_EQ(impatient.status, 1);
  EXPECT_NE(impatient.err.find("no reply in time"), std::string::npos) << impatient.err;
  mac.tell({"kill", "CONT"});
  ASSERT_TRUE(journal.waitFor("client disconnected (count=1)"));
  const std::optional<RawReply> late = patient.receive();
  ASSERT_TRUE(late);
  EXPECT_EQ(late->ticket, waiting) << "who waited is served";
  std::vector<std::string> told;
  for (const JournalLine& line : mac.journal())
    if (line.kind == "app" && line.text.find(" identifies as ") == std::string::npos)
      told.push_back(line.text.substr(line.text.rfind(' ') + 1));
  EXPECT_EQ(told, (std::vector<std::string>{"connected", "connected", "disconnected"}));
  EXPECT_EQ(mac.journalCount("setChargeLimit(33)"), 0U) << "nobody's message is delivered";
}

TEST(AdmissionByPidTest, TheAuditLineNamesTheCaller) {
  const Mac mac;
  RawClient client(mac);
  ASSERT_TRUE(succeeded(client.setChargeLimit(75)));
  const std::string line = "setChargeLimit(75) pid=" + std::to_string(::getpid()) +
                           " signingID=com.korvel.app team=ABCDE12345 cdHash=";
  EXPECT_EQ(mac.journalCount(line, 1), 1U);
}

namespace {

class OwnSignatureTest : public testing::TestWithParam<const char*> {};

}  // namespace

// A helper that does not know its own team refuses every client and logs each refusal.
TEST_P(OwnSignatureTest, AHelperWithoutATeamRefusesEverybodyAndKeepsRunning) {
  const Mac mac;
  // The helper of this boot has looked at its signature; that of the next finds the fault.
  ASSERT_TRUE(mac.becomes([&](const auto&) { return mac.journalCount("HelperImpl boot") == 1; }));
  mac.tell({"fault", GetParam(), "on"});
  mac.tell({"reboot"});
  EXPECT_EQ(mac.app({"ping"}).status, 1);
  const auto pid = mac.helper();
  ASSERT_TRUE(pid);
  EXPECT_EQ(mac.app({"set-limit", "50"}).status, 1);
  EXPECT_EQ(mac.helper(), pid);
  EXPECT_EQ(mac.journalCount("team=\"", 1), 1U);  // The start line names an empty team.
  EXPECT_TRUE(mac.becomes([&](const auto&) {
    return mac.journalCount(
               "Listener fault \"Release build with unreadable Team ID — refusing "
               "XPC connection\"") == 2;
  }));
  EXPECT_EQ(mac.journalCount("client connected (count="), 0U);
  EXPECT_EQ(mac.journalCount("setChargeLimit("), 0U);
}

INSTANTIATE_TEST_SUITE_P(, OwnSignatureTest,
                         testing::Values("helper-without-team", "helper-unsigned"),
                         [](const testing::TestParamInfo<const char*>& tested) {
                           std::string name = tested.param;
                           std::erase(name, '-');
                           return name;
                         });

// A quote in the helper's own team ends the requirement's text too early. Such a requirement would
// protect nothing, so every client is refused and the log says why.
TEST(OwnTeamTest, AHelperWhoseTeamSpoilsTheRequirementRefusesEverybodyAndSaysSo) {
  const std::string profile = "/tmp/korvel-process-" + std::to_string(::getpid()) + "-profile.json";
  writeFile(profile, R"({"description": "A notebook whose helper has an odd team.",
    "identities": [{"name": "helper", "anchorAppleGeneric": true, "team": "AB\"CD",
                    "identifier": "com.korvel.app.helper"}]})");
  const Mac mac({.profile = profile});
  std::filesystem::remove(profile);
  EXPECT_EQ(mac.app({"ping"}).status, 1);
  EXPECT_EQ(mac.app({"set-limit", "50"}).status, 1);
  EXPECT_TRUE(mac.becomes([&](const auto&) {
    return mac.journalCount(
               "Listener fault \"code-signing requirement does not parse — refusing "
               "XPC connection\"") == 2;
  }));
  EXPECT_EQ(mac.journalCount("client connected (count="), 0U);
  EXPECT_EQ(mac.status().at("helperStarts"), 1);
}

}  // namespace processtests
