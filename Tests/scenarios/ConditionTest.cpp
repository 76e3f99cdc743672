#include "VirtualMac/Scenarios/Condition.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/scenarios/BareStage.h"

namespace virtualmac {
namespace {

using testing::HasSubstr;

class ConditionTest : public testing::Test {
 protected:
  bool holds(const std::string& text) {
    const auto condition = Condition::parse(text);
    EXPECT_TRUE(condition) << text << ": " << condition.error();
    return condition && condition->holds(stage);
  }
  std::string actual(const std::string& text) { return Condition::parse(text)->actual(stage); }
  static std::string errorOf(const std::string& text) {
    const auto condition = Condition::parse(text);
    return condition ? "" : condition.error();
  }

  BareStage stage;
};

TEST_F(ConditionTest, TheGateFollowsTheHardware) {
  EXPECT_TRUE(holds("gate charging"));
  EXPECT_FALSE(holds("gate paused"));
  stage.machine().smc.setValue("CHTE", {1, 0, 0, 0});
  EXPECT_TRUE(holds("gate paused"));
  EXPECT_EQ(actual("gate charging"), "the gate is paused");
}

// The system's own limit holds until the charge is 1 % below it, and the gate with it.
TEST_F(ConditionTest, TheGateIsPausedWhileTheNativeLimitHolds) {
  BareStage native("native-only");
  Machine& machine = native.machine();
  const auto gateIs = [&](const std::string& text) {
    machine.advance(0);
    return Condition::parse("gate " + text)->holds(native);
  };
  machine.powerUI.setLimitByUser(80);
  machine.battery.setPercent(79.4);
  EXPECT_TRUE(gateIs("charging"));
  machine.battery.setPercent(80);
  EXPECT_TRUE(gateIs("paused"));
  machine.battery.setPercent(79.1);
  EXPECT_TRUE(gateIs("paused")) << "it still holds";
  machine.battery.setPercent(78.9);
  EXPECT_TRUE(gateIs("charging"));
  machine.battery.setPercent(90);
  machine.powerUI.setLimitByUser(0);
  EXPECT_TRUE(gateIs("charging"));
}

TEST_F(ConditionTest, StatesOfTheMachine) {
  EXPECT_TRUE(holds("inflow on"));
  stage.machine().smc.setValue("CHIE", {8});
  EXPECT_TRUE(holds("inflow inhibited"));
  EXPECT_TRUE(holds("adapter connected"));
  stage.machine().adapter.disconnect();
  EXPECT_TRUE(holds("adapter disconnected"));
  EXPECT_TRUE(holds("lid open"));
  stage.machine().lid.close();
  EXPECT_TRUE(holds("lid closed and display disconnected"));
  EXPECT_TRUE(holds("sleep-disabled off"));
  stage.machine().power.setSleepDisabledExternally(true);
  EXPECT_TRUE(holds("sleep-disabled on"));
  EXPECT_TRUE(holds("helper stopped"));
  stage.running = true;
  EXPECT_TRUE(holds("helper running"));
  EXPECT_FALSE(holds("helper exited 0"));
  stage.exited = 0;
  EXPECT_TRUE(holds("helper exited 0"));
}

TEST_F(ConditionTest, AsleepOnceTheMachineSettled) {
  EXPECT_TRUE(holds("awake"));
  stage.machine().power.requestSleep();
  stage.machine().advance(1);
  EXPECT_TRUE(holds("asleep"));
  EXPECT_TRUE(holds("not awake"));
}

TEST_F(ConditionTest, RangesOfTheBattery) {
  stage.machine().battery.setPercent(77);
  for (const char* text : {"battery 77", "battery >= 77", "battery <= 77", "battery > 76",
                           "battery < 78", "battery 75 to 80", "not battery 76"}) {
    EXPECT_TRUE(holds(text)) << text;
  }
  for (const char* text : {"battery 76", "battery > 77", "battery < 77", "battery 78 to 80"}) {
    EXPECT_FALSE(holds(text)) << text;
  }
  EXPECT_EQ(actual("battery 80"), "the battery is at 77 %");
}

TEST_F(ConditionTest, ChargingAndDrainingAreTheBatterysOwn) {
  stage.machine().battery.setPercent(50);
  stage.machine().advance(1);
  EXPECT_TRUE(holds("charging"));
  stage.machine().adapter.disconnect();
  stage.machine().advance(1);
  EXPECT_TRUE(holds("draining"));
}

TEST_F(ConditionTest, KeysAreComparedByTheirFirstBytes) {
  stage.machine().smc.setValue("CHTE", {1, 0, 0, 0});
  EXPECT_TRUE(holds("CHTE=01"));
  EXPECT_TRUE(holds("CHTE=01 00 00 00"));
  EXPECT_FALSE(holds("CHTE=00"));
  EXPECT_FALSE(holds("CH0B=00"));
  EXPECT_EQ(actual("CHTE=00"), "CHTE is 01 00 00 00");
  EXPECT_EQ(actual("CH0B=00"), "there is no key CH0B");
  EXPECT_TRUE(holds("writes CHTE 0"));
}

TEST_F(ConditionTest, FieldsOfTheSavedAndTheReportedState) {
  EXPECT_TRUE(holds("saved nothing"));
  EXPECT_FALSE(holds("reported chargeLimit=80"));
  EXPECT_FALSE(holds("reported lastDischargeAbortReason absent"));
  stage.saved =
      R"({"chargeLimit":80,"topUpActive":false,"helperVersion":"2.0.0","why":"too warm"})";
  stage.reported = R"({"chargeLimit":70})";
  EXPECT_FALSE(holds("saved nothing"));
  EXPECT_TRUE(holds("saved chargeLimit=80"));
  EXPECT_TRUE(holds("saved topUpActive=false and saved helperVersion=2.0.0"));
  EXPECT_TRUE(holds("saved helperVersion=\"2.0.0\" and saved why=\"too warm\""));
  EXPECT_TRUE(holds("saved lastDischargeAbortReason absent"));
  EXPECT_FALSE(holds("saved chargeLimit absent"));
  EXPECT_TRUE(holds("reported chargeLimit=70"));
  EXPECT_EQ(actual("saved chargeLimit=75"), "saved chargeLimit is 80");
}

TEST_F(ConditionTest, WordsAreHeardInLogAndJournal) {
  Condition log = *Condition::parse("log \"pause:ok\"");
  EXPECT_TRUE(log.listens());
  log.hear({1, "smc", "pause:ok"});
  EXPECT_FALSE(log.holds(stage));
  log.hear({1, "log", "HelperImpl default \"charge enforcement pause:ok\""});
  log.hear({2, "log", "something else"});
  EXPECT_TRUE(log.holds(stage));
  log.forget();
  EXPECT_FALSE(log.holds(stage));
  Condition journal = *Condition::parse("not journal \"smc   CHTE <- 01\"");
  EXPECT_TRUE(journal.holds(stage));
  journal.hear({1, "smc", "CHTE <- 01 00 00 00"});
  EXPECT_FALSE(journal.holds(stage));
}

TEST_F(ConditionTest, OnlyThePartsThatFailAreTold) {
  EXPECT_EQ(actual("CHIE=08 while lid open"), "CHIE is 00");
  EXPECT_FALSE(Condition::parse("gate paused and reported chargeLimit=80")->canBeWatched());
  EXPECT_TRUE(Condition::parse("gate paused")->canBeWatched());
}

TEST_F(ConditionTest, DefectsSayWhatIsAllowed) {
  EXPECT_EQ(errorOf("gate ajar"), "gate \"ajar\" is unknown (allowed: paused, charging)");
  EXPECT_THAT(errorOf("batery 80"), HasSubstr("did you mean \"battery\"?"));
  EXPECT_THAT(errorOf("batery 80"), HasSubstr("(allowed: gate, inflow, adapter"));
  EXPECT_THAT(errorOf("battery eighty"),
              HasSubstr("battery \"eighty\" is not allowed (allowed: 0 to 100)"));
  EXPECT_THAT(errorOf("battery 80 to 75"), HasSubstr("(allowed: 80 to 100)"));
  EXPECT_THAT(errorOf("CHIE=8"), HasSubstr("two hexadecimal digits"));
  EXPECT_THAT(errorOf("log pause"), HasSubstr("comes a \"text\""));
  EXPECT_THAT(errorOf("saved chargeLimit"), HasSubstr("=VALUE or the word absent"));
  EXPECT_THAT(errorOf("gate paused lid open"), HasSubstr("nothing belongs here"));
  EXPECT_THAT(errorOf("helper dancing"), HasSubstr("running, stopped, exited"));
  EXPECT_THAT(errorOf("writes 12 3"), HasSubstr("is not a key"));
  EXPECT_THAT(errorOf(""), HasSubstr("a condition is missing"));
}

}  // namespace
}  // namespace virtualmac
