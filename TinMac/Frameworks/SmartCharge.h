#pragma once

#import "TinMac/Frameworks/Objects.h"

/// An object of a class that came with a library which the program loaded. Its methods are the
/// machine's, also alloc; so it has no ancestor that would lend it one.
__attribute__((objc_root_class))
@interface TinLoadedObject {
 @public
  Class isa;
  /// The machine's name for it; 0 once an initialiser took it.
  uint64_t name;
}
+ (Class)class;
- (void)dealloc;
- (BOOL)respondsToSelector:(SEL)selector;
- (IMP)methodForSelector:(SEL)selector;
@end

namespace tinmac {

/// A class of the machine's, and the methods that were looked up in it.
struct LoadedClass;

/// The implementation that calls the machine for a selector; null: no prototype is known for it.
IMP loadedImplementation(SEL selector);

/// A new object with one reference that is the caller's.
TinLoadedObject* makeLoaded(Class cls, std::uint64_t name);
/// The machine's name of a class that the class finder gave.
std::uint64_t nameOfLoaded(Class cls);
/// The machine's name of a method that was looked up in the class; traps when none was.
std::uint64_t loadedMethod(Class cls, SEL selector);

}  // namespace tinmac
