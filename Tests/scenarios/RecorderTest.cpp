#include "VirtualMac/Scenarios/Recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <sstream>

#include "VirtualMac/Scenarios/Scenario.h"

namespace virtualmac {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// A story's journal in this process; `speed` makes it one that came about in real time.
SavedJournal saved(const std::string& lines, std::optional<double> speed = std::nullopt) {
  Scenario scenario;
  std::istringstream text(journalHead(scenario, speed).line() +
                          "\n0.000 proc  helper 501 started\n" + lines);
  return *SavedJournal::from(text, "a.journal");
}

Recording recordingOf(const std::string& lines, std::optional<double> speed = std::nullopt) {
  Recording recording = record(saved(lines, speed));
  EXPECT_TRUE(parseScenario(recording.story, "a.yaml")) << recording.story;
  return recording;
}

/// All the actions of a recording's steps, in their order.
std::vector<std::string> actionsOf(const std::string& lines,
                                   std::optional<double> speed = std::nullopt) {
  const Recording recording = recordingOf(lines, speed);
  EXPECT_TRUE(recording.unsayable.empty()) << recording.unsayable.front().text;
  const auto scenario = parseScenario(recording.story, "a.yaml");
  std::vector<std::string> actions;
  for (const Step& step : scenario->steps) {
    for (const ToldAction& told : step.actions) actions.push_back(told.action.text());
  }
  return actions;
}

const std::string connected = "5.000 app   app 901 connects\n";
const std::string audit = " pid=901 signingID=com.korvel.app team=A cdHash=\"\n";

TEST(RecorderTest, EveryDeedIsAnAction) {
  EXPECT_THAT(
      actionsOf("1.000 mac   battery set to 79.5 %\n"
                "2.000 mac   adapter disconnected\n3.000 mac   adapter connected\n"
                "4.000 mac   adapter renegotiated\n"
                "5.000 mac   adapter renegotiated (inflow inhibit dropped)\n"
                "6.000 mac   lid closed\n7.000 mac   lid opened\n"
                "8.000 mac   display connected\n9.000 mac   display disconnected\n"),
      ElementsAre("battery 79.5", "adapter off", "adapter on", "adapter renegotiate",
                  "adapter renegotiate", "lid closed", "lid open", "display on", "display off"));
  EXPECT_THAT(actionsOf("1.000 mac   temperature set to -4.5 C\n2.000 mac   temperature free\n"
                        "3.000 mac   ambient set to 30 C\n4.000 mac   idle sleep off\n"
                        "5.000 mac   idle sleep after 10 min\n6.000 mac   touched\n"
                        "7.000 power native limit 80 (by the user)\n"
                        "8.000 power native limit none (by the user)\n"
                        "9.000 power SleepDisabled = 1 (by another program)\n"
                        "10.000 power sleep (requested) begins\n10.000 power asleep\n"
                        "11.000 power awake (requested)\n12.000 mac   speed 600\n"),
              ElementsAre("temperature -4.5", "temperature free", "ambient 30", "idle-sleep 0",
                          "idle-sleep 10", "touch", "native-limit 80", "native-limit 0",
                          "sleep-disabled on", "sleep", "wake"));
}

TEST(RecorderTest, AFaultIsSwitchedWithItsOwnWords) {
  EXPECT_THAT(actionsOf("1.000 mac   fault adapter-mistyped on (in place of adapter-unknown)\n"
                        "2.000 mac   fault powerui-error a \"b\" c on\n"
                        "3.000 mac   fault smc-write-result CHTE 134 on\n"
                        "4.000 mac   fault smc-write-result CHTE off\n"),
              ElementsAre("fault adapter-mistyped on", "fault powerui-error a \"\\\"b\\\"\" c on",
                          "fault smc-write-result CHTE 134 on", "fault smc-write-result CHTE off"));
}

TEST(RecorderTest, ClientsHaveTheNamesOfTheirPrograms) {
  EXPECT_THAT(
      actionsOf(connected + "6.000 app   app 902 connects\n7.000 app   other-team 903 connects\n"
                            "8.000 app   app 902 dies\n9.000 app   app 901 disconnects\n"
                            "10.000 app   app 904 connects\n"),
      ElementsAre("connect", "connect app-2", "connect other-team as other-team", "kill-app app-2",
                  "disconnect", "connect"));
}

TEST(RecorderTest, ARequestHasItsClientAndItsReply) {
  const Recording recording =
      recordingOf(connected + "6.000 app   app 902 connects\n" +
                  "7.000 log   HelperImpl default \"setChargeLimit(10)" + audit +
                  "7.000 reply setChargeLimit failed 400 \"Say \"80\".\"\n"
                  "8.000 log   HelperImpl default \"forceDischarge(1) pid=902 signingID=\"\n"
                  "8.000 reply forceDischarge ok\n9.000 reply getState ok\n");
  EXPECT_THAT(recording.story, HasSubstr("do: set-limit 10\n"
                                         "    reply: failed 400 \"Say \\\"80\\\".\"\n"));
  EXPECT_THAT(recording.story, HasSubstr("do: discharge on by app-2\n"));
  EXPECT_THAT(recording.story, HasSubstr("do: state by app-2\n"));
  EXPECT_TRUE(recording.unsayable.empty());
}

TEST(RecorderTest, AnAnswerThatComesAfterAnotherActionIsNotWaitedFor) {
  const std::string asked =
      connected + "7.000 log   HelperImpl default \"setChargeLimit(80)" + audit;
  EXPECT_THAT(recordingOf(asked + "7.100 mac   lid closed\n7.200 reply setChargeLimit ok\n").story,
              HasSubstr("do: set-limit 80\n    reply: none\n"));
  EXPECT_THAT(recordingOf(asked + "7.300 proc  helper 501 exited 1\n").story,
              HasSubstr("do: set-limit 80\n    reply: lost\n"));
  EXPECT_THAT(recordingOf(asked).story, HasSubstr("do: set-limit 80\n    reply: none\n"));
}

TEST(RecorderTest, InRealTimeAnAnswerMayComeBeforeTheRequestIsLogged) {
  EXPECT_THAT(actionsOf("5.000 app   client 70 identifies as app\n5.100 app   client 70 connected\n"
                        "7.000 reply setChargeLimit ok\n"
                        "7.050 log   HelperImpl default \"setChargeLimit(80) pid=70 team=\"\n",
                        60),
              ElementsAre("connect", "set-limit 80"));
}

TEST(RecorderTest, AHelperStartsByItselfAsLaunchdDoes) {
  EXPECT_THAT(actionsOf("20.000 proc  helper 501 killed by signal 9\n"
                        "30.000 app   app 901 connects\n30.000 proc  helper 502 started\n"
                        "40.000 proc  signal 15 to helper 502\n40.000 proc  helper 502 exited 0\n"
                        "50.000 proc  helper 503 started\n"),
              ElementsAre("kill", "connect", "kill TERM", "helper start"));
  EXPECT_THAT(actionsOf("20.000 proc  helper 501 killed by signal 9\n"
                        "20.000 proc  helper 502 started\n"),
              ElementsAre("kill", "helper start"))
      << "this story's launchd leaves a crashed helper alone";
}

TEST(RecorderTest, AnUpdateARebootAndALossOfPowerAreOneActionEach) {
  const std::string ends = "proc  signal 15 to helper 501\n20.000 proc  helper 501 exited 0\n";
  EXPECT_THAT(actionsOf("20.000 " + ends +
                        "20.000 mac   helper version 2.1.0 installed\n"
                        "20.000 proc  helper 502 started\n"),
              ElementsAre("update 2.1.0"));
  EXPECT_THAT(actionsOf(connected + "20.000 app   app 901 dies\n20.000 " + ends +
                        "20.000 mac   reboot\n20.000 proc  helper 502 started\n"),
              ElementsAre("connect", "reboot"));
  EXPECT_THAT(actionsOf(connected + "20.000 app   app 901 dies\n20.000 mac   power lost\n"
                                    "20.000 proc  helper 501 killed by signal 9\n"
                                    "20.000 proc  helper 502 started\n"
                                    "30.000 app   app 902 connects\n"),
              ElementsAre("connect", "power-loss", "connect"));
}

TEST(RecorderTest, AnInstallationThatStartsNobodyIsNoUpdate) {
  const std::string installed = "20.000 mac   helper version 2.1.0 installed\n";
  EXPECT_THAT(actionsOf("10.000 proc  helper 501 started\n" + installed),
              ElementsAre("helper start", "install 2.1.0"));
  const std::string ends =
      "20.000 proc  signal 15 to helper 501\n20.000 proc  helper 501 exited 0\n";
  EXPECT_THAT(actionsOf(ends + installed + "30.000 proc  helper 502 started\n"),
              ElementsAre("kill TERM", "install 2.1.0", "helper start"));
  EXPECT_THAT(actionsOf("20.000 mac   helper version 2.2 beta installed\n"),
              ElementsAre("install \"2.2 beta\""));
}

TEST(RecorderTest, AMethodThatTheHelperLacksIsACall) {
  EXPECT_THAT(actionsOf("5.000 app   client 70 identifies as app\n5.100 app   client 70 connected\n"
                        "7.000 app   client 70 cut off: unknown selector \"setSchedule\"\n",
                        60),
              ElementsAre("connect", "call setSchedule"));
}

TEST(RecorderTest, OneWhoIsCutOffAsksForSomething) {
  const std::string told =
      "5.000 app   unsigned 901 connects\n"
      "5.000 app   unsigned 901 cut off: requirement not satisfied\n";
  EXPECT_THAT(actionsOf(told), ElementsAre("connect unsigned as unsigned", "ping by unsigned"));
  EXPECT_THAT(recordingOf(told).story, HasSubstr("reply: lost"));
}

TEST(RecorderTest, WhatIsDoneBeforeTheHelperStartsIsTheStart) {
  Scenario scenario;
  scenario.savedState = "{\n  \"chargeLimit\" : 80\n}\n";
  scenario.seed = 7;
  scenario.helperVersion.reset();
  scenario.restartAfterCrash = true;
  std::istringstream text(journalHead(scenario, std::nullopt).line() +
                          "\n0.000 mac   battery set to 80 %\n0.000 mac   fault disk-full on\n"
                          "0.000 proc  helper 501 started\n");
  const Recording recording = record(*SavedJournal::from(text, "a.journal"));
  const auto read = parseScenario(recording.story, "a.yaml");
  ASSERT_TRUE(read) << read.error() << recording.story;
  EXPECT_EQ(read->savedState, scenario.savedState);
  EXPECT_EQ(read->seed, 7U);
  EXPECT_EQ(read->helperVersion, std::nullopt);
  EXPECT_TRUE(read->restartAfterCrash);
  ASSERT_EQ(read->start.size(), 2U);
  EXPECT_EQ(read->start[0].action.text(), "battery 80");
  EXPECT_EQ(read->start[1].action.text(), "fault disk-full on");
}

TEST(RecorderTest, EffectsAreExpectedAsStatesAndWords) {
  const Recording recording = recordingOf(
      "60.000 mac   lid closed\n60.000 smc   CHTE <- 01 00 00 00\n"
      "60.000 log   HelperImpl default \"charge enforcement pause:ok\"\n"
      "60.000 disk  state.json replaced: chargeLimit=80 lastWriteAt=2026-01-01T00:01:00Z\n"
      "60.000 power SleepDisabled = 1\n61.000 smc   CHIE <- 08 refused (result 134)\n"
      "300.000 log   SMCWriter fault \"it broke pid=7\"\n");
  EXPECT_THAT(recording.story, HasSubstr("at: 00:01:00\n    do: lid closed\n"));
  for (const char* phrase :
       {"5s gate paused", "5s log \"charge enforcement pause:ok\"", "5s saved chargeLimit=80\n",
        "5s sleep-disabled on", "10s journal \"smc   CHIE <- 08 refused (result 134)\"",
        "at: 00:04:55\n    within: 5s log \"it broke\""}) {
    EXPECT_THAT(recording.story, HasSubstr(phrase));
  }
  EXPECT_THAT(recording.story, Not(HasSubstr("lastWriteAt")));
}

TEST(RecorderTest, AStateThatPassesIsExpectedByItsLine) {
  const Recording recording = recordingOf(
      "60.000 mac   lid closed\n"
      "60.000 smc   CHTE <- 01 00 00 00\n"
      "60.000 smc   CHTE <- 00 00 00 00\n70.000 mac   lid opened\n");
  EXPECT_THAT(recording.story, HasSubstr("journal \"CHTE <- 01 00 00 00\""));
  EXPECT_THAT(recording.story, HasSubstr("gate charging"));
}

struct Said {
  std::string line;
  std::string text;
};

void PrintTo(const Said& said, std::ostream* out) { *out << said.line; }

class UnsayableTest : public testing::TestWithParam<Said> {};

TEST_P(UnsayableTest, IsNamedWithItsTimeAndLineAndTheRestIsTold) {
  const Recording recording =
      recordingOf("1.000 mac   lid closed\n" + GetParam().line + "\n60.000 mac   lid opened\n");
  ASSERT_EQ(recording.unsayable.size(), 1U) << recording.story;
  const Unsayable& found = recording.unsayable.front();
  EXPECT_THAT(found.text, HasSubstr(GetParam().text));
  EXPECT_EQ(found.line, 4U);
  EXPECT_EQ(found.time, 2.5);
  EXPECT_THAT(recording.story, HasSubstr("do: lid closed"));
  EXPECT_THAT(recording.story, HasSubstr("do: lid open"));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, UnsayableTest,
    testing::Values(
        Said{"2.500 disk  state.json changed by another program", "changed by another program"},
        Said{"2.500 disk  state.json removed by another program", "removed by another program"},
        Said{"2.500 app   client 77 connected", "client 77 came past the machine"},
        Said{"2.500 app   app 77 interrupted", "app 77 interrupted"},
        Said{"2.500 proc  signal 19 to helper 501", "signal 19 to the helper"},
        Said{"2.500 proc  helper 501 killed by signal 11", "it crashed, or was ended from outside"},
        Said{"2.500 proc  helper 501 cut off: an oversized frame", "cut off"},
        Said{"2.500 proc  KorvelHelper cannot be started: no such file", "cannot be started"},
        Said{"2.500 mac   clock set to 2026-02-01T00:00:00Z", "clock set to"},
        Said{"2.500 mac   the moon is full", "the moon is full"},
        Said{"2.500 power SleepDisabled removed (by another program)", "SleepDisabled removed"},
        Said{"2.500 reply setChargeLimit ok", "nobody is told to have asked"},
        Said{"2.500 reply getState ok", "by a client that is none of a story's"},
        Said{"2.500 log   HelperImpl default \"setChargeLimit(80) pid=77 team=\"",
             "set-limit 80 by a client that is none of a story's"}));

TEST(RecorderTest, AMessageThatNoClientOfAStorySendsIsNamed) {
  const Recording recording = recordingOf(
      "5.000 app   client 70 identifies as app\n5.100 app   client 70 connected\n"
      "6.000 app   client 70 cut off: malformed: a length\n",
      60);
  ASSERT_EQ(recording.unsayable.size(), 1U);
  EXPECT_THAT(recording.unsayable[0].text, HasSubstr("client 70 is cut off: malformed"));
}

TEST(RecorderTest, AStartThatNoStoryHasIsNamed) {
  SavedJournal journal = saved("1.000 mac   lid closed\n");
  journal.head->start.savedState.reset();
  journal.head->start.savedStateUntold = "it is not UTF-8 text";
  journal.head->start.smcKeys["CHTE"] = {1, 0, 0, 0};
  EXPECT_EQ(record(journal).unsayable.size(), 2U);
  journal.head.reset();
  const Recording recording = record(journal);
  ASSERT_EQ(recording.unsayable.size(), 1U);
  EXPECT_EQ(recording.unsayable[0].line, 1U);
  EXPECT_THAT(recording.unsayable[0].text, HasSubstr("taken for newer-keys"));
  EXPECT_THAT(recording.story, HasSubstr("do: lid closed"));
}

}  // namespace
}  // namespace virtualmac
