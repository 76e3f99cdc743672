#import <Foundation/Foundation.h>
#include <dlfcn.h>
#import <objc/runtime.h>

#include "Tests/tin/objects/Probe.h"

// A library's class that is looked up while the program runs.

namespace {

using Alloc = void* (*)(void*, SEL);
using Init = void* (*)(void*, SEL, NSString*);
using GetInt32 = std::int32_t (*)(id, SEL, NSError* __autoreleasing*);
using GetObject = id (*)(id, SEL, NSError* __autoreleasing*);
using SetUInt8 = BOOL (*)(id, SEL, std::uint8_t, NSError* __autoreleasing*);

template <class Function>
Function implementation(id object, SEL selector) {
  return reinterpret_cast<Function>([object methodForSelector:selector]);
}

SEL selectorNamed(const char* name) { return sel_registerName(name); }

/// One reference that is the caller's.
id makeClient(Class cls) {
  Method alloc = class_getClassMethod(cls, selectorNamed("alloc"));
  Method init = class_getInstanceMethod(cls, selectorNamed("initWithClientName:"));
  void* allocated = reinterpret_cast<Alloc>(method_getImplementation(alloc))((__bridge void*)cls,
                                                                             method_getName(alloc));
  return (__bridge_transfer id) reinterpret_cast<Init>(method_getImplementation(init))(
      allocated, method_getName(init), @"name");
}

}  // namespace

PROBE(probeLibrary) {
  @autoreleasepool {
    EXPECT(NSClassFromString(@"Client") == Nil);
    EXPECT(dlopen("/other", RTLD_NOW) == nullptr);
    EXPECT(dlopen("/library", RTLD_NOW) != nullptr);
    EXPECT(NSClassFromString(@"Other") == Nil);
    Class cls = NSClassFromString(@"Client");
    EXPECT(cls != Nil && object_isClass(cls) && cls == NSClassFromString(@"Client"));
    EXPECT(class_getInstanceMethod(cls, selectorNamed("initWithNothing")) == nullptr);
    id client = makeClient(cls);
    EXPECT([client respondsToSelector:selectorNamed("isMCLSupported")]);
    EXPECT(![client respondsToSelector:selectorNamed("other")]);
    const SEL get = selectorNamed("getMCLLimitWithError:");
    NSError* __autoreleasing error = nil;
    EXPECT(implementation<GetInt32>(client, get)(client, get, &error) == -3 && error == nil);
    const SEL set = selectorNamed("setMCLLimit:error:");
    EXPECT(implementation<SetUInt8>(client, set)(client, set, 200, &error) && error == nil);
    const SEL offered = selectorNamed("availableChargeLimitsWithError:");
    NSArray* limits = implementation<GetObject>(client, offered)(client, offered, &error);
    EXPECT(CFArrayGetCount((__bridge CFArrayRef)limits) == 1);
  }
}

PROBE(probeLibraryError) {
  @autoreleasepool {
    dlopen("/library", RTLD_NOW);
    id client = makeClient(NSClassFromString(@"Client"));
    const SEL get = selectorNamed("getMCLLimitWithError:");
    NSError* __autoreleasing error = nil;
    implementation<GetInt32>(client, get)(client, get, &error);
    EXPECT([error.localizedDescription isEqual:@"not today"]);
  }
}

PROBE(probeLibraryWithoutAlloc) {
  @autoreleasepool {
    dlopen("/library", RTLD_NOW);
    Class cls = NSClassFromString(@"Client");
    EXPECT(class_getClassMethod(cls, selectorNamed("alloc")) == nullptr);
  }
}

PROBE(probeClassThatIsNone) {
  @autoreleasepool {
    dlopen("/library", RTLD_NOW);
    Class cls = NSClassFromString(@"Client");
    EXPECT(cls != Nil && !object_isClass(cls));
  }
}
