#include "VirtualMac/Schedule/Effect.h"

#include <gtest/gtest.h>

namespace virtualmac {
namespace {

TEST(EffectTest, TheTextIsThePatternWithItsValues) {
  const Effect write = effect<EffectID::keyRefused>("CHTE", "01 00 00 00", 132);
  EXPECT_EQ(write.kind(), "smc");
  EXPECT_EQ(write.text(), "CHTE <- 01 00 00 00 refused (result 132)");
  EXPECT_EQ(write.number(2), 132);
  EXPECT_EQ(effect<EffectID::messageSent>(0xE0000280U, 412).text(),
            "message 0xe0000280 to pid 412");
  EXPECT_EQ(effect<EffectID::fellAsleep>().text(), "asleep");
}

TEST(EffectTest, AFileIsReadBackIntoTheEffectsThatWroteIt) {
  const EffectFields fields{{"chargeLimit", "80"}, {"text", R"("a b=c \" d")"}, {"old", {}}};
  const Effect every[] = {
      effect<EffectID::keyWritten>("CHTE", "00"),
      effect<EffectID::keyIgnored>("CH0B", "02", "00"),
      effect<EffectID::logged>("HelperImpl", "error", "says \"no\" (1)"),
      effect<EffectID::helperKilled>(412, 9),
      effect<EffectID::replyFailed>("setChargeLimit", 400, "not \"that\""),
      effect<EffectID::replyNumber>("ping", 412),
      effect<EffectID::assertionCreated>(33001, "PreventSystemSleep", "a \" (b", 412, "14400 s"),
      effect<EffectID::settingRefused>("SleepDisabled", true, -536870207),
      effect<EffectID::messageSent>(0xE0000280U, 412),
      effect<EffectID::batterySet>("79.5"),
      effect<EffectID::batteryRanOut>(),
      effect<EffectID::fileUnchanged>("state.json", "replaced"),
      effect<EffectID::fileOpaque>("state.json", "created", 7),
      effect<EffectID::fileChanged>("state.json", "replaced", fields)};
  for (const Effect& each : every) {
    const Effect read = effectFrom(each.kind(), each.text());
    EXPECT_EQ(read.id, each.id) << each.text();
    EXPECT_EQ(read.values, each.values) << each.text();
  }
}

TEST(EffectTest, ATextThatNoPatternFitsIsTold) {
  for (const char* text : {"", "asleep now", "message 12 to pid 412", "helper x started"}) {
    const Effect read = effectFrom("power", text);
    EXPECT_EQ(read.id, EffectID::told) << text;
    EXPECT_EQ(read.kind(), "power");
    EXPECT_EQ(read.text(), text);
  }
  EXPECT_EQ(effectFrom("mac", "asleep").id, EffectID::told);
}

TEST(EffectTest, AFieldIsFoundByItsNameUnlessItIsGone) {
  const EffectFields fields{{"a", "1"}, {"b", std::nullopt}};
  const Effect change = effect<EffectID::fileChanged>("state.json", "replaced", fields);
  EXPECT_EQ(change.field("a"), "1");
  EXPECT_EQ(change.field("b"), std::nullopt);
  EXPECT_EQ(change.field("c"), std::nullopt);
  EXPECT_EQ(effect<EffectID::fellAsleep>().field("a"), std::nullopt);
}

TEST(EffectTest, AnEffectFromOutsideIsWholeOrNot) {
  EXPECT_TRUE(isWhole(effect<EffectID::helperExited>(412, 0)));
  EXPECT_TRUE(isWhole({EffectID::told, {std::string("app"), std::string("text")}}));
  EXPECT_FALSE(isWhole({EffectID::told, {std::string("app")}}));
  EXPECT_FALSE(isWhole({EffectID::helperExited, {std::int64_t{412}}}));
  EXPECT_FALSE(isWhole({EffectID::helperExited, {std::int64_t{412}, std::string("0")}}));
  EXPECT_FALSE(isWhole({static_cast<EffectID>(255), {}}));
}

}  // namespace
}  // namespace virtualmac
