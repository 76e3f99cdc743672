#import <Foundation/Foundation.h>

// Each function breaks one rule, which ends the process.

extern "C" void* objc_autoreleasePoolPush();

#define BREAK(name) extern "C" __attribute__((visibility("default"))) void name()

namespace {

CFStringRef made() {
  return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>("made"), 4,
                                 kCFStringEncodingUTF8, false);
}

CFTypeRef volatile hidden = nullptr;

}  // namespace

BREAK(breakReleaseNull) { CFRelease(hidden); }
BREAK(breakRetainNull) { CFRetain(hidden); }

BREAK(breakOverRelease) {
  CFStringRef string = made();
  CFRelease(string);
  CFRelease(string);
}

BREAK(breakUseAfterFree) {
  CFStringRef string = made();
  CFRelease(string);
  [(__bridge NSString*)string hash];
}

BREAK(breakWrongType) {
  hidden = kCFBooleanTrue;
  CFDataGetLength((CFDataRef)hidden);
}

BREAK(breakBooleanAsNumber) {
  double value = 0;
  hidden = kCFBooleanTrue;
  CFNumberGetValue((CFNumberRef)hidden, kCFNumberDoubleType, &value);
}

BREAK(breakUnknownSelector) { [(NSArray*)(__bridge id)CFSTR("text") objectAtIndex:0]; }

BREAK(breakUnknownClassSelector) { [NSData dataWithContentsOfFile:@"/"]; }

BREAK(breakArrayIndex) {
  CFMutableArrayRef array = CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
  CFArrayGetValueAtIndex(array, 0);
}

BREAK(breakImmutable) {
  CFDictionaryRef dictionary =
      CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                         &kCFTypeDictionaryValueCallBacks);
  CFDictionarySetValue((CFMutableDictionaryRef)dictionary, CFSTR("key"), kCFBooleanTrue);
}

/// Survives: the pool stays open until the end.
BREAK(leaveInPool) {
  objc_autoreleasePoolPush();
  [NSString stringWithUTF8String:"the pool's"];
}

/// Survives; the object leaks.
BREAK(leakWithoutPool) { [NSString stringWithUTF8String:"nobody's"]; }
