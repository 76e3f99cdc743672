// The one state that a person has to know of, in every case that a virtual Mac can be in.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Tests/process/Mac.h"

namespace processtests {
namespace {

/// Asks until the doctor names this state, because a helper needs its time to start and to decide.
Result diagnosed(const Mac& mac, const std::string& state, const std::string& timeout = "5") {
  const double deadline = clockNow() + 30;
  for (;;) {
    const Result said = run("korvel-app", {"--root", mac.root(), "--timeout", timeout, "doctor"});
    if (said.out.starts_with(state + ": ") || clockNow() > deadline) return said;
    pauseFor(0.05);
  }
}

void expectDiagnosis(const Mac& mac, const std::string& state,
                     const std::vector<std::string>& words, const std::string& timeout = "5") {
  const Result said = diagnosed(mac, state, timeout);
  EXPECT_TRUE(said.out.starts_with(state + ": ")) << said.out;
  EXPECT_EQ(said.out.find('\n'), said.out.size() - 1) << "it is one line";
  expectSays(said, state == "in-order" ? 0 : 1, words);
}

/// A machine at 85 %, whose application stays connected and has asked for 80 %.
class DoctorOfALimitTest : public testing::Test {
 protected:
  void begin(const std::vector<std::string>& fault) {
    mac.emplace(MacOptions{.speed = 20});
    mac->tell({"set", "battery", "85"});
    if (!fault.empty()) mac->tell(fault);
    application.emplace("korvel-app", std::vector<std::string>{"--root", mac->root(), "watch"});
    ASSERT_EQ(mac->app({"set-limit", "80"}).status, 0);
  }

  std::optional<Mac> mac;
  std::optional<Background> application;
};

TEST(DoctorTest, NoMachineIsUp) {
  const Mac mac({.up = false});
  expectDiagnosis(mac, "no-machine", {"no virtual Mac is up in " + mac.root()});
}

TEST(DoctorTest, AHelperThatEndsAsItStartsIsNotStarted) {
  const Mac mac({.speed = 20, .helper = "exit 0"});
  expectDiagnosis(mac, "not-started", {"no helper stays up", "install it again"}, "0.5");
}

TEST(DoctorTest, AHelperThatStandsStillGivesNoAnswer) {
  const Mac mac;
  ASSERT_EQ(mac.app({"ping"}).status, 0);
  mac.tell({"kill", "STOP"});
  expectDiagnosis(mac, "no-answer", {"no reply in time", "End its process"}, "0.5");
  mac.tell({"kill", "CONT"});
  expectDiagnosis(mac, "in-order", {});
}

TEST(DoctorTest, AHelperWithoutATeamRefusesEveryClient) {
  const Mac mac({.speed = 20});
  mac.tell({"fault", "helper-without-team", "on"});
  mac.tell({"kill"});
  expectDiagnosis(mac, "no-team", {"refuses every client", "Sign the helper with a Developer ID"});
}

TEST(DoctorTest, AStrangerIsRefused) {
  const Mac mac;
  const Result said = mac.app({"--as", "other-team", "doctor"});
  expectSays(said, 1, {"refused: the helper refused this program", "Sign it as com.korvel.app"});
  const Result unknown = mac.app({"--as", "nobody", "doctor"});
  expectSays(unknown, 2, {"identity \"nobody\" is unknown"});
}

TEST(DoctorTest, AnotherVersionRunsThanIsInstalledUntilItEnds) {
  const Mac mac({.speed = 20});
  expectDiagnosis(mac, "in-order", {});
  mac.tell({"install", "2.1.0"});
  expectDiagnosis(mac, "other-version", {"helper 2.0.0 runs, and 2.1.0 is installed", "quit"});
  ASSERT_EQ(mac.app({"quit"}).status, 0);
  expectDiagnosis(mac, "in-order", {});
}

TEST(DoctorTest, AMacWithoutControlSaysSo) {
  const Mac mac({.profile = "no-control"});
  expectDiagnosis(mac, "no-capability", {"finds no control of charging"});
}

TEST_F(DoctorOfALimitTest, IsInOrderWhereTheLimitIsHeld) {
  begin({});
  expectDiagnosis(*mac, "in-order", {"limit 80 %, charging stops at 80 %"});
}

TEST_F(DoctorOfALimitTest, ARefusedWriteIsToldWithItsCode) {
  begin({"fault", "smc-write-result", "CHTE", "134", "on"});
  expectDiagnosis(*mac, "not-applied",
                  {"the limit is not applied", "smcResult=134", "The key cannot be written",
                   "What to do: Expect no control"});
  mac->tell({"fault", "smc-write-result", "CHTE", "134", "off"});
  expectDiagnosis(*mac, "in-order", {});
}

TEST_F(DoctorOfALimitTest, AWriteThatTheFirmwareForgetsIsTold) {
  begin({"fault", "smc-silent-refusal", "CHTE", "on"});
  expectDiagnosis(*mac, "not-applied", {"SMC write unverified", "Expect the limit not to hold"});
}

TEST(DoctorTest, AProgramGetsOneObject) {
  const Mac mac({.profile = "no-control"});
  const Result said = mac.app({"--json", "doctor"});
  EXPECT_EQ(said.status, 1);
  const auto object = nlohmann::json::parse(said.out, nullptr, false);
  ASSERT_TRUE(object.is_object()) << said.out;
  EXPECT_EQ(object["ok"], false);
  EXPECT_EQ(object["state"], "no-capability");
  EXPECT_FALSE(object["text"].get<std::string>().empty());
  EXPECT_FALSE(object["remedy"].get<std::string>().empty());
}

}  // namespace
}  // namespace processtests
