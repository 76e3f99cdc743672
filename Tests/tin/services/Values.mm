#import <Foundation/Foundation.h>
#import <IOKit/ps/IOPowerSources.h>
#import <Security/Security.h>

#include "Tests/tin/objects/Probe.h"

// Power sources and code objects as a program uses them.

PROBE(probePowerSources) {
  CFTypeRef info = IOPSCopyPowerSourcesInfo();
  CFArrayRef list = IOPSCopyPowerSourcesList(info);
  EXPECT(CFGetTypeID(list) == CFArrayGetTypeID());
  EXPECT(CFArrayGetCount(list) == 2);
  CFDictionaryRef description =
      IOPSGetPowerSourceDescription(info, CFArrayGetValueAtIndex(list, 1));
  CFRelease(list);
  const void* text = nullptr;
  CFDictionaryGetKeysAndValues(description, nullptr, &text);
  EXPECT([(__bridge NSString*)text isEqual:@"102"]);
  CFRelease(info);
}

PROBE(probePowerSourcesThatAreNoArray) {
  CFTypeRef info = IOPSCopyPowerSourcesInfo();
  CFTypeRef list = IOPSCopyPowerSourcesList(info);
  EXPECT(list != nullptr && CFGetTypeID(list) != CFArrayGetTypeID());
  CFRelease(list);
  CFRelease(info);
}

PROBE(probeCode) {
  const auto url = [](const char* path) {
    return CFURLCreateFromFileSystemRepresentation(nullptr, reinterpret_cast<const UInt8*>(path),
                                                   static_cast<CFIndex>(strlen(path)), false);
  };
  SecStaticCodeRef code = nullptr;
  CFURLRef absent = url("/absent");
  EXPECT(SecStaticCodeCreateWithPath(absent, kSecCSDefaultFlags, &code) == -67068);
  EXPECT(code == nullptr);
  CFRelease(absent);
  CFURLRef there = url("/signed");
  EXPECT(SecStaticCodeCreateWithPath(there, kSecCSDefaultFlags, &code) == errSecSuccess);
  CFRelease(there);
  CFDictionaryRef information = nullptr;
  EXPECT(SecCodeCopySigningInformation(code, kSecCSSigningInformation, &information) == 0);
  const void* text = nullptr;
  CFDictionaryGetKeysAndValues(information, nullptr, &text);
  EXPECT([(__bridge NSString*)text isEqual:@"70 2"]);
  CFRelease(information);
  CFRelease(code);
}

PROBE(probeGuest) {
  const std::int32_t pid = 5;
  CFNumberRef number = CFNumberCreate(nullptr, kCFNumberSInt32Type, &pid);
  const void* key = kSecGuestAttributePid;
  const void* value = number;
  CFDictionaryRef attributes = CFDictionaryCreate(
      nullptr, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  SecCodeRef guest = nullptr;
  EXPECT(SecCodeCopyGuestWithAttributes(nullptr, attributes, kSecCSDefaultFlags, &guest) == 0);
  SecStaticCodeRef code = nullptr;
  EXPECT(SecCodeCopyStaticCode(guest, kSecCSDefaultFlags, &code) == 0);
  CFRelease(code);
  CFRelease(guest);
  CFRelease(attributes);
  CFRelease(number);
}
