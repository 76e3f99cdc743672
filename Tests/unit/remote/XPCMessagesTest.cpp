#include "VirtualMac/Remote/XPCMessages.h"

#include <gtest/gtest.h>

#include "KorvelHelperProtocol.h"
#include "VirtualMac/Remote/RequestWords.h"

namespace virtualmac {
namespace {

using korvel::ErrorObject;
using korvel::PropertyValue;
namespace operation = korvel::operation;

korvel::XPCInterface helperInterface() {
  korvel::XPCInterface interface = korvel::makeHelperInterface();
  korvel::applyTypedReplyClasses(interface);
  return interface;
}

bool mayAnswer(const korvel::Operation& asked, const std::vector<XPCValue>& values) {
  return checkReply(asked, values, helperInterface()).has_value();
}

std::vector<XPCValue> failure(const PropertyValue::Dictionary& details) {
  return {PropertyValue(false), ErrorObject{"Domain", 500, details}};
}

}  // namespace

TEST(XPCMessagesTest, TheElevenOperationsAreKnownByTheirSelectors) {
  using korvel::Operation;
  ASSERT_EQ(korvel::operations.size(), 11U);
  for (const Operation& each : korvel::operations) {
    const Operation* found = korvel::operationWith(&Operation::selector, each.selector);
    ASSERT_EQ(found, &each) << each.selector;
    EXPECT_EQ(korvel::operationWith(&Operation::word, each.word), &each) << each.word;
    EXPECT_TRUE(each.selector.starts_with(each.method)) << each.selector;
  }
  EXPECT_EQ(korvel::operationWith(&Operation::selector, "pingWithReply"), nullptr);
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
  const auto fits = [](const korvel::Operation& called, const std::vector<PropertyValue>& given) {
    return argumentIn(called, given).has_value();
  };
  for (const int limit : {0, 20, 255}) EXPECT_TRUE(fits(operation::setChargeLimit, {limit}));
  for (const int limit : {-1, 256}) EXPECT_FALSE(fits(operation::setChargeLimit, {limit}));
  EXPECT_FALSE(fits(operation::setChargeLimit, {80.0}));
  EXPECT_FALSE(fits(operation::setChargeLimit, {true}));
  EXPECT_FALSE(fits(operation::setChargeLimit, {}));
  EXPECT_TRUE(fits(operation::forceDischarge, {true}));
  EXPECT_FALSE(fits(operation::forceDischarge, {1}));
  EXPECT_TRUE(fits(operation::ping, {}));
  EXPECT_FALSE(fits(operation::ping, {1}));
}

TEST(XPCMessagesTest, RepliesAreOfTheDeclaredType) {
  const PropertyValue data = PropertyValue::Data{1, 2};
  EXPECT_TRUE(mayAnswer(operation::getState, {data}));
  EXPECT_TRUE(mayAnswer(operation::ping, {PropertyValue(1)}));
  EXPECT_TRUE(mayAnswer(operation::setChargeLimit, {PropertyValue(true), PropertyValue()}));
  EXPECT_FALSE(mayAnswer(operation::getState, {PropertyValue("text")}));
  EXPECT_FALSE(mayAnswer(operation::capabilities, {PropertyValue(1)}));
  EXPECT_FALSE(mayAnswer(operation::setChargeLimit, {PropertyValue(true)}));
  EXPECT_FALSE(mayAnswer(operation::setChargeLimit, {PropertyValue(1), PropertyValue()}));
  EXPECT_FALSE(mayAnswer(operation::quit, {}));
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
  for (const korvel::Operation& asked : {operation::getState, operation::capabilities}) {
    EXPECT_TRUE(mayAnswer(asked, {PropertyValue(PropertyValue::Data{'{', '}'})}));
    for (const XPCValue& other : others) EXPECT_FALSE(mayAnswer(asked, {other})) << asked.word;
    EXPECT_FALSE(mayAnswer(asked, {}));
  }
}

// A person says it in a word, a call carries it as a value.
TEST(XPCMessagesTest, AnArgumentIsTheSameByteInWordsAndInACall) {
  const auto byte = [](const korvel::Operation& called, const std::string& word) -> int {
    const auto given = argumentFrom(called, word);
    if (!given) return -1;
    const XPCCall call = callOf(called, *given, 1);
    EXPECT_EQ(call.selector, called.selector);
    EXPECT_EQ(argumentIn(called, call.arguments), *given) << word;
    return *given;
  };
  EXPECT_EQ(byte(operation::setChargeLimit, "80"), 80);
  EXPECT_EQ(byte(operation::setChargeLimit, "255"), 255);
  for (const char* word : {"", "256", "-1", "79.5", "8e1", " 80", "0x50", "on"})
    EXPECT_EQ(byte(operation::setChargeLimit, word), -1) << word;
  EXPECT_EQ(byte(operation::forceDischarge, "on"), 1);
  EXPECT_EQ(byte(operation::forceDischarge, "off"), 0);
  EXPECT_EQ(byte(operation::forceDischarge, "1"), -1);
  EXPECT_EQ(byte(operation::ping, ""), 0);
  EXPECT_EQ(byte(operation::ping, "now"), -1);
  EXPECT_EQ(argumentFrom(operation::setChargeLimit, "256").error(),
            "set-limit \"256\" is not allowed (allowed: whole numbers from 0 to 255)");
}

// An error may hold texts, numbers and dictionaries of these, where the interface allows it.
TEST(XPCMessagesTest, AnErrorsDetailsAreOfTheAllowedClasses) {
  EXPECT_TRUE(mayAnswer(operation::setChargeLimit, failure({})));
  EXPECT_TRUE(mayAnswer(operation::setChargeLimit, failure({{"text", "a"}, {"smcResult", 134}})));
  const PropertyValue::Dictionary nested{{"inner", PropertyValue::Dictionary{{"number", 1}}}};
  EXPECT_TRUE(mayAnswer(operation::setChargeLimit, failure(nested)));
  const PropertyValue::Dictionary data{{"bytes", PropertyValue::Data{1}}};
  const PropertyValue::Dictionary date{{"when", korvel::Date{0}}};
  const PropertyValue::Dictionary array{{"list", PropertyValue::Array{1}}};
  const PropertyValue::Dictionary deep{{"inner", data}};
  for (const auto& details : {data, date, array, deep})
    EXPECT_FALSE(mayAnswer(operation::setChargeLimit, failure(details)));
}

// As with the platform's setter, the last setting of an argument counts.
TEST(XPCMessagesTest, ALaterSettingOfAnArgumentReplacesAnEarlierOne) {
  const std::vector<XPCValue> bytes{PropertyValue(PropertyValue::Data{1})};
  korvel::XPCInterface interface;
  const auto set = [&interface](korvel::ReplyClass allowed) {
    interface.replyClasses.push_back({operation::getState.selector, 0, {allowed}});
  };
  const auto allowed = [&] {
    return checkReply(operation::getState, bytes, interface).has_value();
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
  EXPECT_TRUE(mayAnswer(operation::setClamshellKeepAwake,
                        failure({{"when", korvel::Date{0}}, {"bytes", PropertyValue::Data{1}}})));
}

}  // namespace virtualmac
