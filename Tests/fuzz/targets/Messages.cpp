#include <string>

#include "KorvelHelperProtocol.h"
#include "Tests/fuzz/Target.h"
#include "VirtualMac/Remote/XPCMessages.h"

namespace korvel::fuzz {

namespace {

using virtualmac::argumentIn;
using virtualmac::callOf;
using virtualmac::checkReply;
using virtualmac::decodeXPCCall;
using virtualmac::decodeXPCReply;
using virtualmac::encode;
using virtualmac::XPCCall;
using virtualmac::XPCReply;

/// A message that reads is written and read again.
template <class Message>
void comesBack(const Message& message,
               std::expected<Message, std::string> (*decode)(std::string_view),
               std::string_view input) {
  const std::string bytes = encode(message);
  require(bytes.size() == input.size(), "a message has not the size of its bytes");
  const auto again = decode(bytes);
  require(again.has_value(), "its own bytes are refused");
  require(encode(*again) == bytes, "a message does not come back from its bytes");
}

void serve(const XPCCall& call) {
  const Operation* operation = operationWith(&Operation::selector, call.selector);
  if (operation == nullptr) return;
  const auto argument = argumentIn(*operation, call.arguments);
  if (!argument) return require(!argument.error().empty(), "a refusal says nothing");
  const XPCCall made = callOf(*operation, *argument, call.ticket);
  require(made.arguments == call.arguments, "another argument is sent than was read");
}

void check(const XPCReply& reply) {
  XPCInterface typed = makeHelperInterface();
  applyTypedReplyClasses(typed);
  for (const Operation& operation : operations) {
    const bool declared = checkReply(operation, reply.values, makeHelperInterface()).has_value();
    const bool allowed = checkReply(operation, reply.values, typed).has_value();
    require(declared || !allowed, "the classes allow a reply that is not declared");
  }
}

}  // namespace

/// The input is a body that the helper gets from a client, or a client from the helper.
void messages(std::string_view input) {
  if (const auto call = decodeXPCCall(input)) {
    comesBack(*call, &decodeXPCCall, input);
    serve(*call);
    require(!decodeXPCReply(input), "a call is a reply as well");
  }
  if (const auto reply = decodeXPCReply(input)) {
    comesBack(*reply, &decodeXPCReply, input);
    check(*reply);
  }
}

}  // namespace korvel::fuzz
