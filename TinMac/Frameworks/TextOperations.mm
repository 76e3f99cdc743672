// A program does this with texts, sets and lists beside making them.

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <string>
#include <vector>

#import "TinMac/Frameworks/Arguments.h"
#import "TinMac/Frameworks/Objects.h"

using namespace tinmac;

namespace {

/// Texts of other characters have an order of their own on a Mac.
std::string_view ascii(NSString* text) {
  const std::string_view bytes = utf8(text);
  const bool isAscii =
      std::ranges::all_of(bytes, [](char byte) { return static_cast<signed char>(byte) >= 0; });
  if (!isAscii) trap("comparing texts beyond ASCII is not built", bytes);
  return bytes;
}

}  // namespace

@implementation NSString (Operations)
- (NSString*)stringByAppendingString:(NSString*)string {
  if (string == nil) raise("NSInvalidArgumentException", "stringByAppendingString: nil argument");
  return autoreleased(makeString(std::string(utf8(self)).append(utf8(string))));
}
- (NSData*)dataUsingEncoding:(NSStringEncoding)encoding {
  expectNumber<NSUInteger>(encoding, NSUTF8StringEncoding, "dataUsingEncoding:");
  const std::string_view text = utf8(self);
  return autoreleased(makeData({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}));
}
/// A text that does not begin with a number is 0; a number beyond the range is its end.
- (NSInteger)integerValue {
  return std::strtol(std::string(utf8(self)).c_str(), nullptr, 10);
}
- (NSComparisonResult)compare:(NSString*)other {
  expectKind(other, [NSString class], "-[NSString compare:]");
  const int order = ascii(self).compare(ascii(other));
  return order < 0 ? NSOrderedAscending : order > 0 ? NSOrderedDescending : NSOrderedSame;
}
@end

@implementation NSArray (Operations)
- (NSArray*)sortedArrayUsingSelector:(SEL)comparator {
  const auto elements = elementsOf(self);
  std::vector<id> sorted(elements.begin(), elements.end());
  using Comparison = NSComparisonResult (*)(id, SEL, id);
  const auto compare = reinterpret_cast<Comparison>(objc_msgSend);
  std::ranges::stable_sort(sorted, [&](id first, id second) {
    return compare(first, comparator, second) == NSOrderedAscending;
  });
  return [NSArray arrayWithObjects:sorted.data() count:sorted.size()];
}
@end

@implementation NSSet (Operations)
+ (instancetype)setWithObjects:(id)first, ... {
  NSMutableArray* all = autoreleased(makeArray());
  va_list rest;
  va_start(rest, first);
  for (id object = first; object != nil; object = va_arg(rest, id)) append(all, object);
  va_end(rest);
  return [self setWithArray:all];
}
@end
