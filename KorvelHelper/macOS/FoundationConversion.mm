#import "macOS/FoundationConversion.h"

#include "Base/Trap.h"
#include "macOS/PropertyConversion.h"

namespace korvel::macos {

namespace {

Class classFor(ReplyClass replyClass) {
  switch (replyClass) {
    case ReplyClass::Data:
      return [NSData class];
    case ReplyClass::Error:
      return [NSError class];
    case ReplyClass::String:
      return [NSString class];
    case ReplyClass::Number:
      return [NSNumber class];
    case ReplyClass::Dictionary:
      return [NSDictionary class];
  }
  trap("a reply class without a platform class");
}

}  // namespace

NSString* makeNSString(std::string_view text) {
  return (__bridge_transfer NSString*)makeCFString(text).handOver();
}

NSError* makeNSError(const ErrorObject& error) {
  NSDictionary* userInfo =
      (__bridge_transfer NSDictionary*)makeCFDictionary(error.userInfo).handOver();
  return [NSError errorWithDomain:makeNSString(error.domain)
                             code:static_cast<NSInteger>(error.code)
                         userInfo:userInfo];
}

NSXPCInterface* makeNSXPCInterface(const XPCInterface& description) {
  Protocol* protocol = NSProtocolFromString(makeNSString(description.protocolName));
  if (protocol == nil) trap("an interface of a protocol that this program does not define");
  NSXPCInterface* interface = [NSXPCInterface interfaceWithProtocol:protocol];
  for (const ReplyClassSetting& setting : description.replyClasses) {
    NSMutableSet* classes = [NSMutableSet set];
    for (const ReplyClass allowed : setting.classes) [classes addObject:classFor(allowed)];
    [interface setClasses:classes
              forSelector:NSSelectorFromString(makeNSString(setting.selector))
            argumentIndex:setting.argumentIndex
                  ofReply:YES];
  }
  return interface;
}

}  // namespace korvel::macos
