#import "TinMac/Frameworks/Objects.h"
#import "TinMac/Frameworks/Runtime.h"

using namespace tinmac;

TIN_EXPORT const CFAllocatorRef kCFAllocatorDefault = nullptr;

namespace {

/// Below this number a type is one that Apple's headers have a function for.
enum class Type : CFTypeID {
  String = 1,
  Boolean,
  Number,
  Data,
  Date,
  Array,
  Dictionary,
  Set,
  Url,
  Error,
  Null,
};

CFTypeID number(Type type) { return static_cast<CFTypeID>(type); }

struct TypeOfClass {
  Class cls;
  Type type;
};

/// Booleans come first, because they are numbers too as far as Foundation goes.
CFTypeID typeOf(id object) {
  if (isBoolean(object)) return number(Type::Boolean);
  const TypeOfClass known[] = {
      {[NSString class], Type::String}, {[NSNumber class], Type::Number},
      {[NSData class], Type::Data},     {[NSDate class], Type::Date},
      {[NSArray class], Type::Array},   {[NSDictionary class], Type::Dictionary},
      {[NSSet class], Type::Set},       {[NSURL class], Type::Url},
      {[NSError class], Type::Error},   {[NSNull class], Type::Null},
  };
  for (const TypeOfClass& each : known) {
    if (isKind(object, each.cls)) return number(each.type);
  }
  return reinterpret_cast<CFTypeID>(classOf(object));
}

}  // namespace

TIN_EXPORT CFTypeID CFStringGetTypeID(void) { return number(Type::String); }
TIN_EXPORT CFTypeID CFBooleanGetTypeID(void) { return number(Type::Boolean); }
TIN_EXPORT CFTypeID CFNumberGetTypeID(void) { return number(Type::Number); }
TIN_EXPORT CFTypeID CFDataGetTypeID(void) { return number(Type::Data); }
TIN_EXPORT CFTypeID CFDateGetTypeID(void) { return number(Type::Date); }
TIN_EXPORT CFTypeID CFArrayGetTypeID(void) { return number(Type::Array); }
TIN_EXPORT CFTypeID CFDictionaryGetTypeID(void) { return number(Type::Dictionary); }

TIN_EXPORT CFTypeID CFGetTypeID(CFTypeRef object) {
  expectKind((id)object, [NSObject class], "CFGetTypeID");
  return typeOf((id)object);
}

TIN_EXPORT CFTypeRef CFRetain(CFTypeRef object) {
  if (object == nullptr) trap("a null pointer was passed", "CFRetain");
  return (CFTypeRef)tinmac::retain((id)object);
}

TIN_EXPORT void CFRelease(CFTypeRef object) {
  if (object == nullptr) trap("a null pointer was passed", "CFRelease");
  tinmac::release((id)object);
}

TIN_EXPORT CFIndex CFGetRetainCount(CFTypeRef object) {
  expectKind((id)object, [NSObject class], "CFGetRetainCount");
  return static_cast<CFIndex>(ownersOf((id)object));
}

TIN_EXPORT Boolean CFEqual(CFTypeRef one, CFTypeRef other) {
  expectKind((id)one, [NSObject class], "CFEqual");
  expectKind((id)other, [NSObject class], "CFEqual");
  return [(id)one isEqual:(id)other];
}

TIN_EXPORT CFHashCode CFHash(CFTypeRef object) {
  expectKind((id)object, [NSObject class], "CFHash");
  return [(id)object hash];
}
