#include <string>

#import "TinMac/Frameworks/Objects.h"

TIN_EXPORT NSString* const NSLocalizedDescriptionKey = @"NSLocalizedDescription";
TIN_EXPORT NSString* const NSDebugDescriptionErrorKey = @"NSDebugDescription";
TIN_EXPORT NSString* const NSCocoaErrorDomain = @"NSCocoaErrorDomain";
TIN_EXPORT NSString* const NSPOSIXErrorDomain = @"NSPOSIXErrorDomain";
TIN_EXPORT NSString* const NSGenericException = @"NSGenericException";
TIN_EXPORT NSString* const NSInvalidArgumentException = @"NSInvalidArgumentException";

namespace tinmac {

NSError* makeError(std::string_view domain, std::int64_t code, NSDictionary* details) {
  NSString* text = makeString(domain);
  NSError* error = [[NSError alloc] initWithDomain:text code:code userInfo:details];
  [text release];
  return error;
}

}  // namespace tinmac

using namespace tinmac;

@implementation NSError

+ (id)errorWithDomain:(NSErrorDomain)domain code:(NSInteger)code userInfo:(NSDictionary*)dict {
  return [[[self alloc] initWithDomain:domain code:code userInfo:dict] autorelease];
}
- (id)initWithDomain:(NSErrorDomain)domain code:(NSInteger)code userInfo:(NSDictionary*)dict {
  expectKind(domain, [NSString class], "-[NSError initWithDomain:code:userInfo:]");
  _domain = [domain copy];
  _code = code;
  _userInfo = dict == nil ? [[NSDictionary alloc] init] : [dict copy];
  return self;
}
- (void)dealloc {
  [_domain release];
  [_userInfo release];
  [super dealloc];
}

- (NSErrorDomain)domain {
  return _domain;
}
- (NSInteger)code {
  return _code;
}
- (NSDictionary*)userInfo {
  return _userInfo;
}
- (NSString*)localizedDescription {
  if (NSString* told = [_userInfo objectForKey:NSLocalizedDescriptionKey]) return told;
  return autoreleased(makeString("The operation couldn’t be completed. (" +
                                 std::string(utf8(_domain)) + " error " + std::to_string(_code) +
                                 ".)"));
}
- (BOOL)isEqual:(id)other {
  if (!isKind(other, [NSError class])) return NO;
  const NSError* error = static_cast<NSError*>(other);
  return _code == error->_code && [_domain isEqual:error->_domain] &&
         [_userInfo isEqual:error->_userInfo];
}
- (NSUInteger)hash {
  return static_cast<NSUInteger>(_code);
}
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  return [self retain];
}

@end
