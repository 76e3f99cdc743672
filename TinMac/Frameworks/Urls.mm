#include <string>

#include "TinMac/Frameworks/Arguments.h"
#import "TinMac/Frameworks/Objects.h"

/// A file's path; nothing else is asked of an address here.
@interface NSURL () {
 @public
  std::string filePath;
}
@end

@implementation NSURL
- (NSString*)path {
  return tinmac::autoreleased(tinmac::makeString(filePath));
}
- (const char*)fileSystemRepresentation {
  return filePath.c_str();
}
- (BOOL)isEqual:(id)other {
  return tinmac::isKind(other, [NSURL class]) && filePath == static_cast<NSURL*>(other)->filePath;
}
- (NSUInteger)hash {
  return filePath.size();
}
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  return [self retain];
}
@end

using namespace tinmac;

/// Null: no path is empty.
TIN_EXPORT CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator,
                                                            const UInt8* buffer, CFIndex length,
                                                            Boolean isDirectory) {
  constexpr const char* function = "CFURLCreateFromFileSystemRepresentation";
  expectDefaultAllocator(allocator, function);
  expectNumber<int>(isDirectory, 0, function);
  if (length <= 0) return nullptr;
  if (buffer == nullptr) trap("a null pointer was passed", function);
  NSURL* url = [[NSURL alloc] init];
  url->filePath.assign(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
  return (CFURLRef)url;
}
