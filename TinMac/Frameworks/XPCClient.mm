#import "TinMac/Frameworks/XPCClient.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#import "TinMac/Frameworks/Protocols.h"
#import "TinMac/Frameworks/Runtime.h"
#import "TinMac/Frameworks/Weak.h"
#include "TinMac/Frameworks/XPCAwaited.h"
#import "TinMac/Frameworks/XPCClientTypes.h"
#import "TinMac/Frameworks/XPCKept.h"

using namespace tinmac;

/// Leads the machine's events to a client that may be gone.
@interface TinClientLine : NSObject {
 @public
  id weakClient;
}
@end

@implementation TinClientLine
- (void)dealloc {
  objc_storeWeak(&weakClient, nil);
  [super dealloc];
}
@end

@interface TinClientSide ()
- (void)take:(std::uint32_t)ticket answer:(const TinAnswer*)answer;
- (void)fail:(std::uint32_t)ticket end:(std::uint32_t)end;
- (Outstanding)outstandingFor:(SEL)selector reply:(id)reply failure:(id)failure;
- (Outstanding)withdraw:(std::uint32_t)ticket;
- (void)dropMessage:(std::uint32_t)ticket;
- (void)end:(const Outstanding&)message values:(const ReplyValues*)values code:(std::int64_t)code;
- (void)tell:(void*)handler code:(std::int64_t)code;
- (void)beginTelling;
- (void)endedBy:(std::uint32_t)end;
@end

namespace {

std::atomic<bool> wasOpened = false;

/// Runs `told` with the client in a pool of its own, unless it is gone.
template <class Told>
void tellClient(void* context, Told told) noexcept {
  auto* line = static_cast<TinClientLine*>(claim(context));
  if (line == nil) return;
  auto* client = static_cast<TinClientSide*>(objc_loadWeakRetained(&line->weakClient));
  [line release];
  if (client == nil) return;
  @autoreleasepool {
    [client beginTelling];
    told(client);
  }
  [client release];
}

void replied(void* context, std::uint32_t ticket, const TinAnswer* answer) {
  tellClient(context, [=](TinClientSide* client) { [client take:ticket answer:answer]; });
}
void failed(void* context, std::uint32_t ticket, std::uint32_t end) {
  tellClient(context, [=](TinClientSide* client) { [client fail:ticket end:end]; });
}
void ended(void* context, std::uint32_t end) {
  tellClient(context, [=](TinClientSide* client) { [client endedBy:end]; });
}

/// Runs a kept handler, if there is one.
void runKept(void* handler) {
  const id block = claim(handler);
  if (block != nil) ((void (^)(void))block)();
  [block release];
}

NSError* errorFor(std::int64_t code, NSString* service) {
  NSMutableDictionary* details = makeDictionary();
  NSString* text = makeString("Couldn’t communicate with a helper application.");
  NSString* debug = makeString("connection to service named " + std::string(utf8(service)));
  set(details, NSLocalizedDescriptionKey, text);
  set(details, NSDebugDescriptionErrorKey, debug);
  NSError* error = makeError(utf8(NSCocoaErrorDomain), code, details);
  [text release];
  [debug release];
  [details release];
  return autoreleased(error);
}

std::int64_t codeFor(std::uint32_t end) {
  switch (end) {
    case TinClientInterrupted:
      return NSXPCConnectionInterrupted;
    case TinClientRefused:
      return NSXPCConnectionCodeSigningRequirementFailure;
    default:
      return NSXPCConnectionInvalid;
  }
}

}  // namespace

namespace tinmac {

void quietClients() {
  if (wasOpened) tinClientsQuiet();
}

}  // namespace tinmac

@implementation TinClientSide

- (instancetype)initWithService:(NSString*)name {
  self = [super init];
  service = [name copy];
  lock = OS_UNFAIR_LOCK_INIT;
  return self;
}

- (instancetype)initWithEndpoint:(std::uint32_t)number {
  NSString* name = makeString("an anonymous listener");
  self = [self initWithService:name];
  [name release];
  endpoint = number;
  return self;
}

