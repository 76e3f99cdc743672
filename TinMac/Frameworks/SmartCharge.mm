#import "TinMac/Frameworks/SmartCharge.h"

#include <dlfcn.h>

#include <map>

#include "TinMac/Frameworks/BelowServices.h"
#include "TinMac/Frameworks/Lock.h"
#import "TinMac/Frameworks/Runtime.h"

namespace tinmac {

struct LoadedClass {
  std::uint64_t name = 0;
  Class cls = Nil;
  std::map<SEL, std::uint64_t> methods;
};

namespace {

os_unfair_lock loadedLock = OS_UNFAIR_LOCK_INIT;

std::map<std::uint64_t, LoadedClass>& loadedClasses() {
  static auto& byName = *new std::map<std::uint64_t, LoadedClass>;
  return byName;
}

/// Only what has a prototype is asked for: the runtime also looks up what every object has.
IMP findMethodOf(void* context, SEL selector, bool ofClass) {
  auto& cls = *static_cast<LoadedClass*>(context);
  const IMP implementation = loadedImplementation(selector);
  if (implementation == nullptr) return nullptr;
  const std::uint64_t method = ofClass ? tinPowerUIClassMethod(cls.name, nameOf(selector))
                                       : tinPowerUIInstanceMethod(cls.name, nameOf(selector));
  if (method == 0) return nullptr;
  const Locked locked(loadedLock);
  cls.methods[selector] = method;
  return implementation;
}

Class classFor(std::uint64_t machineName, const char* className) {
  const Locked locked(loadedLock);
  LoadedClass& cls = loadedClasses()[machineName];
  if (cls.cls == Nil) {
    cls.name = machineName;
    cls.cls = makeClass(className, [TinLoadedObject class], findMethodOf, &cls);
  }
  return cls.cls;
}

/// A thing that is no class by the machine's word is an object here, so that the runtime says the
/// same of it.
id findClass(const char* name) {
  const std::uint64_t found = tinPowerUIClass(name);
  if (found == 0) return nil;
  if (tinPowerUIIsClass(found) != 0) return (id)classFor(found, name);
  static TinLoadedObject* const noClass = makeLoaded([TinLoadedObject class], 0);
  return (id)noClass;
}

__attribute__((constructor)) void prepare() { setClassFinder(findClass); }

LoadedClass& loadedClass(Class cls) {
  for (auto& [name, loaded] : loadedClasses()) {
    if (loaded.cls == cls) return loaded;
  }
  trap("a class of no loaded library", className(record(cls)));
}

}  // namespace

TinLoadedObject* makeLoaded(Class cls, std::uint64_t name) {
  auto* made = (TinLoadedObject*)allocate(record(cls));
  made->name = name;
  return made;
}

std::uint64_t nameOfLoaded(Class cls) {
  const Locked locked(loadedLock);
  return loadedClass(cls).name;
}

std::uint64_t loadedMethod(Class cls, SEL selector) {
  const Locked locked(loadedLock);
  const LoadedClass& searched = loadedClass(cls);
  const auto found = searched.methods.find(selector);
  if (found == searched.methods.end()) {
    trap("a loaded method is called that nobody looked up", nameOf(selector));
  }
  return found->second;
}

}  // namespace tinmac

using namespace tinmac;

@implementation TinLoadedObject

+ (Class)class {
  return (Class)self;
}

- (void)dealloc {
  if (name != 0) tinPowerUIRelease(name);
  destroy((id)self);
}

- (BOOL)respondsToSelector:(SEL)selector {
  if (tinPowerUIResponds(name, nameOf(selector)) != 0) return YES;
  return findOwnMethod(record([TinLoadedObject class]), selector) != nullptr;
}

- (IMP)methodForSelector:(SEL)selector {
  const IMP implementation = loadedImplementation(selector);
  if (implementation == nullptr) {
    trap("a method of a loaded library is asked for whose prototype is not known",
         nameOf(selector));
  }
  return implementation;
}

@end

TIN_EXPORT void* dlopen(const char* path, int mode) {
  if (path == nullptr) trap("only libraries with a path are loaded", __func__);
  return reinterpret_cast<void*>(tinPowerUILoad(path, mode));
}
