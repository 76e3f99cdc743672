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

  BareStage stage;
  Machine& mac = stage.machine();
};

TEST_F(ActionTest, RequestsReachTheNamedClient) {
  perform("set-limit 80");
  perform("clear by second");
  perform("discharge on");
  perform("discharge off");
  perform("keep-awake on by second");
  perform("top-off");
  perform("cancel-top-off");
  perform("reset");
  perform("quit");
  EXPECT_EQ(stage.asked,
            (std::vector<std::string>{"app 0 80", "second 1 0", "app 2 1", "app 2 0", "second 3 1",
                                      "app 4 0", "app 5 0", "app 6 0", "app 7 0"}));
  EXPECT_TRUE(Action::parse("reset")->isRequest());
  EXPECT_FALSE(Action::parse("quit")->isRequest());
  EXPECT_FALSE(Action::parse("lid open")->isRequest());
}

TEST_F(ActionTest, ClientsComeAndGo) {
  perform("connect");
  perform("connect stranger as other-team");
  EXPECT_EQ(stage.clients(), (std::vector<std::string>{"app", "stranger"}));
  EXPECT_THAT(stage.journal().text(), HasSubstr("stranger connected as other-team"));
  perform("disconnect");
  perform("kill-app stranger");
  EXPECT_TRUE(stage.clients().empty());
}

TEST_F(ActionTest, WhatThePersonDoesReachesTheMachine) {
  perform("adapter out");
  EXPECT_FALSE(mac.adapter.isConnected());
  perform("adapter in");
  EXPECT_TRUE(mac.adapter.isConnected());
  perform("lid close");
  EXPECT_TRUE(mac.lid.isClosed());
  perform("lid open");
  EXPECT_FALSE(mac.lid.isClosed());
  perform("display in");
  EXPECT_TRUE(mac.lid.displayConnected());
  perform("battery 33");
  EXPECT_EQ(mac.battery.percent(), 33);
  perform("temperature 46.5");
  EXPECT_EQ(mac.battery.temperatureHundredths(), 4650);
  perform("sleep-disabled on");
  EXPECT_TRUE(mac.power.sleepDisabled());
  mac.smc.setValue("CHIE", {8});
  perform("adapter renegotiates");
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
  perform("fault smc-silent-refusal CHTE");
  EXPECT_TRUE(mac.smc.key("CHTE")->silentlyRefuses);
  perform("heal smc-silent-refusal CHTE");
  EXPECT_FALSE(mac.smc.key("CHTE")->silentlyRefuses);
  const auto wrong = Action::parse("fault smc-silent-refusal QQQQ");
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
      {"display in", "display connected"},
      {"touch", "touched"},
      {"fault smc-silent-refusal CHTE", "fault smc-silent-refusal CHTE on"},
      {"heal smc-silent-refusal CHTE", "fault smc-silent-refusal CHTE off"},
      {"update 2.1.0", "helper version 2.1.0 installed"}};
  for (const auto& [action, line] : deeds) {
    stage.journal().clear();
    perform(action);
    EXPECT_EQ(stage.journal().text("mac"), "0.000 mac   " + line + '\n') << action;
  }
}

TEST_F(ActionTest, TheHelperIsStartedSignalledAndUpdated) {
  perform("helper start");
  EXPECT_TRUE(stage.running);
  perform("signal TERM");
  EXPECT_THAT(stage.journal().text(), HasSubstr("signal 15"));
  perform("kill");
  EXPECT_THAT(stage.journal().text(), HasSubstr("signal 9"));
  perform("update 2.1.0");
  EXPECT_EQ(stage.version, "2.1.0");
  EXPECT_TRUE(stage.running);
}

// On a stage in real time, an update also waits a while for the old helper's end.
TEST_F(ActionTest, AnUpdateWaitsFiveSecondsAndTheGraceForTheOldHelper) {
  stage.endSeconds = 7;
  stage.running = true;
  const auto update = Action::parse("update 2.1.0");
  ASSERT_TRUE(update);
  EXPECT_THROW(update->perform(stage, [](const Answer&) {}), std::runtime_error);
  EXPECT_EQ(stage.version, "");
  EXPECT_EQ(stage.now(), 5);
  stage.grace = 3;
  perform("update 2.1.0");
  EXPECT_EQ(stage.version, "2.1.0");
  EXPECT_TRUE(stage.running);
}

TEST_F(ActionTest, DefectsSayWhatIsAllowed) {
  EXPECT_THAT(errorOf("conect"), HasSubstr("(is it connect?); there are: connect, disconnect"));
  EXPECT_EQ(errorOf("adapter gone"),
            "\"gone\" is not an adapter's move; it is in, out or renegotiates");
  EXPECT_THAT(errorOf("set-limit"), HasSubstr("percent is missing"));
  EXPECT_THAT(errorOf("set-limit 256"), HasSubstr("a number from 0 to 255"));
  EXPECT_THAT(errorOf("fault disk-ful"), HasSubstr("is it disk-full?"));
  EXPECT_THAT(errorOf("lid open wide"), HasSubstr("nothing belongs here after it: \"wide\""));
  EXPECT_THAT(errorOf("clear by"), HasSubstr("a client is missing"));
  EXPECT_THAT(errorOf("signal HUP"), HasSubstr("TERM, INT, ABRT or KILL"));
}

}  // namespace
}  // namespace virtualmac
