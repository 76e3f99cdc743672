#include <array>

#import "TinMac/Frameworks/Runtime.h"
#import "TinMac/Frameworks/XPCClient.h"

using namespace tinmac;

@implementation TinProxy
- (void)dealloc {
  [client release];
  [connection release];
  [failure release];
  [super dealloc];
}
@end

namespace tinmac {

namespace {

/// A message's integers and objects come in these registers, one each, of any type.
void sendOn(TinProxy* proxy, SEL selector, std::uint64_t first, std::uint64_t second,
            std::uint64_t third, std::uint64_t fourth, std::uint64_t fifth, std::uint64_t sixth) {
  const std::array registers{first, second, third, fourth, fifth, sixth};
  [proxy->client send:selector registers:registers failure:proxy->failure waits:proxy->waits];
}

/// Every message goes to the peer but those that each object answers itself, and those that the
/// runtime makes, which begin with a dot.
IMP findProxyMethod(void* context, SEL selector, bool ofClass) {
  (void)context;
  const bool isOwn = ofClass || nameOf(selector)[0] == '.' ||
                     findMethod(record([TinProxy class]), selector) != nullptr;
  return isOwn ? nullptr : reinterpret_cast<IMP>(sendOn);
}

}  // namespace

TinProxy* makeProxy(TinClientSide* client, NSXPCConnection* connection, id failure) {
  static const Class cls = makeClass("TinRemoteProxy", [TinProxy class], findProxyMethod, nullptr);
  auto* proxy = static_cast<TinProxy*>(allocate(record(cls)));
  proxy->client = [client retain];
  proxy->connection = [connection retain];
  proxy->failure = [failure copy];
  return proxy;
}

}  // namespace tinmac
