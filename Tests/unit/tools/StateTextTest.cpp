#include "VirtualMac/Tools/StateText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace virtualmac {
namespace {

using Loop = Enforcement::Loop;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// Describes a Mac with the newer keys whose limit of 80 % is enforced.
Told enforced(Loop loop = Loop::Running) {
  Told told;
  told.state.lastWriteAt = korvel::Date{0};
  told.capabilities.tahoeCharging = true;
  told.capabilities.tahoeDischarge = true;
  told.enforcement.loop = loop;
  if (loop == Loop::Running) told.enforcement.limit = 80;
  return told;
}

/// Returns the row "enforced".
std::string sentence(const Told& told) {
  const std::string text = stateText(told);
  const std::size_t begin = text.find("\nenforced       ") + 16;
  return text.substr(begin, text.find('\n', begin) - begin);
}

constexpr const char* rule =
    "charging stops at 80 %, goes on below 75 %, while the adapter is in and the charge can be "
    "read";

}  // namespace

TEST(StateTextTest, AFreshHelperHasNothingToEnforce) {
  Told told;
  told.capabilities.tahoeCharging = true;
  told.enforcement.loop = Loop::NotArmed;
  EXPECT_EQ(stateText(told),
            "limit          80 %\n"
            "enforced       nothing: no limit was ever set\n"
            "last outcome   none\n"
            "charging       by CHTE\n"
            "discharge      cannot be controlled on this Mac\n"
            "last write     never\n"
            "helper         unknown version\n");
  told.state.lastWriteAt = korvel::Date{0};
  EXPECT_EQ(sentence(told), "nothing: not armed since the helper started");
  told.state.chargeLimit = 10;
  EXPECT_EQ(sentence(told), "nothing: a limit of 10 % is out of range");
}

TEST(StateTextTest, BannersComeFirst) {
  Told told = enforced();
  told.state.lastWriteVerified = false;
  told.state.lastDischargeAbortReason = "Stopped: the battery is hot.";
  told.state.sleepDisabledByKorvel = true;
  EXPECT_THAT(stateText(told),
              StartsWith("! The last change of the charging hardware did not take hold.\n"
                         "! Stopped: the battery is hot.\n"
                         "! The Mac is kept awake with its lid closed.\n"
                         "limit          80 %\n"));
  EXPECT_THAT(stateLine(told),
              HasSubstr(", Stopped: the battery is hot., kept awake with the lid closed"));
}

TEST(StateTextTest, ALoopThatRunsIsToldByItsRuleAndItsLastOutcome) {
  Told told = enforced();
  EXPECT_EQ(sentence(told), rule);
  EXPECT_EQ(stateLine(told), std::string("limit 80 %, ") + rule);
  told.enforcement.outcome = "pause:ok";
  EXPECT_THAT(stateText(told), HasSubstr("last outcome   pause:ok\n"));
  EXPECT_EQ(stateLine(told), std::string("limit 80 %, ") + rule + ", last outcome pause:ok");
}

// A record that could not be replaced has another limit than the one enforced.
TEST(StateTextTest, TheLimitThatIsEnforcedIsTheLoops) {
  Told told = enforced();
  told.enforcement.limit = 70;
  EXPECT_THAT(sentence(told), StartsWith("charging stops at 70 %, goes on below 65 %"));
  told.enforcement.limit.reset();
  EXPECT_EQ(sentence(told), rule);
}

TEST(StateTextTest, AMacWithoutControlEnforcesNothingWhateverTheLoopDoes) {
  for (const Loop loop : {Loop::Running, Loop::NotArmed, Loop::Cleared}) {
    Told told = enforced(loop);
    told.capabilities = {};
    told.enforcement.outcome = "pause:AppleSMC service unavailable";
    told.enforcement.failing = true;
    EXPECT_EQ(
        sentence(told),
        "nothing can be: the helper found neither CHTE, nor CH0B and CH0C, nor a charge limit "
        "of macOS");
    EXPECT_THAT(stateText(told), HasSubstr("last outcome   pause:AppleSMC service unavailable\n"));
  }
}

TEST(StateTextTest, AWriteThatFailsIsToldWithItsError) {
  Told told = enforced();
  told.state.lastWriteVerified = false;
  told.enforcement.outcome = "pause:kSMCWriteKey failed (kIOReturn=0, smcResult=130)";
  told.enforcement.failing = true;
  told.enforcement.lastError = {94.5, "SMCWriter: kSMCWriteKey CHTE smcResult=130"};
  const std::string failing =
      "holding 80 % is tried, and fails: pause:kSMCWriteKey failed (kIOReturn=0, smcResult=130)";
  EXPECT_EQ(sentence(told), failing);
  EXPECT_THAT(
      stateText(told),
      HasSubstr(
          "last error     SMCWriter: kSMCWriteKey CHTE smcResult=130 (at 00:01:34, 94.500 s)\n"));
  EXPECT_EQ(stateLine(told), "limit 80 %, " + failing) << "the reason once";
  told.state.lastWriteVerified = true;
  EXPECT_EQ(sentence(told), rule) << "a later write took hold";
}

