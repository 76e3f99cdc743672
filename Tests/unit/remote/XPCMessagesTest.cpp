#include "VirtualMac/Remote/XPCMessages.h"

#include <gtest/gtest.h>

#include "KorvelHelperProtocol.h"

namespace virtualmac {
namespace {

using korvel::ErrorObject;
using korvel::PropertyValue;
namespace selector = korvel::KorvelHelperSelector;

korvel::XPCInterface helperInterface() {
  korvel::XPCInterface interface = korvel::makeHelperInterface();
  korvel::applyTypedReplyClasses(interface);
  return interface;
}

bool mayAnswer(std::string_view name, const std::vector<XPCValue>& values) {
  return checkReply(*xpcOperation(name), values, helperInterface()).has_value();
}

std::vector<XPCValue> failure(const PropertyValue::Dictionary& details) {
  return {PropertyValue(false), ErrorObject{"Domain", 500, details}};
}

}  // namespace

TEST(XPCMessagesTest, TheElevenOperationsAreKnownByTheirSelectors) {
  for (const std::string_view name :
       {selector::ping, selector::capabilities, selector::setChargeLimit,
        selector::clearChargeLimit, selector::forceDischarge, selector::setClamshellKeepAwake,
        selector::releaseLimitUntilFullThenRestore, selector::cancelTopUp, selector::getState,
        selector::resetAllSMCKeys, selector::quit}) {
    ASSERT_NE(xpcOperation(name), nullptr) << name;
    EXPECT_EQ(xpcOperation(name)->selector, name);
  }
  EXPECT_EQ(xpcOperation("pingWithReply"), nullptr);
}

TEST(XPCMessagesTest, CallsAndRepliesComeBackAsTheyWere) {
  const auto call = decodeXPCCall(encode(XPCCall{7, "setChargeLimit:reply:", {PropertyValue(80)}}));
  ASSERT_TRUE(call);
  EXPECT_EQ(call->ticket, 7U);
  EXPECT_EQ(call->selector, "setChargeLimit:reply:");
  EXPECT_EQ(call->arguments, std::vector<PropertyValue>{PropertyValue(80)});
  const XPCReply sent{9, failure({{"smcResult", 134}})};
  const auto reply = decodeXPCReply(encode(sent));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->ticket, 9U);
  EXPECT_EQ(reply->values, sent.values);
  EXPECT_FALSE(decodeXPCCall(encode(sent)));
  EXPECT_FALSE(decodeXPCReply(encode(*call)));
}

TEST(XPCMessagesTest, ArgumentsAreOfTheDeclaredType) {
  const auto fits = [](std::string_view name, const std::vector<PropertyValue>& given) {
    return checkArguments(*xpcOperation(name), given).has_value();
  };
  for (const int limit : {0, 20, 255}) EXPECT_TRUE(fits(selector::setChargeLimit, {limit}));
  for (const int limit : {-1, 256}) EXPECT_FALSE(fits(selector::setChargeLimit, {limit}));
  EXPECT_FALSE(fits(selector::setChargeLimit, {80.0}));
  EXPECT_FALSE(fits(selector::setChargeLimit, {true}));
  EXPECT_FALSE(fits(selector::setChargeLimit, {}));
  EXPECT_TRUE(fits(selector::forceDischarge, {true}));
  EXPECT_FALSE(fits(selector::forceDischarge, {1}));
  EXPECT_TRUE(fits(selector::ping, {}));
  EXPECT_FALSE(fits(selector::ping, {1}));
}

TEST(XPCMessagesTest, RepliesAreOfTheDeclaredType) {
  const PropertyValue data = PropertyValue::Data{1, 2};
  EXPECT_TRUE(mayAnswer(selector::getState, {data}));
  EXPECT_TRUE(mayAnswer(selector::ping, {PropertyValue(1)}));
  EXPECT_TRUE(mayAnswer(selector::setChargeLimit, {PropertyValue(true), PropertyValue()}));
  EXPECT_FALSE(mayAnswer(selector::getState, {PropertyValue("text")}));
  EXPECT_FALSE(mayAnswer(selector::capabilities, {PropertyValue(1)}));
  EXPECT_FALSE(mayAnswer(selector::setChargeLimit, {PropertyValue(true)}));
  EXPECT_FALSE(mayAnswer(selector::setChargeLimit, {PropertyValue(1), PropertyValue()}));
  EXPECT_FALSE(mayAnswer(selector::quit, {}));
}

TEST(XPCMessagesTest, StateAndCapabilitiesTravelAsBytesAndAsNothingElse) {
  const std::vector<XPCValue> others = {PropertyValue(),
                                        PropertyValue(true),
                                        PropertyValue(1),
                                        PropertyValue(1.5),
                                        PropertyValue("{}"),
                                        PropertyValue(korvel::Date{0}),
                                        PropertyValue(PropertyValue::Array{}),
                                        PropertyValue(PropertyValue::Dictionary{}),
                                        ErrorObject{"Domain", 500, {}}};
  for (const std::string_view name : {selector::getState, selector::capabilities}) {
    EXPECT_TRUE(mayAnswer(name, {PropertyValue(PropertyValue::Data{'{', '}'})}));
    for (const XPCValue& other : others) EXPECT_FALSE(mayAnswer(name, {other})) << name;
    EXPECT_FALSE(mayAnswer(name, {}));
  }
}

// An error may hold texts, numbers and dictionaries of these, where the interface allows it.
TEST(XPCMessagesTest, AnErrorsDetailsAreOfTheAllowedClasses) {
  EXPECT_TRUE(mayAnswer(selector::setChargeLimit, failure({})));
  EXPECT_TRUE(mayAnswer(selector::setChargeLimit, failure({{"text", "a"}, {"smcResult", 134}})));
  const PropertyValue::Dictionary nested{{"inner", PropertyValue::Dictionary{{"number", 1}}}};
  EXPECT_TRUE(mayAnswer(selector::setChargeLimit, failure(nested)));
  const PropertyValue::Dictionary data{{"bytes", PropertyValue::Data{1}}};
  const PropertyValue::Dictionary date{{"when", korvel::Date{0}}};
  const PropertyValue::Dictionary array{{"list", PropertyValue::Array{1}}};
  const PropertyValue::Dictionary deep{{"inner", data}};
  for (const auto& details : {data, date, array, deep})
    EXPECT_FALSE(mayAnswer(selector::setChargeLimit, failure(details)));
}

// As with the platform's setter, the last setting of an argument counts.
TEST(XPCMessagesTest, ALaterSettingOfAnArgumentReplacesAnEarlierOne) {
  const std::vector<XPCValue> bytes{PropertyValue(PropertyValue::Data{1})};
  korvel::XPCInterface interface;
  const auto set = [&interface](korvel::ReplyClass allowed) {
    interface.replyClasses.push_back({selector::getState, 0, {allowed}});
  };
  const auto allowed = [&] {
    return checkReply(*xpcOperation(selector::getState), bytes, interface).has_value();
  };
  EXPECT_TRUE(allowed());
  set(korvel::ReplyClass::String);
  EXPECT_FALSE(allowed());
  set(korvel::ReplyClass::Data);
  EXPECT_TRUE(allowed());
  set(korvel::ReplyClass::Number);
  EXPECT_FALSE(allowed());
}

// This operation keeps the default, which allows any property list.
TEST(XPCMessagesTest, KeepAwakeHasNoSettingOfItsOwn) {
  EXPECT_TRUE(mayAnswer(selector::setClamshellKeepAwake,
                        failure({{"when", korvel::Date{0}}, {"bytes", PropertyValue::Data{1}}})));
}

}  // namespace virtualmac
