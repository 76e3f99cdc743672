#pragma once

#include <cstdint>
#include <map>
#include <span>

#include "TinMac/Frameworks/BelowClient.h"
#include "TinMac/Frameworks/Lock.h"
#import "TinMac/Frameworks/Objects.h"

namespace tinmac {

/// A message whose reply or failure has not come. The blocks are kept objects; null: none.
struct Outstanding {
  SEL selector = nullptr;
  void* reply = nullptr;
  void* failure = nullptr;
};

/// Waits until no connection of this process tells anything; from then on none does.
void quietClients();

}  // namespace tinmac

/// What a connection to a service has beside the connection object, which owns it. Any thread;
/// replies and handlers come on the connection's own.
@interface TinClientSide : NSObject {
  NSString* service;
  NSString* requirement;
  NSXPCInterface* remote;
  TinClient* open;
  void* events;
  os_unfair_lock lock;  ///< Guards what follows.
  void* connection;
  void* interruption;
  void* invalidation;
  bool isOver;
  std::uint32_t lastTicket;
  std::map<std::uint32_t, tinmac::Outstanding> outstanding;
}
- (instancetype)initWithService:(NSString*)name;
- (void)setRemote:(NSXPCInterface*)interface;
- (void)setRequirement:(NSString*)text;
/// Nil takes a handler away.
- (void)setHandler:(id)handler ofInterruption:(bool)isInterruption;
/// The owner lives until the connection is invalid.
- (void)resumeFor:(NSXPCConnection*)owner;
- (void)invalidate;
/// Sends a message with what the registers behind its selector hold.
- (void)send:(SEL)selector
     registers:(std::span<const std::uint64_t>)registers
    failure:(id)handler;
@end

/// Stands for the peer's object.
@interface TinProxy : NSObject {
 @public
  TinClientSide* client;
  NSXPCConnection* connection;
  id failure;
}
@end

namespace tinmac {

/// `failure` may be nil.
TinProxy* makeProxy(TinClientSide* client, NSXPCConnection* connection, id failure);

}  // namespace tinmac
