#include <map>
#include <string>

#include "TinMac/Frameworks/Lock.h"
#import "TinMac/Frameworks/Objects.h"
#import "TinMac/Frameworks/Runtime.h"
#include "TinMac/Frameworks/Unicode.h"

@interface NSString () {
 @public
  std::string text;
}
@end

/// The class of the texts that a compiler wrote into an image. None is ever allocated, so the
/// superclass's variables are not there.
@interface TinConstantString : NSString
@end

__asm__(".globl ___CFConstantStringClassReference\n"
        ".set ___CFConstantStringClassReference, _OBJC_CLASS_$_TinConstantString\n");

namespace tinmac {

namespace {

struct ConstantString {
  ClassRecord* isa;
  std::uint64_t flags;
  const char* bytes;
  std::uint64_t length;
};

extern "C" ClassRecord tinConstantStringRecord __asm("_OBJC_CLASS_$_TinConstantString");

/// The compiler keeps a text that is not all ASCII as UTF-16; it is converted once.
std::string_view convertedConstant(const ConstantString* constant) {
  static os_unfair_lock lock = OS_UNFAIR_LOCK_INIT;
  static auto& converted = *new std::map<const ConstantString*, std::string>;
  const Locked locked(lock);
  const auto [place, isNew] = converted.try_emplace(constant);
  if (isNew) {
    place->second = textOf(reinterpret_cast<const char16_t*>(constant->bytes), constant->length);
  }
  return place->second;
}

std::string_view constantText(const void* object) {
  constexpr std::uint64_t isUtf16 = 0x10;
  const auto* constant = static_cast<const ConstantString*>(object);
  if ((constant->flags & isUtf16) != 0) return convertedConstant(constant);
  return {constant->bytes, constant->length};
}

}  // namespace

NSString* makeString(std::string_view text) {
  if (!isText(text)) trap("a text that is not UTF-8", text);
  NSString* string = [[NSString alloc] init];
  string->text = text;
  return string;
}

std::string_view utf8(NSString* string) {
  expectKind(string, [NSString class], "utf8");
  return classOf(string) == &tinConstantStringRecord ? constantText(string) : string->text;
}

}  // namespace tinmac

using namespace tinmac;

@implementation TinConstantString
@end

@implementation NSString

+ (id)string {
  return autoreleased(makeString(""));
}
+ (id)stringWithUTF8String:(const char*)bytes {
  return [[[self alloc] initWithUTF8String:bytes] autorelease];
}
+ (id)stringWithString:(NSString*)string {
  return autoreleased(makeString(utf8(string)));
}

- (id)initWithUTF8String:(const char*)bytes {
  if (bytes == nullptr) trap("a null pointer was passed", "-[NSString initWithUTF8String:]");
  if (isUtf8(bytes)) {
    text = bytes;
    return self;
  }
  [self release];
  return nil;
}

- (NSUInteger)length {
  return utf16Length(utf8(self));
}
- (unichar)characterAtIndex:(NSUInteger)index {
  const std::vector<char16_t> units = utf16Units(utf8(self));
  if (index >= units.size()) raise("NSRangeException", "an index beyond the text's end");
  return units[index];
}
/// Valid as long as the string. Constant texts end with a zero as well.
- (const char*)UTF8String {
  return utf8(self).data();
}
- (BOOL)isEqualToString:(NSString*)other {
  return other != nil && utf8(self) == utf8(other);
}
- (BOOL)isEqual:(id)other {
  return isKind(other, [NSString class]) && utf8(self) == utf8(static_cast<NSString*>(other));
}
- (NSUInteger)hash {
  return std::hash<std::string_view>()(utf8(self));
}
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  return [self retain];
}
- (NSString*)description {
  return self;
}

@end
