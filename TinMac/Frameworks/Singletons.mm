#include <string>

#include "TinMac/Frameworks/BelowServices.h"
#import "TinMac/Frameworks/Conversion.h"
#import "TinMac/Frameworks/Objects.h"
#import "TinMac/Frameworks/Runtime.h"

/// The class of the two Booleans, which stand in the image and are never allocated: the
/// superclass's variables are not there.
@interface TinBoolean : NSNumber
@end

using namespace tinmac;

namespace {

struct BooleanObject {
  ClassRecord* isa;
  bool value;
};

extern "C" {
extern ClassRecord tinBooleanRecord __asm("_OBJC_CLASS_$_TinBoolean");
extern ClassRecord tinNullRecord __asm("_OBJC_CLASS_$_NSNull");
extern ClassRecord tinBundleRecord __asm("_OBJC_CLASS_$_NSBundle");
extern ClassRecord tinArrayRecord __asm("_OBJC_CLASS_$_NSArray");
extern ClassRecord tinDictionaryRecord __asm("_OBJC_CLASS_$_NSDictionary");
}

BooleanObject yes{&tinBooleanRecord, true};
BooleanObject no{&tinBooleanRecord, false};
ClassRecord* nothing = &tinNullRecord;
ClassRecord* bundle = &tinBundleRecord;

/// A container whose variables are all zero: it is empty.
struct EmptyContainer {
  ClassRecord* isa;
  void* variables[7];
};
EmptyContainer emptyArray{&tinArrayRecord, {}};
EmptyContainer emptyDictionary{&tinDictionaryRecord, {}};

bool truth(id object) { return reinterpret_cast<const BooleanObject*>(object)->value; }

}  // namespace

TIN_EXPORT const CFBooleanRef kCFBooleanTrue = reinterpret_cast<CFBooleanRef>(&yes);
TIN_EXPORT const CFBooleanRef kCFBooleanFalse = reinterpret_cast<CFBooleanRef>(&no);
TIN_EXPORT const CFNullRef kCFNull = reinterpret_cast<CFNullRef>(&nothing);

/// The compiler names them for an empty literal.
TIN_EXPORT void* const __NSArray0__ = &emptyArray;
TIN_EXPORT void* const __NSDictionary0__ = &emptyDictionary;

TIN_EXPORT Boolean CFBooleanGetValue(CFBooleanRef boolean) {
  expectKind((id)boolean, [TinBoolean class], "CFBooleanGetValue");
  return truth((id)boolean);
}

namespace tinmac {

NSNumber* booleanObject(bool value) {
  return (NSNumber*)(value ? kCFBooleanTrue : kCFBooleanFalse);
}

bool isSharedEmpty(const void* object) {
  return object == &emptyArray || object == &emptyDictionary;
}

bool isBoolean(id object) { return object != nil && classOf(object) == &tinBooleanRecord; }

}  // namespace tinmac

@implementation TinBoolean
- (BOOL)boolValue {
  return truth(self);
}
- (long long)longLongValue {
  return truth(self) ? 1 : 0;
}
- (double)doubleValue {
  return truth(self) ? 1 : 0;
}
@end

@implementation NSNull
+ (NSNull*)null {
  return (NSNull*)kCFNull;
}
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  return self;
}
@end

/// There is the main bundle alone.
@implementation NSBundle
+ (NSBundle*)mainBundle {
  return reinterpret_cast<NSBundle*>(&bundle);
}
- (NSString*)executablePath {
  ValueBuilder told;
  tinBundleExecutablePath(told.sink());
  return [told.take() autorelease];
}
- (id)objectForInfoDictionaryKey:(NSString*)key {
  ValueBuilder told;
  tinBundleInfo(std::string(utf8(key)).c_str(), told.sink());
  return [told.take() autorelease];
}
@end
