#include "VirtualMac/Schedule/Effect.h"

#include <gtest/gtest.h>

namespace virtualmac {
namespace {

TEST(EffectTest, TheTextIsThePatternWithItsValues) {
  const Effect write = effect<EffectID::keyRefused>("CHTE", "01 00 00 00", 132);
  EXPECT_EQ(write.kind(), "smc");
  EXPECT_EQ(write.text(), "CHTE <- 01 00 00 00 refused (result 132)");
  EXPECT_EQ(write.number(2), 132);
  EXPECT_EQ(effect<EffectID::messageSent>("0xe0000280", 412).text(),
            "message 0xe0000280 to pid 412");
  EXPECT_EQ(effect<EffectID::fellAsleep>().text(), "asleep");
}

TEST(EffectTest, AFileIsReadBackIntoTheEffectsThatWroteIt) {
  const Effect every[] = {
      effect<EffectID::keyWritten>("CHTE", "00"),
      effect<EffectID::keyIgnored>("CH0B", "02", "00"),
      effect<EffectID::logged>("HelperImpl", "error", "says \"no\" (1)"),
      effect<EffectID::helperKilled>(412, 9),
      effect<EffectID::replyFailed>("setChargeLimit", 400, "not \"that\""),
      effect<EffectID::replyNumber>("ping", 412),
      effect<EffectID::assertionCreated>(33001, "PreventSystemSleep", "a \" (b", 412, "14400 s"),
      effect<EffectID::settingRefused>("SleepDisabled", 1, -536870207),
      effect<EffectID::messageSent>("0xe0000280", 412),
      effect<EffectID::batterySet>("79.5"),
      effect<EffectID::batteryRanOut>(),
      effect<EffectID::fileUnchanged>("state.json", "replaced"),
      effect<EffectID::fileOpaque>("state.json", "created", 7),
      {EffectID::fileChanged, {"state.json", "replaced", "a=80", R"(b="x y=z \" w")"}}};
  for (const Effect& each : every) {
    const Effect read = effectFrom(each.kind(), each.text());
    EXPECT_EQ(read.id, each.id) << each.text();
    EXPECT_EQ(read.values, each.values) << each.text();
  }
}

TEST(EffectTest, ATextThatNoPatternFitsIsTold) {
  for (const char* text : {"", "asleep now", "message 12", "sleep (idle)"}) {
    const Effect read = effectFrom("power", text);
    EXPECT_EQ(read.id, EffectID::told) << text;
    EXPECT_EQ(read.kind(), "power");
    EXPECT_EQ(read.text(), text);
  }
  EXPECT_EQ(effectFrom("mac", "asleep").id, EffectID::told);
}

TEST(EffectTest, AFieldIsFoundByItsNameUnlessItIsGone) {
  const Effect change = effectFrom("disk", "state.json replaced: ab=2 a=1 b gone");
  EXPECT_EQ(change.field("a"), "1");
  EXPECT_EQ(change.field("b"), std::nullopt);
  EXPECT_EQ(change.field("c"), std::nullopt);
  EXPECT_EQ(effect<EffectID::fellAsleep>().field("a"), std::nullopt);
}

TEST(EffectTest, AnEffectFromOutsideIsWholeOrNot) {
  EXPECT_TRUE(isWhole(effect<EffectID::helperExited>(412, 0)));
  EXPECT_TRUE(isWhole({EffectID::told, {"app", "text"}}));
  EXPECT_TRUE(isWhole({EffectID::fileChanged, {"a", "replaced", "b=1", "c=2"}}));
  EXPECT_FALSE(isWhole({EffectID::told, {"app"}}));
  EXPECT_FALSE(isWhole({EffectID::helperExited, {"412"}}));
  EXPECT_FALSE(isWhole({EffectID::helperExited, {"412", "0", "1"}}));
  EXPECT_FALSE(isWhole({static_cast<EffectID>(255), {}}));
}

}  // namespace
}  // namespace virtualmac