- (void)dealloc {
  if (open == nullptr) {
    tinBooksNote("a client's connection went away that was never resumed", "");
  } else {
    tinClientClose(open);
  }
  letGo(events);
  letGo(interruption);
  letGo(invalidation);
  for (const auto& [ticket, message] : outstanding) {
    letGo(message.reply);
    letGo(message.failure);
  }
  [service release];
  [requirement release];
  [remote release];
  [super dealloc];
}

- (void)setRemote:(NSXPCInterface*)interface {
  expectKind(interface, [NSXPCInterface class], "setRemoteObjectInterface:");
  if (open != nullptr) {
    trap("a connection is changed after it was resumed", "setRemoteObjectInterface:");
  }
  [interface retain];
  [remote release];
  remote = interface;
}

- (void)setRequirement:(NSString*)text {
  expectKind(text, [NSString class], "setCodeSigningRequirement:");
  const std::string given(utf8(text));
  if (open != nullptr) {
    trap("a connection is changed after it was resumed", "setCodeSigningRequirement:");
  }
  if (requirement != nil) trap("a connection's code-signing requirement is set twice", given);
  if (tinRequirementParses(given.c_str()) == 0) {
    raise("NSInvalidArgumentException", "the code-signing requirement does not parse: " + given);
  }
  if (endpoint != 0) {
    trap("a requirement of a connection within the process is not built", given);
  }
  requirement = [text copy];
}

- (void)setHandler:(id)handler ofInterruption:(bool)isInterruption {
  const id block = [handler copy];
  void* kept = block == nil ? nullptr : keep(block);
  [block release];
  void* before = nullptr;
  {
    const Locked locked(lock);
    // An invalid connection has no handlers any more.
    before = isOver ? kept : std::exchange(isInterruption ? interruption : invalidation, kept);
  }
  letGo(before);
}

- (void)resumeFor:(NSXPCConnection*)owner {
  if (open != nullptr) {
    tinBooksNote("a connection is resumed that is not suspended", "");
    return;
  }
  wasOpened = true;
  TinClientLine* line = [[TinClientLine alloc] init];
  objc_storeWeak(&line->weakClient, self);
  events = keep(line);
  [line release];
  connection = keep(owner);
  const TinClientEvents told{
      .context = events, .replied = replied, .failed = failed, .ended = ended};
  if (endpoint != 0) {
    open = tinClientOpenWithin(endpoint, &told);
    return;
  }
  const std::string text(requirement == nil ? "" : utf8(requirement));
  open = tinClientOpen(std::string(utf8(service)).c_str(),
                       requirement == nil ? nullptr : text.c_str(), &told);
}

- (void)invalidate {
  if (open == nullptr) {
    trap("invalidating a connection that was never resumed is not built", utf8(service));
  }
  tinClientInvalidate(open);
}

- (void)send:(SEL)selector
    registers:(std::span<const std::uint64_t>)registers
      failure:(id)handler
        waits:(bool)waits {
  const char* name = nameOf(selector);
  if (remote == nil) trap("a message is sent without an interface of the remote object", name);
  if (open == nullptr) {
    trap("sending a message before the connection is resumed is not built", name);
  }
  const char* types = extendedTypes(remote.protocol, selector);
  if (types == nullptr) {
    raise("NSInvalidArgumentException", std::string("unrecognized selector: ") + name);
  }
  const Signature signature = methodSignature(types);
  if (signature.result != 'v') trap("a message of a connection returns nothing", name);
  if (waits && teller == tinThreadPools()) {
    trap("waiting for a reply on the connection's own thread is not built", name);
  }
  const bool hasReply = signature.replyBlock() != nullptr;
  const id reply = hasReply ? reinterpret_cast<id>(registers[signature.arguments.size() - 1]) : nil;
  if (hasReply && reply == nil) trap("a message is sent without its reply block", name);
  Outstanding message = [self outstandingFor:selector reply:reply failure:handler];
  std::optional<AwaitedMessage> awaited;
  if (waits) message.awaited = &awaited.emplace();
  std::uint32_t ticket = 0;
  {
    const Locked locked(lock);
    ticket = ++lastTicket;
    outstanding[ticket] = message;
  }
  tellArguments(signature, registers, name);
  const bool isSent = tinClientSend(open, hasReply ? ticket : 0, name, ticket) != 0;
  // Nothing more is heard of a message without a reply.
  if (isSent && !hasReply) return [self dropMessage:ticket];
  if (!awaited) return;
  awaited->wait();
  [self end:message values:awaited->values() code:awaited->code()];
}

