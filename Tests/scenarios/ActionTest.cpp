#include "VirtualMac/Scenarios/Action.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>
#include <vector>

#include "Tests/scenarios/BareStage.h"

namespace virtualmac {
namespace {

using testing::HasSubstr;

class ActionTest : public testing::Test {
 protected:
  void perform(const std::string& text) {
    const auto action = Action::parse(text);
    ASSERT_TRUE(action) << text << ": " << action.error();
    action->perform(stage, [](const Answer&) {});
    stage.machine().advance(0);
  }
  static std::string errorOf(const std::string& text) {
    const auto action = Action::parse(text);
    return action ? "" : action.error();
  }

  /// The version that the bundle states.
  std::string version() { return *mac.bundleInformation.at("CFBundleShortVersionString").text(); }

  BareStage stage;
  Machine& mac = stage.machine();
};

TEST_F(ActionTest, RequestsReachTheNamedClient) {
  perform("set-limit 80");
  perform("clear-limit by second");
  perform("discharge on");
  perform("discharge off");
  perform("keep-awake on by second");
  perform("top-off");
  perform("cancel-top-off");
  perform("reset");
  perform("quit");
  EXPECT_EQ(stage.asked,
            (std::vector<std::string>{"app set-limit 80", "second clear-limit 0", "app discharge 1",
                                      "app discharge 0", "second keep-awake 1", "app top-off 0",
                                      "app cancel-top-off 0", "app reset 0", "app quit 0"}));
  EXPECT_TRUE(Action::parse("reset")->isRequest());
  EXPECT_FALSE(Action::parse("quit")->isRequest());
  EXPECT_FALSE(Action::parse("lid open")->isRequest());
}

TEST_F(ActionTest, ClientsComeAndGo) {
  perform("connect");
  perform("connect stranger as other-team");
  EXPECT_EQ(stage.clients, (std::vector<std::string>{"app", "stranger"}));
  EXPECT_THAT(stage.journal().text(), HasSubstr("stranger connected as other-team"));
  perform("disconnect");
  perform("kill-app stranger");
  EXPECT_TRUE(stage.clients.empty());
}

TEST_F(ActionTest, WhatThePersonDoesReachesTheMachine) {
  perform("adapter off");
  EXPECT_FALSE(mac.adapter.isConnected());
  perform("adapter on");
  EXPECT_TRUE(mac.adapter.isConnected());
  perform("lid closed");
  EXPECT_TRUE(mac.lid.isClosed());
  perform("lid open");
  EXPECT_FALSE(mac.lid.isClosed());
  perform("display on");
  EXPECT_TRUE(mac.lid.displayConnected());
  perform("battery 33");
  EXPECT_EQ(mac.battery.percent(), 33);
  perform("temperature 46.5");
  EXPECT_EQ(mac.battery.temperatureHundredths(), 4650);
  perform("sleep-disabled on");
  EXPECT_TRUE(mac.power.sleepDisabled());
  mac.smc.setValue("CHIE", {8});
  perform("adapter renegotiate");
  EXPECT_FALSE(mac.smc.inflowInhibited());
}

TEST_F(ActionTest, SleepAndWake) {
  perform("sleep");
  mac.advance(1);
  EXPECT_TRUE(mac.power.isAsleep());
  perform("wake");
  mac.advance(1);
  EXPECT_FALSE(mac.power.isAsleep());
}

TEST_F(ActionTest, FaultsAreSwitchedOnAndOff) {
  perform("fault smc-silent-refusal CHTE on");
  EXPECT_TRUE(mac.smc.key("CHTE")->silentlyRefuses);
  perform("fault smc-silent-refusal CHTE off");
  EXPECT_FALSE(mac.smc.key("CHTE")->silentlyRefuses);
  const auto wrong = Action::parse("fault smc-silent-refusal QQQQ on");
  ASSERT_TRUE(wrong);
  EXPECT_THROW(wrong->perform(stage, [](const Answer&) {}), std::runtime_error);
}

TEST_F(ActionTest, WhatIsDoneToTheMachineIsALineOfTheJournal) {
  const std::vector<std::pair<std::string, std::string>> deeds{
      {"battery 33", "battery set to 33 %"},
      {"temperature 46.5", "temperature set to 46.5 C"},
      {"temperature free", "temperature free"},
      {"ambient 30", "ambient set to 30 C"},
      {"idle-sleep 10", "idle sleep after 10 min"},
      {"display on", "display connected"},
      {"touch", "touched"},
      {"fault smc-silent-refusal CHTE on", "fault smc-silent-refusal CHTE on"},
      {"fault smc-silent-refusal CHTE off", "fault smc-silent-refusal CHTE off"},
      {"update 2.1.0", "helper version 2.1.0 installed"},
      {"install \"2.2 beta\"", "helper version 2.2 beta installed"}};
  for (const auto& [action, line] : deeds) {
    stage.journal().clear();
    perform(action);
    EXPECT_EQ(stage.journal().text("mac"), "0.000 mac   " + line + '\n') << action;
  }
}

TEST_F(ActionTest, TheHelperIsStartedSignalledAndUpdated) {
  perform("helper start");
  EXPECT_TRUE(stage.running);
  perform("kill TERM");
  EXPECT_THAT(stage.journal().text(), HasSubstr("signal 15"));
  perform("kill");
  EXPECT_THAT(stage.journal().text(), HasSubstr("signal 9"));
  perform("update 2.1.0");
  EXPECT_EQ(version(), "2.1.0");
  EXPECT_TRUE(stage.running);
}

TEST_F(ActionTest, AnInstalledHelperDoesNotDisturbTheOneThatRuns) {
  perform("helper start");
  perform("install 2.1.0");
  EXPECT_EQ(version(), "2.1.0");
  EXPECT_TRUE(stage.running);
  EXPECT_EQ(stage.journal().text("proc"), "");
}

TEST_F(ActionTest, ACallIsOfAMethodThatTheHelperLacks) {
  const auto call = Action::parse("call setSchedule by newer");
  ASSERT_TRUE(call) << call.error();
  EXPECT_TRUE(call->isRequest());
  call->perform(stage, [](const Answer&) {});
  EXPECT_THAT(stage.asked, testing::ElementsAre("newer call 0"));
  EXPECT_THAT(Action::parse("call pingWithReply:").error(), HasSubstr("say ping"));
  EXPECT_THAT(Action::parse("call").error(), HasSubstr("a method is missing"));
}

// On a stage in real time, an update also waits a while for the old helper's end.
TEST_F(ActionTest, AnUpdateWaitsFiveSecondsAndTheGraceForTheOldHelper) {
  stage.endSeconds = 7;
  stage.running = true;
  const auto update = Action::parse("update 2.1.0");
  ASSERT_TRUE(update);
  EXPECT_THROW(update->perform(stage, [](const Answer&) {}), std::runtime_error);
  EXPECT_EQ(version(), "2.0.0");
  EXPECT_EQ(stage.now(), 5);
  stage.grace = 3;
  perform("update 2.1.0");
  EXPECT_EQ(version(), "2.1.0");
  EXPECT_TRUE(stage.running);
}

TEST_F(ActionTest, DefectsSayWhatIsAllowed) {
  EXPECT_THAT(errorOf("conect"),
              HasSubstr("did you mean \"connect\"? (allowed: connect, disconnect"));
  EXPECT_EQ(errorOf("adapter sideways"),
            "adapter \"sideways\" is unknown (allowed: on, off, renegotiate)");
  EXPECT_THAT(errorOf("set-limit"), HasSubstr("set-limit's value is missing"));
  EXPECT_THAT(errorOf("set-limit 256"), HasSubstr("numbers from 0 to 255"));
  EXPECT_THAT(errorOf("battery"), HasSubstr("battery's value is missing"));
  EXPECT_THAT(errorOf("fault disk-ful on"), HasSubstr("did you mean \"disk-full\"?"));
  EXPECT_THAT(errorOf("fault disk-full"), HasSubstr("a name, its arguments, and on or off"));
  EXPECT_THAT(errorOf("lid open wide"), HasSubstr("nothing belongs here after it: \"wide\""));
  EXPECT_THAT(errorOf("clear-limit by"), HasSubstr("a client is missing"));
  EXPECT_THAT(errorOf("kill HUP"), HasSubstr("KILL, TERM, INT, ABRT"));
}

// Stories had words of their own before they had the command line's.
TEST_F(ActionTest, AnOlderWordIsAnsweredWithTheOneOfToday) {
  const std::vector<std::pair<std::string, std::string>> olders{
      {"adapter in", "on"},       {"adapter out", "off"},
      {"lid close", "closed"},    {"adapter renegotiates", "renegotiate"},
      {"display in", "on"},       {"display out", "off"},
      {"clear", "clear-limit"},   {"signal TERM", "kill"},
      {"heal disk-full", "fault"}};
  for (const auto& [older, word] : olders) {
    EXPECT_THAT(errorOf(older), HasSubstr("is unknown, did you mean \"" + word + "\"?")) << older;
  }
}

}  // namespace
}  // namespace virtualmac