TEST(StateTextTest, AWriteThatIsIgnoredIsToldWithTheLastError) {
  Told told = enforced();
  told.state.lastWriteVerified = false;
  told.enforcement.outcome = "pause:ok";
  told.enforcement.lastError = {5, "HelperImpl: SMC write unverified"};
  const std::string ignored =
      "holding 80 % is tried, but the last write of the gate did not take hold";
  EXPECT_EQ(sentence(told), ignored);
  EXPECT_EQ(stateLine(told), "limit 80 %, " + ignored +
                                 ", last outcome pause:ok, last error HelperImpl: SMC write "
                                 "unverified (at 00:00:05, 5.000 s)");
}

TEST(StateTextTest, ADischargeIsToldAsWhatTheHardwareWasTold) {
  Told told = enforced();
  told.state.forceDischargeActive = true;
  const std::string discharging =
      "discharging to 80 %: the hardware was told to draw nothing from the adapter";
  EXPECT_EQ(sentence(told), discharging);
  told.capabilities.tahoeCharging = false;
  EXPECT_EQ(sentence(told), discharging) << "that needs no control of charging";
  told.enforcement.loop = Loop::OutOfRange;
  EXPECT_EQ(sentence(told), discharging + "; nothing watches it, as no loop runs");
}

TEST(StateTextTest, ATopOffIsToldAndSoIsALoopThatWorksAgainstIt) {
  Told told = enforced(Loop::ToppingOff);
  told.state.topUpActive = true;
  EXPECT_EQ(sentence(told), "topping off to full, or for two hours, then back to 80 %");
  told.state.lastWriteVerified = false;
  EXPECT_EQ(sentence(told),
            "topping off to full, or for two hours, then back to 80 %, but the last write of the "
            "gate did not take hold");
  told = enforced();
  told.state.topUpActive = true;
  EXPECT_EQ(sentence(told), std::string(rule) + "; a connection armed this during a top-off");
}

TEST(StateTextTest, WhatIsHandedBackIsLeftToMacOSWhenTheGateObeyed) {
  for (const auto& [loop, reason] :
       {std::pair{Loop::Cleared, "nothing: the limit was cleared"},
        std::pair{Loop::Suspended, "nothing: nobody connected for 30 s"},
        std::pair{Loop::HandedBack, "nothing: the limit is 100 %"}}) {
    Told told = enforced(loop);
    EXPECT_EQ(sentence(told), reason + std::string(", charging is left to macOS"));
    told.state.lastWriteVerified = false;
    EXPECT_EQ(sentence(told),
              reason + std::string(", the last write of the gate did not take hold"));
    told.enforcement.stopError = "no";
    EXPECT_EQ(sentence(told), reason + std::string(", but not all was done: no"));
  }
  EXPECT_EQ(sentence(enforced(Loop::Reset)),
            "nothing: everything was reset, charging is left to macOS");
  Told told = enforced(Loop::OutOfRange);
  told.enforcement.limit = 10;
  EXPECT_EQ(sentence(told), "nothing: a limit of 10 % is out of range");
}

// The resume at 100 % has no outcome; the last one belongs to the earlier limit.
TEST(StateTextTest, HandingBackGoesOnUntilItIsVerified) {
  Told told = enforced();
  told.enforcement.limit = 100;
  told.enforcement.outcome = "pause:no";
  told.enforcement.failing = true;
  EXPECT_EQ(sentence(told), "handing charging back to macOS, as the limit is 100 %");
  told.state.lastWriteVerified = false;
  EXPECT_EQ(sentence(told),
            "handing charging back to macOS is tried, but the last write of the gate did not take "
            "hold");
}

TEST(StateTextTest, AskingThatArmsTheLimitSaysSo) {
  Told told = enforced();
  told.enforcement.armedByConnection = true;
  told.before = enforced(Loop::Cleared).enforcement;
  EXPECT_THAT(stateText(told), StartsWith("! Connecting has armed the limit. Before, nothing was "
                                          "enforced: the limit was cleared.\n"));
  told.before = enforced(Loop::Running).enforcement;
  EXPECT_THAT(stateText(told), Not(HasSubstr("Connecting"))) << "it ran before";
  told.before = enforced(Loop::Cleared).enforcement;
  told.enforcement.armedByConnection = false;
  EXPECT_THAT(stateText(told), Not(HasSubstr("Connecting"))) << "somebody set a limit";
}

}  // namespace virtualmac