- (Outstanding)outstandingFor:(SEL)selector reply:(id)reply failure:(id)failure {
  Outstanding message{.selector = selector};
  if (reply != nil) {
    const id copied = [reply copy];
    message.reply = keep(copied);
    [copied release];
  }
  if (failure != nil) message.failure = keep(failure);
  return message;
}

- (void)beginTelling {
  teller = tinThreadPools();
}

- (void)dropMessage:(std::uint32_t)ticket {
  const Outstanding dropped = [self withdraw:ticket];
  letGo(dropped.reply);
  letGo(dropped.failure);
}

/// An empty message when this one is not outstanding.
- (Outstanding)withdraw:(std::uint32_t)ticket {
  const Locked locked(lock);
  const auto found = outstanding.extract(ticket);
  return found ? found.mapped() : Outstanding{};
}

- (void)take:(std::uint32_t)ticket answer:(const TinAnswer*)answer {
  const Outstanding message = [self withdraw:ticket];
  if (message.reply == nullptr) return;
  const Signature signature = methodSignature(extendedTypes(remote.protocol, message.selector));
  auto values = std::make_unique<ReplyValues>(answer);
  if (!values->fit(blockSignature(signature.replyBlock()->block), remote, message.selector)) {
    values.reset();
  }
  if (message.awaited != nullptr) {
    return message.awaited->end(std::move(values), NSXPCConnectionReplyInvalid);
  }
  [self end:message values:values.get() code:NSXPCConnectionReplyInvalid];
}

- (void)fail:(std::uint32_t)ticket end:(std::uint32_t)end {
  const Outstanding message = [self withdraw:ticket];
  if (message.awaited != nullptr) return message.awaited->end(nullptr, codeFor(end));
  [self end:message values:nullptr code:codeFor(end)];
}

/// Calls one of the message's blocks and lets go of both; without values it failed.
- (void)end:(const Outstanding&)message values:(const ReplyValues*)values code:(std::int64_t)code {
  const id block = claim(message.reply);
  letGo(message.reply);
  if (values == nullptr) {
    [self tell:message.failure code:code];
  } else if (block != nil) {
    values->hand(block);
    letGo(message.failure);
  }
  [block release];
}

/// Runs a kept error handler, if there is one, and lets go of it.
- (void)tell:(void*)handler code:(std::int64_t)code {
  const id block = claim(handler);
  letGo(handler);
  if (block != nil) ((void (^)(NSError*))block)(errorFor(code, service));
  [block release];
}

- (void)endedBy:(std::uint32_t)end {
  if (end == TinClientInterrupted) {
    os_unfair_lock_lock(&lock);
    const id handler = claim(interruption);
    os_unfair_lock_unlock(&lock);
    if (handler != nil) ((void (^)(void))handler)();
    [handler release];
    return;
  }
  void* interrupted = nullptr;
  void* invalidated = nullptr;
  void* owner = nullptr;
  {
    const Locked locked(lock);
    isOver = true;
    interrupted = std::exchange(interruption, nullptr);
    invalidated = std::exchange(invalidation, nullptr);
    owner = std::exchange(connection, nullptr);
  }
  runKept(invalidated);
  letGo(invalidated);
  letGo(interrupted);
  letGo(owner);
}

@end
