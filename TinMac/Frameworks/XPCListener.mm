#include <atomic>
#include <string>

#include "TinMac/Frameworks/BelowServices.h"
#import "TinMac/Frameworks/Objects.h"
#import "TinMac/Frameworks/Weak.h"
#import "TinMac/Frameworks/XPCConnection.h"
#import "TinMac/Frameworks/XPCEndpoint.h"
#import "TinMac/Frameworks/XPCKept.h"

using namespace tinmac;

@interface NSXPCListener (Acceptance)
/// On the listener's own thread, which gives nobody an autorelease pool.
- (BOOL)decideOn:(TinConnection*)accepted;
@end

namespace {

/// The machine lets only one service be published.
std::atomic<bool> isPublished = false;

std::uint32_t accept(void* context, TinConnection* accepted) noexcept {
  auto* listener = static_cast<NSXPCListener*>(claim(context));
  if (listener == nil) return 0;
  const bool isAccepted = [listener decideOn:accepted];
  [listener release];
  return isAccepted ? 1 : 0;
}

}  // namespace

@implementation NSXPCListenerEndpoint
@end

@implementation NSXPCListener {
  NSString* service;
  id weakDelegate;
  bool isResumed;
  /// The rest belongs to an anonymous listener.
  bool isAnonymous;
  void* kept;
  std::uint32_t number;
}

+ (NSXPCListener*)anonymousListener {
  NSXPCListener* listener = [[self alloc] init];
  listener->service = makeString("an anonymous listener");
  listener->isAnonymous = true;
  return autoreleased(listener);
}

- (instancetype)initWithMachServiceName:(NSString*)name {
  expectKind(name, [NSString class], "initWithMachServiceName:");
  self = [super init];
  service = [name copy];
  return self;
}

- (void)dealloc {
  objc_storeWeak(&weakDelegate, nil);
  [service release];
  [super dealloc];
}

- (void)setDelegate:(id<NSXPCListenerDelegate>)delegate {
  objc_storeWeak(&weakDelegate, delegate);
}

/// Without a delegate, or when it says nothing, a connection is refused.
- (BOOL)ask:(NSXPCConnection*)connection {
  const id<NSXPCListenerDelegate> delegate = objc_loadWeakRetained(&weakDelegate);
  const BOOL isAccepted = [delegate respondsToSelector:@selector(listener:
                                                           shouldAcceptNewConnection:)] &&
                          [delegate listener:self shouldAcceptNewConnection:connection];
  [delegate release];
  return isAccepted;
}

- (BOOL)decideOn:(TinConnection*)accepted {
  NSXPCConnection* connection = [[NSXPCConnection alloc] initForAccepting:accepted];
  const BOOL isAccepted = [self ask:connection];
  if (isAccepted && ![connection wasResumed]) {
    trap("resuming a connection after its acceptance is not built", utf8(service));
  }
  [connection endAcceptance];
  [connection release];
  return isAccepted;
}

- (void)resume {
  if (isResumed) {
    tinBooksNote("a listener is resumed that is not suspended", "");
    return;
  }
  isResumed = true;
  if (isAnonymous) return [self serveThisProcess];
  if (isPublished.exchange(true)) trap("a second service of one process is not built", "resume");
  // A published service keeps its listener.
  const TinListener listener{.context = keep(self), .accept = accept};
  tinListen(std::string(utf8(service)).c_str(), &listener);
}

/// It keeps itself until it is invalidated.
- (void)serveThisProcess {
  kept = keep(self);
  const TinListener listener{.context = kept, .accept = accept};
  number = tinListenWithin(&listener);
}

- (NSXPCListenerEndpoint*)endpoint {
  if (!isAnonymous) trap("the endpoint of a published service is not built", utf8(service));
  if (!isResumed) trap("the endpoint of a listener that was not resumed is not built", "endpoint");
  NSXPCListenerEndpoint* made = [[NSXPCListenerEndpoint alloc] init];
  made->number = number;
  return autoreleased(made);
}

- (void)invalidate {
  if (!isAnonymous) trap("invalidating a published service is not built", utf8(service));
  if (!isResumed) trap("invalidating a listener that was never resumed is not built", "invalidate");
  tinEndpointEnd(number);
  letGo(kept);
}

- (void)activate {
  if (!isResumed) [self resume];
}

@end
