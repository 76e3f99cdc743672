#import "TinMac/Frameworks/XPCDelivery.h"

#include <objc/message.h>

#include <array>
#include <map>
#include <string>
#include <utility>

#include "TinMac/Frameworks/Lock.h"
#import "TinMac/Frameworks/Protocols.h"
#import "TinMac/Frameworks/XPCKept.h"
#import "TinMac/Frameworks/XPCReply.h"
#include "TinMac/Frameworks/XPCTypes.h"

using namespace tinmac;

@implementation TinExport
- (void)dealloc {
  [connection release];
  [object release];
  [super dealloc];
}
@end

namespace tinmac {

namespace {

/// The arguments behind the receiver and the selector: each takes one register.
using Registers = std::array<std::uint64_t, 6>;
using AnyMessage = void (*)(id, SEL, std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t,
                            std::uint64_t, std::uint64_t);

os_unfair_lock callsLock = OS_UNFAIR_LOCK_INIT;

/// The receivers of each thread's running message, by the place of the thread's pools, which tells
/// threads apart.
std::map<void**, TinExport*>& calls() {
  static auto& running = *new std::map<void**, TinExport*>;
  return running;
}

TinExport* setCall(TinExport* exported) {
  const Locked locked(callsLock);
  return std::exchange(calls()[tinThreadPools()], exported);
}

/// Keeps what a message is sent to for a scope.
class Call {
 public:
  /// Takes the caller's reference.
  explicit Call(TinExport* claimed) : exported(claimed), before(setCall(claimed)) {}
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
  ~Call() {
    setCall(before);
    [exported release];
  }

 private:
  TinExport* exported;
  TinExport* before;
};

/// A message that ends the process does not return, so its call would hold on for ever.
void endOwnCall() { [setCall(nil) release]; }

__attribute__((constructor)) void prepare() { onSettle(endOwnCall); }

/// The peer's one number as the method's type of it. A caller widens it to a whole register.
std::uint64_t scalarArgument(const ArgumentType& type, std::uint32_t given, const char* selector) {
  std::uint32_t most = 0;
  switch (type.kind) {
    case 'B':
      most = 1;
      break;
    case 'C':
      most = UINT8_MAX;
      break;
    case 'S':
      most = UINT16_MAX;
      break;
    case 'I':
    case 'Q':
      most = UINT32_MAX;
      break;
    default:
      trap("a message has an argument of a kind that is not built", selector);
  }
  if (given > most) trap("a message's number does not fit its type", selector);
  return given;
}

/// Puts the message's arguments in order; the peer sent at most one number.
Registers argumentsFor(const Signature& signature, std::uint32_t given, id reply,
                       const char* selector) {
  Registers registers{};
  std::size_t scalars = 0;
  for (std::size_t index = 0; index < signature.arguments.size(); ++index) {
    const ArgumentType& type = signature.arguments[index];
    if (type.kind == blockKind) {
      registers.at(index) = reinterpret_cast<std::uint64_t>(reply);
    } else {
      registers.at(index) = scalarArgument(type, given, selector);
      ++scalars;
    }
  }
  if (scalars > 1) trap("a message has more arguments than are built", selector);
  return registers;
}

void send(const TinExport& exported, SEL selector, const Registers& values, const char* name) {
  @try {
    reinterpret_cast<AnyMessage>(objc_msgSend)(exported.object, selector, values[0], values[1],
                                               values[2], values[3], values[4], values[5]);
  } @catch (NSException* escaped) {
    // Foundation logs it and goes on with the next message.
    tinBooksNote("an exception left a delivered message",
                 (std::string(name) + ": " + std::string(utf8(escaped.reason))).c_str());
  }
}

void deliverTo(const TinExport& exported, const char* name, std::uint32_t argument,
               TinReply* reply) {
  const SEL selector = sel_registerName(name);
  const char* types = extendedTypes(exported.protocol, selector);
  if (types == nullptr) {
    tinBooksNote("a message came that the exported protocol does not have", name);
    if (reply != nullptr) tinReplyDrop(reply);
    return;
  }
  const Signature signature = methodSignature(types);
  const ArgumentType* block = signature.replyBlock();
  if (signature.result != 'v') trap("a message of a connection returns nothing", name);
  if ((block != nullptr) != (reply != nullptr)) {
    trap("the protocol and the peer disagree on whether a message has a reply", name);
  }
  const id replyBlock = block == nullptr ? nil : makeReplyBlock(reply, block->block, name);
  send(exported, selector, argumentsFor(signature, argument, replyBlock, name), name);
  [replyBlock release];
}

/// An exception that is no NSException ends the process here, as on a Mac.
void deliver(void* context, const char* selector, std::uint32_t argument,
             TinReply* reply) noexcept {
  auto* exported = static_cast<TinExport*>(claim(context));
  if (exported == nil) {
    if (reply != nullptr) tinReplyDrop(reply);
    return;
  }
  const Call call(exported);
  @autoreleasepool {
    deliverTo(*exported, selector, argument, reply);
  }
}

}  // namespace

TinExported exportedAs(void* context) {
  return {.context = context, .deliver = deliver, .dropped = letGo};
}

NSXPCConnection* connectionOfCall() {
  const Locked locked(callsLock);
  const auto found = calls().find(tinThreadPools());
  const bool isInCall = found != calls().end() && found->second != nil;
  return isInCall ? found->second->connection : nil;
}

}  // namespace tinmac
