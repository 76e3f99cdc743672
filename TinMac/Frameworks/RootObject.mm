#include <string>

#import "TinMac/Frameworks/Runtime.h"

using namespace tinmac;

extern "C" {
extern ClassRecord tinConstantStringClass __asm("___CFConstantStringClassReference");
extern ClassRecord tinBooleanClass __asm("_OBJC_CLASS_$_TinBoolean");
extern ClassRecord tinBundleClass __asm("_OBJC_CLASS_$_NSBundle");
extern ClassRecord tinNullClass __asm("_OBJC_CLASS_$_NSNull");
extern ClassRecord tinProtocolClass __asm("_OBJC_CLASS_$_Protocol");
extern ClassRecord tinStackBlockClass __asm("__NSConcreteStackBlock");
extern ClassRecord tinGlobalBlockClass __asm("__NSConcreteGlobalBlock");
}

namespace tinmac {

bool hasNoOwners(id object) {
  const ClassRecord* cls = classOf(object);
  for (const ClassRecord* constant :
       {&tinConstantStringClass, &tinBooleanClass, &tinBundleClass, &tinNullClass,
        &tinProtocolClass, &tinStackBlockClass, &tinGlobalBlockClass}) {
    if (cls == constant) return true;
  }
  return isSharedEmpty(object) || isKnownClass(reinterpret_cast<const ClassRecord*>(object));
}

bool isKind(id object, Class cls) { return object != nil && isBelow(classOf(object), record(cls)); }

void expectKind(id object, Class cls, const char* function) {
  if (object == nil) trap("a null pointer was passed", function);
  if (isKind(object, cls)) return;
  trap("an object of the wrong type was passed",
       std::string(function) + " was given a " + className(classOf(object)));
}

}  // namespace tinmac

@implementation NSObject

+ (id)alloc {
  return allocate(record(self));
}
+ (id)new {
  return [[self alloc] init];
}
+ (Class)class {
  return self;
}
+ (Class)superclass {
  return classFor(record(self)->superclass);
}
+ (BOOL)instancesRespondToSelector:(SEL)selector {
  return findMethod(record(self), selector) != nullptr;
}
+ (BOOL)conformsToProtocol:(Protocol*)protocol {
  for (const ClassRecord* cls = record(self); cls != nullptr; cls = cls->superclass) {
    if (conforms(cls->facts().protocols, record(protocol))) return YES;
  }
  return NO;
}

- (id)init {
  return self;
}
- (void)dealloc {
  destroy(self);
}

- (Class)class {
  return classFor(classOf(self));
}
- (Class)superclass {
  return classFor(classOf(self)->superclass);
}
- (id)self {
  return self;
}
- (BOOL)isProxy {
  return NO;
}
- (BOOL)isKindOfClass:(Class)cls {
  return isBelow(classOf(self), record(cls));
}
- (BOOL)isMemberOfClass:(Class)cls {
  return classOf(self) == record(cls);
}
- (BOOL)conformsToProtocol:(Protocol*)protocol {
  return [[self class] conformsToProtocol:protocol];
}
- (BOOL)respondsToSelector:(SEL)selector {
  return findMethod(classOf(self), selector) != nullptr;
}
- (IMP)methodForSelector:(SEL)selector {
  return tinMessageLookup(self, selector);
}

- (BOOL)isEqual:(id)other {
  return self == other;
}
- (NSUInteger)hash {
  return reinterpret_cast<NSUInteger>(self);
}

- (id)retain {
  return tinmac::retain(self);
}
- (oneway void)release {
  tinmac::release(self);
}
- (id)autorelease {
  tinmac::autorelease(self);
  return self;
}
- (NSUInteger)retainCount {
  return static_cast<NSUInteger>(ownersOf(self));
}
- (id)copy {
  return [(id<NSCopying>)self copyWithZone:nil];
}

@end
