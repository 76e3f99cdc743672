#include "VirtualMac/Remote/XPCMessages.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>

namespace virtualmac {

using korvel::ErrorObject;
using korvel::Operation;
using korvel::OperationAnswer;
using korvel::OperationArgument;
using korvel::PropertyValue;
using korvel::ReplyClass;

namespace {

constexpr std::uint8_t callTag = 1;
constexpr std::uint8_t replyTag = 2;
constexpr std::uint8_t valueTag = 0;
constexpr std::uint8_t errorTag = 1;

/// The class of a value that travels as an object; none when no setting can name it.
std::optional<ReplyClass> classOf(const PropertyValue& value) {
  if (value.text() != nullptr) return ReplyClass::String;
  if (value.boolean() || value.integer() || value.real()) return ReplyClass::Number;
  if (value.data() != nullptr) return ReplyClass::Data;
  if (value.dictionary() != nullptr) return ReplyClass::Dictionary;
  return std::nullopt;
}

class AllowedClasses {
 public:
  explicit AllowedClasses(const std::vector<ReplyClass>& named) : classes(named) {}

  [[nodiscard]] bool allow(ReplyClass kind) const {
    return std::find(classes.begin(), classes.end(), kind) != classes.end();
  }
  [[nodiscard]] bool allow(const PropertyValue& value) const {
    const std::optional<ReplyClass> kind = classOf(value);
    if (!kind || !allow(*kind)) return false;
    return value.dictionary() == nullptr || allow(*value.dictionary());
  }
  [[nodiscard]] bool allow(const PropertyValue::Dictionary& entries) const {
    return std::all_of(entries.begin(), entries.end(),
                       [this](const auto& entry) { return allow(entry.second); });
  }
  [[nodiscard]] bool allow(const XPCValue& value) const {
    if (const auto* error = std::get_if<ErrorObject>(&value))
      return allow(ReplyClass::Error) && allow(error->userInfo);
    const auto& property = std::get<PropertyValue>(value);
    return property.isAbsent() || allow(property);
  }

 private:
  const std::vector<ReplyClass>& classes;
};

/// True: the reply is as the operation declares it.
bool declared(const Operation& operation, const std::vector<XPCValue>& values) {
  const auto property = [&values](std::size_t index) {
    return index < values.size() ? std::get_if<PropertyValue>(&values[index]) : nullptr;
  };
  const PropertyValue* first = property(0);
  switch (operation.answer) {
    case OperationAnswer::Pid:
      return values.size() == 1 && first != nullptr && first->integer();
    case OperationAnswer::Data:
      return values.size() == 1 && first != nullptr && first->data() != nullptr;
    case OperationAnswer::Outcome: {
      if (values.size() != 2 || first == nullptr || !first->boolean()) return false;
      const PropertyValue* second = property(1);
      return second == nullptr || second->isAbsent();
    }
    case OperationAnswer::None:
      return false;
  }
  return false;
}

}  // namespace

std::string encode(const XPCCall& call) {
  WireWriter body;
  body.u8(callTag);
  body.u32(call.ticket);
  body.text(call.selector);
  body.u8(static_cast<std::uint8_t>(call.arguments.size()));
  for (const PropertyValue& argument : call.arguments) body.property(argument);
  return body.body();
}

std::string encode(const XPCReply& reply) {
  WireWriter body;
  body.u8(replyTag);
  body.u32(reply.ticket);
  body.u8(static_cast<std::uint8_t>(reply.values.size()));
  for (const XPCValue& value : reply.values) {
    if (const auto* error = std::get_if<ErrorObject>(&value)) {
      body.u8(errorTag);
      body.error(*error);
    } else {
      body.u8(valueTag);
      body.property(std::get<PropertyValue>(value));
    }
  }
  return body.body();
}

std::expected<XPCCall, std::string> decodeXPCCall(std::string_view body) {
  WireReader reader(body);
  if (reader.u8() != callTag) reader.fail("a message that is not a call");
  XPCCall call;
  call.ticket = reader.u32();
  call.selector = reader.text();
  for (int count = reader.u8(); count > 0 && !reader.failed(); --count)
    call.arguments.push_back(reader.property());
  if (!reader.finish()) return std::unexpected(reader.failure());
  return call;
}

std::expected<XPCReply, std::string> decodeXPCReply(std::string_view body) {
  WireReader reader(body);
  if (reader.u8() != replyTag) reader.fail("a message that is not a reply");
  XPCReply reply;
  reply.ticket = reader.u32();
  for (int count = reader.u8(); count > 0 && !reader.failed(); --count) {
    const std::uint8_t tag = reader.u8();
    if (tag == errorTag)
      reply.values.emplace_back(reader.error());
    else if (tag == valueTag)
      reply.values.emplace_back(reader.property());
    else
      reader.fail("an unknown sort of reply value");
  }
  if (!reader.finish()) return std::unexpected(reader.failure());
  return reply;
}

XPCCall callOf(const Operation& operation, std::uint8_t argument, std::uint32_t ticket) {
  XPCCall call{ticket, std::string(operation.selector), {}};
  if (operation.argument == OperationArgument::Boolean) call.arguments.emplace_back(argument != 0);
  if (operation.argument == OperationArgument::UInt8) call.arguments.emplace_back(int{argument});
  return call;
}

std::expected<std::uint8_t, std::string> argumentIn(const Operation& operation,
                                                    const std::vector<PropertyValue>& given) {
  const std::size_t expected = operation.argument == OperationArgument::None ? 0 : 1;
  const std::string who(operation.selector);
  if (given.size() != expected)
    return std::unexpected(who + " takes " + std::to_string(expected) + " argument(s), not " +
                           std::to_string(given.size()));
  if (expected == 0) return std::uint8_t{0};
  if (operation.argument == OperationArgument::Boolean) {
    const std::optional<bool> enabled = given.front().boolean();
    if (!enabled) return std::unexpected(who + " takes a Boolean");
    return std::uint8_t{*enabled};
  }
  const std::optional<std::int64_t> number = given.front().integer();
  if (!number || *number < 0 || *number > std::numeric_limits<std::uint8_t>::max())
    return std::unexpected(who + " takes a whole number from 0 to 255");
  return static_cast<std::uint8_t>(*number);
}

std::expected<void, std::string> checkReply(const Operation& operation,
                                            const std::vector<XPCValue>& values,
                                            const korvel::XPCInterface& interface) {
  const std::string who(operation.selector);
  if (!declared(operation, values))
    return std::unexpected("the reply of " + who + " is not what it declares");
  // A later setting for the same argument replaces an earlier one.
  std::map<unsigned, const std::vector<ReplyClass>*> settings;
  for (const korvel::ReplyClassSetting& setting : interface.replyClasses) {
    if (setting.selector == operation.selector)
      settings.insert_or_assign(setting.argumentIndex, &setting.classes);
  }
  for (const auto& [index, classes] : settings) {
    if (index >= values.size() || !AllowedClasses(*classes).allow(values[index]))
      return std::unexpected("the reply of " + who + " holds a class that is not allowed");
  }
  return {};
}

}  // namespace virtualmac
