#include "VirtualMac/Server/EnforcementTrail.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace virtualmac {
namespace {

using Loop = Enforcement::Loop;

/// Writes a journal like that of the virtual Mac's processes.
class EnforcementTrailTest : public testing::Test {
 protected:
  void say(const std::string& text, const std::string& level = "default",
           const std::string& category = "HelperImpl") {
    trail.hear({seconds++, "log", category + ' ' + level + " \"" + text + '"'});
  }
  void reply(const std::string& text) { trail.hear({seconds++, "reply", text}); }
  void process(const std::string& text) { trail.hear({seconds++, "proc", text}); }

  void start() { process("helper 412 started"); }
  void connect(const std::string& andThen = "") {
    say("client connected (count=1)");
    if (!andThen.empty()) say(andThen);
  }
  void setLimit(int limit) {
    say("setChargeLimit(" + std::to_string(limit) + ") pid=7 signingID=a team=T cdHash=");
    reply("setChargeLimit ok");
  }
  [[nodiscard]] Loop loop() const { return trail.now().loop; }

  EnforcementTrail trail;
  double seconds = 0;
};

TEST_F(EnforcementTrailTest, ALifeBeginsUnarmedAndEndsWithTheHelper) {
  EXPECT_EQ(loop(), Loop::NoHelper);
  start();
  EXPECT_EQ(loop(), Loop::NotArmed);
  connect("client connect — arming polling loop at limit=80");
  say("charge enforcement pause:ok");
  say("kSMCWriteKey CHTE smcResult=130", "fault", "SMCWriter");
  EXPECT_EQ(loop(), Loop::Running);
  for (const char* end : {"helper 412 killed by signal 9", "helper 412 exited 0"}) {
    process(end);
    EXPECT_EQ(loop(), Loop::NoHelper);
    EXPECT_EQ(trail.now().outcome, std::nullopt);
    EXPECT_EQ(trail.now().lastError, std::nullopt);
    EXPECT_EQ(trail.now().connects, 1U) << "that goes on";
    start();
  }
  process("helper 412 cut off: an oversized frame");
  process("signal 19 to helper 412");
  EXPECT_EQ(loop(), Loop::NotArmed);
}

TEST_F(EnforcementTrailTest, AConnectionArmsTheSavedLimit) {
  start();
  connect("client connect — arming polling loop at limit=75");
  EXPECT_EQ(loop(), Loop::Running);
  EXPECT_EQ(trail.now().limit, 75);
  EXPECT_TRUE(trail.now().armedByConnection);
  setLimit(80);
  EXPECT_FALSE(trail.now().armedByConnection);
}

// A call is audited on one thread and done on another; a refusal drops the limit it asked for.
TEST_F(EnforcementTrailTest, TheLimitIsTheOneThatWasAskedForAndAccepted) {
  start();
  say("setChargeLimit(19) pid=7 signingID=a team=T cdHash=");
  say("setChargeLimit(70) pid=7 signingID=a team=T cdHash=");
  say("setChargeLimit(60) pid=7 signingID=a team=T cdHash=");
  EXPECT_EQ(loop(), Loop::NotArmed) << "asked for, not done";
  reply("setChargeLimit failed 400 \"Charge limit must be between 20 and 100 (got 19).\"");
  EXPECT_EQ(loop(), Loop::NotArmed);
  reply("setChargeLimit ok");
  EXPECT_EQ(trail.now().limit, 70);
  reply("setChargeLimit ok");
  EXPECT_EQ(trail.now().limit, 60);
}

TEST_F(EnforcementTrailTest, EveryWayToStopIsTold) {
  const std::vector<std::pair<Loop, std::function<void()>>> ways{
      {Loop::Cleared, [this] { reply("clearChargeLimit ok"); }},
      {Loop::Reset, [this] { reply("resetAllSMCKeys ok"); }},
      {Loop::Suspended,
       [this] {
         say("all clients gone — suspending enforcement, resuming normal charging (saved limit=80 "
             "retained)");
       }},
      {Loop::HandedBack,
       [this] { say("100% target — returned charging to macOS and stopped enforcement"); }},
      {Loop::OutOfRange,
       [this] { say("pollOnce: target 10 out of range — stopping loop", "fault"); }},
      {Loop::ToppingOff, [this] { reply("releaseLimitUntilFullThenRestore ok"); }},
      {Loop::TopOffFailed,
       [this] { reply("releaseLimitUntilFullThenRestore failed 500 \"no\""); }}};
  for (const auto& [why, stop] : ways) {
    start();
    setLimit(80);
    stop();
    EXPECT_EQ(loop(), why);
    EXPECT_FALSE(reasonText(why).empty());
    connect("client connect — arming polling loop at limit=80");
    EXPECT_EQ(loop(), Loop::Running) << "the next connection arms it again";
    EXPECT_EQ(trail.now().stopError, std::nullopt);
  }
}

TEST_F(EnforcementTrailTest, WhyChargingWasNotHandedBackIsKept) {
  start();
  setLimit(80);
  reply("clearChargeLimit failed 500 \"kSMCWriteKey failed (kIOReturn=0, smcResult=130)\"");
  EXPECT_EQ(loop(), Loop::Cleared);
  EXPECT_EQ(trail.now().stopError, "kSMCWriteKey failed (kIOReturn=0, smcResult=130)");
  say("resetAllSMCKeys pid=7 signingID=a team=T cdHash=");
  say("resetAll: CHTE failed — no", "error");
  reply("resetAllSMCKeys ok");
  EXPECT_EQ(trail.now().stopError, "CHTE failed — no");
  say("resetAllSMCKeys pid=7 signingID=a team=T cdHash=");
  reply("resetAllSMCKeys ok");
  EXPECT_EQ(trail.now().stopError, std::nullopt);
}

TEST_F(EnforcementTrailTest, ATopOffEndsInTheLimit) {
  for (const char* end :
       {"top-off complete — restored limit 80",
        "top-off restore loop timed out without reaching 100% — restoring limit"}) {
    start();
    reply("releaseLimitUntilFullThenRestore ok");
    say(end);
    EXPECT_EQ(loop(), Loop::Running) << end;
  }
  start();
  reply("releaseLimitUntilFullThenRestore ok");
  reply("cancelTopUp ok");
  EXPECT_EQ(loop(), Loop::Running);
}

// Cancelling without a top-off succeeds, but starts nothing.
TEST_F(EnforcementTrailTest, ACancelWithoutATopOffStartsNothing) {
  const std::vector<std::function<void()>> ends{
      [] {},
      [this] { reply("clearChargeLimit ok"); },
      [this] { reply("resetAllSMCKeys ok"); },
      [this] { say("all clients gone — suspending enforcement, resuming"); },
      [this] {
        setLimit(100);
        say("100% target — returned charging to macOS and stopped enforcement");
      },
      [this] {
        say("forceDischarge(1) pid=7 signingID=a team=T cdHash=");
        say("forceDischarge: arming watchdog polling loop at limit=80");
        reply("forceDischarge ok");
        say("100% target — returned charging to macOS and stopped enforcement");
      }};
  for (std::size_t index = 0; index < ends.size(); ++index) {
    start();
    if (index > 0) reply("releaseLimitUntilFullThenRestore ok");
    ends[index]();
    const Loop before = loop();
    reply("cancelTopUp ok");
    EXPECT_EQ(loop(), before) << index;
  }
}

TEST_F(EnforcementTrailTest, ADischargeThatIsRefusedLeavesATopOffAlone) {
  start();
  reply("releaseLimitUntilFullThenRestore ok");
  say("forceDischarge(1) pid=7 signingID=a team=T cdHash=");
  reply("forceDischarge failed 400 \"Battery is already at the 80% limit.\"");
  say("forceDischarge(0) pid=7 signingID=a team=T cdHash=");
  reply("forceDischarge ok");
  reply("cancelTopUp ok");
  EXPECT_EQ(loop(), Loop::Running);
}

TEST_F(EnforcementTrailTest, TheLastOutcomeAndTheLastErrorAreKept) {
  start();
  setLimit(80);
  say("charge enforcement pause:ok");
  EXPECT_EQ(trail.now().outcome, "pause:ok");
  EXPECT_FALSE(trail.now().failing);
  say("kSMCWriteKey CHTE smcResult=130", "fault", "SMCWriter");
  say("charge enforcement resume:no \"reason\" — limit is NOT being applied", "error");
  EXPECT_EQ(trail.now().outcome, "resume:no \"reason\"");
  EXPECT_TRUE(trail.now().failing);
  ASSERT_TRUE(trail.now().lastError);
  EXPECT_EQ(trail.now().lastError->time, 5);
  EXPECT_EQ(trail.now().lastError->text,
            "HelperImpl: charge enforcement resume:no \"reason\" — limit is NOT being applied");
  say("charge enforcement resume:ok");
  EXPECT_FALSE(trail.now().failing);
  EXPECT_TRUE(trail.now().lastError) << "it was";
}

TEST_F(EnforcementTrailTest, ItIsReadBackFromItsJSON) {
  EXPECT_EQ(enforcementFrom(enforcementJSON(trail.now())), trail.now());
  start();
  connect("client connect — arming polling loop at limit=80");
  say("charge enforcement pause:no — limit is NOT being applied", "error");
  EXPECT_EQ(enforcementFrom(enforcementJSON(trail.now())), trail.now());
  reply("clearChargeLimit failed 500 \"no\"");
  EXPECT_EQ(enforcementFrom(enforcementJSON(trail.now())), trail.now());
  for (const char* wrong : {"{}", R"({"loop":"lost"})", "5", R"({"loop":5})"}) {
    EXPECT_EQ(enforcementFrom(nlohmann::json::parse(wrong)), std::nullopt) << wrong;
  }
}

TEST_F(EnforcementTrailTest, OneLineTellsIt) {
  EXPECT_EQ(enforcementText(trail.now()), "nothing: no helper");
  start();
  setLimit(80);
  EXPECT_EQ(enforcementText(trail.now()), "at 80 %, last outcome none");
  say("charge enforcement pause:ok");
  EXPECT_EQ(enforcementText(trail.now()), "at 80 %, last outcome pause:ok");
  reply("clearChargeLimit ok");
  EXPECT_EQ(enforcementText(trail.now()), "nothing: the limit was cleared");
}

}  // namespace
}  // namespace virtualmac
