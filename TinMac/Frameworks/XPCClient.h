#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <span>

#include "TinMac/Frameworks/BelowClient.h"
#include "TinMac/Frameworks/Lock.h"
#import "TinMac/Frameworks/Objects.h"

namespace tinmac {

class AwaitedMessage;
class ReplyValues;

/// A message whose reply or failure has not come. The blocks are kept objects; null: none.
struct Outstanding {
  SEL selector = nullptr;
  void* reply = nullptr;
  void* failure = nullptr;
  AwaitedMessage* awaited = nullptr;  ///< Null: its sender goes on.
};

/// Waits until no connection of this process tells anything; from then on none does.
void quietClients();

}  // namespace tinmac

/// A connection to a service has this beside the connection object, which owns it. Any thread;
/// replies and handlers come on the connection's own.
@interface TinClientSide : NSObject {
  NSString* service;
  std::uint32_t endpoint;  ///< Of this process; 0: it is a service of the machine.
  NSString* requirement;
  NSXPCInterface* remote;
  TinClient* open;
  void* events;
  std::atomic<void**> teller;  ///< The pools of the thread on which replies and handlers come.
  os_unfair_lock lock;         ///< Guards what follows.
  void* connection;
  void* interruption;
  void* invalidation;
  bool isOver;
  std::uint32_t lastTicket;
  std::map<std::uint32_t, tinmac::Outstanding> outstanding;
}
- (instancetype)initWithService:(NSString*)name;
- (instancetype)initWithEndpoint:(std::uint32_t)number;
- (void)setRemote:(NSXPCInterface*)interface;
- (void)setRequirement:(NSString*)text;
/// Nil takes a handler away.
- (void)setHandler:(id)handler ofInterruption:(bool)isInterruption;
/// The owner lives until the connection is invalid.
- (void)resumeFor:(NSXPCConnection*)owner;
- (void)invalidate;
/// Sends a message with what the registers behind its selector hold. One that `waits` returns after
/// its reply or its failure, and calls their blocks on this thread.
- (void)send:(SEL)selector
    registers:(std::span<const std::uint64_t>)registers
      failure:(id)handler
        waits:(bool)waits;
@end

/// Stands for the peer's object.
@interface TinProxy : NSObject {
 @public
  TinClientSide* client;
  NSXPCConnection* connection;
  id failure;
  bool waits;
}
@end

namespace tinmac {

/// `failure` may be nil.
TinProxy* makeProxy(TinClientSide* client, NSXPCConnection* connection, id failure);

}  // namespace tinmac
