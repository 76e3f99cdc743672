#import "TinMac/Frameworks/XPCClientTypes.h"

#include <string>

#import "TinMac/Frameworks/Conversion.h"
#import "TinMac/Frameworks/XPCInterface.h"

namespace tinmac {

namespace {

/// Each is called with as many arguments as it takes; what stands in later registers it ignores.
using AnyReply = void (^)(std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t,
                          std::uint64_t, std::uint64_t);

void tellArgument(const ArgumentType& type, std::uint64_t value, const TinValueSink& sink,
                  const char* selector) {
  switch (type.kind) {
    case 'B':
      return sink.boolean(sink.context, (value & UINT8_MAX) != 0 ? 1 : 0);
    case 'C':
      return sink.integer(sink.context, static_cast<std::uint8_t>(value));
    case 'S':
      return sink.integer(sink.context, static_cast<std::uint16_t>(value));
    case 'I':
      return sink.integer(sink.context, static_cast<std::uint32_t>(value));
    case 'i':
      return sink.integer(sink.context, static_cast<std::int32_t>(value));
    case 'q':
    case 'Q':
      return sink.integer(sink.context, static_cast<std::int64_t>(value));
    default:
      trap("a message has an argument of a kind that is not built",
           std::string(selector) + ": " + type.kind);
  }
}

bool isInteger(id value) {
  return isKind(value, [NSNumber class]) && !isBoolean(value) &&
         CFNumberIsFloatType((CFNumberRef)value) == 0;
}

}  // namespace

void tellArguments(const Signature& signature, std::span<const std::uint64_t> registers,
                   const char* selector) {
  if (signature.arguments.size() > registers.size()) {
    trap("a message has more arguments than are built", selector);
  }
  const TinValueSink& sink = *tinOutgoingValue();
  sink.beginArray(sink.context);
  for (std::size_t index = 0; index < signature.arguments.size(); ++index) {
    const ArgumentType& type = signature.arguments[index];
    if (&type != signature.replyBlock()) tellArgument(type, registers[index], sink, selector);
  }
  sink.end(sink.context);
}

ReplyValues::ReplyValues(const TinAnswer* answer) : values(makeArray()) {
  ValueBuilder told;
  tinAnswerTell(answer, told.sink());
  while (told.count() > 0) {
    const id value = told.take();
    append(values, value == nil ? (id)kCFNull : value);
    [value release];
  }
}

ReplyValues::~ReplyValues() { [values release]; }

bool ReplyValues::fit(const Signature& block, NSXPCInterface* interface, SEL selector) {
  const std::span<const id> given = elementsOf(values);
  if (given.size() != block.arguments.size() || given.size() > registers.size()) return false;
  for (std::size_t index = 0; index < given.size(); ++index) {
    const id value = given[index] == (id)kCFNull ? nil : given[index];
    const ArgumentType& type = block.arguments[index];
    if (type.kind == objectKind && ![interface allows:value
                                            inReplyTo:selector
                                             argument:static_cast<std::uint32_t>(index)
                                             declared:type.className]) {
      return false;
    }
    if (!place(type, value)) return false;
  }
  return true;
}

bool ReplyValues::place(const ArgumentType& type, id value) {
  std::uint64_t& next = registers.at(used++);
  switch (type.kind) {
    case objectKind:
      next = reinterpret_cast<std::uint64_t>(value);
      return true;
    case 'B':
      if (!isBoolean(value)) return false;
      next = [(NSNumber*)value boolValue] ? 1 : 0;
      return true;
    case 'i':
    case 'I':
    case 'q':
    case 'Q':
      if (!isInteger(value)) return false;
      next = static_cast<std::uint64_t>([(NSNumber*)value longLongValue]);
      return true;
    default:
      trap("a reply has an argument of a kind that is not built", std::string(1, type.kind));
  }
}

void ReplyValues::hand(id block) const {
  ((AnyReply)block)(registers[0], registers[1], registers[2], registers[3], registers[4],
                    registers[5], registers[6]);
}

}  // namespace tinmac
