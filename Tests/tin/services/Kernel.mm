#import <Foundation/Foundation.h>
#import <IOKit/IOKitLib.h>
#import <IOKit/pwr_mgt/IOPMLib.h>

#include "Tests/tin/objects/Probe.h"

// The registry, user clients, assertions and power notifications as a program uses them.

extern "C" IOReturn IOPMSetSystemPowerSetting(CFStringRef key, CFTypeRef value);
extern "C" CFDictionaryRef IOPMCopySystemPowerSettings(void);

#define ACTION(name) extern "C" __attribute__((visibility("default"))) void name()

namespace {

io_service_t service() {
  return IOServiceGetMatchingService(kIOMainPortDefault, IOServiceMatching("AppleSMC"));
}

IONotificationPortRef port = nullptr;
io_object_t notifier = IO_OBJECT_NULL;
io_connect_t rootPort = IO_OBJECT_NULL;

void hear(void* refcon, io_service_t, natural_t messageType, void* argument) {
  *static_cast<std::uintptr_t*>(refcon) += messageType + reinterpret_cast<std::uintptr_t>(argument);
}

std::uintptr_t heard = 0;

}  // namespace

PROBE(probeRegistry) {
  EXPECT(IOServiceGetMatchingService(kIOMainPortDefault, IOServiceMatching("Other")) == 0);
  EXPECT(IOServiceGetMatchingService(kIOMainPortDefault, nullptr) == 0);
  const io_service_t found = service();
  EXPECT(found == 7);
  EXPECT(IOObjectConformsTo(found, "IOService"));
  EXPECT(!IOObjectConformsTo(found, "IOBattery"));
  CFTypeRef present = IORegistryEntryCreateCFProperty(found, CFSTR("present"), nullptr, 0);
  EXPECT(present == kCFBooleanTrue);
  CFRelease(present);
  EXPECT(IORegistryEntryCreateCFProperty(found, CFSTR("other"), nullptr, 0) == nullptr);
  CFMutableDictionaryRef properties = nullptr;
  EXPECT(IORegistryEntryCreateCFProperties(found, &properties, nullptr, 0) == 0);
  EXPECT(CFDictionaryGetCount(properties) == 1);
  CFRelease(properties);
  io_iterator_t iterator = 0;
  EXPECT(IORegistryEntryCreateIterator(found, kIOServicePlane, 1, &iterator) == 0);
  const io_object_t next = IOIteratorNext(iterator);
  EXPECT(IORegistryEntryCreateCFProperties(next, &properties, nullptr, 0) == 0);
  const void* key = nullptr;
  CFDictionaryGetKeysAndValues(properties, &key, nullptr);
  EXPECT(CFGetTypeID(key) == CFNumberGetTypeID());
  CFRelease(properties);
  EXPECT(IOIteratorNext(iterator) == 0);
  for (const io_object_t held : {next, iterator, found}) EXPECT(IOObjectRelease(held) == 0);
}

PROBE(probeUserClient) {
  const io_service_t found = service();
  io_connect_t connection = 0;
  EXPECT(IOServiceOpen(found, mach_task_self(), 0, &connection) == 0);
  unsigned char input[80] = {5};
  unsigned char output[80] = {};
  std::size_t size = 80;
  EXPECT(IOConnectCallStructMethod(connection, 2, input, 80, output, &size) == 0);
  EXPECT(size == 80 && output[0] == 5 && output[79] == 1);
  EXPECT(IOConnectCallStructMethod(connection, 3, input, 80, output, &size) ==
         kIOReturnBadArgument);
  size = 84;
  EXPECT(IOConnectCallStructMethod(connection, 2, input, 80, output, &size) ==
         kIOReturnBadArgument);
  EXPECT(IOServiceClose(connection) == 0);
  EXPECT(IOObjectRelease(found) == 0);
}

ACTION(breakReleaseOfUnheldObject) { IOObjectRelease(7); }
ACTION(breakCloseTwice) {
  io_connect_t connection = 0;
  IOServiceOpen(service(), mach_task_self(), 0, &connection);
  IOServiceClose(connection);
  IOServiceClose(connection);
}
ACTION(keepService) { service(); }

PROBE(probeAssertionsAndSettings) {
  @autoreleasepool {
    const void* key = CFSTR("AssertType");
    const void* value = CFSTR("NoSleep");
    CFDictionaryRef properties = CFDictionaryCreate(
        nullptr, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    IOPMAssertionID assertion = 0;
    EXPECT(IOPMAssertionCreateWithProperties(properties, &assertion) == 0);
    CFRelease(properties);
    EXPECT(assertion == 40);
    EXPECT(IOPMAssertionRelease(41) != 0);
    EXPECT(IOPMAssertionRelease(assertion) == 0);
    EXPECT(IOPMSetSystemPowerSetting(CFSTR("SleepDisabled"), kCFBooleanTrue) == 0);
    EXPECT(IOPMCopySystemPowerSettings() == nullptr);
  }
}
ACTION(breakSettingThatIsNoBoolean) {
  IOPMSetSystemPowerSetting(CFSTR("SleepDisabled"), CFSTR("1"));
}

ACTION(registerForPower) {
  rootPort = IORegisterForSystemPower(&heard, &port, hear, &notifier);
  CFRunLoopAddSource(CFRunLoopGetMain(), IONotificationPortGetRunLoopSource(port),
                     kCFRunLoopDefaultMode);
}
ACTION(acknowledge) { IOAllowPowerChange(rootPort, 12); }
ACTION(removeSource) {
  CFRunLoopRemoveSource(CFRunLoopGetMain(), IONotificationPortGetRunLoopSource(port),
                        kCFRunLoopDefaultMode);
}
ACTION(endPowerNotifications) {
  IODeregisterForSystemPower(&notifier);
  IOServiceClose(rootPort);
  IONotificationPortDestroy(port);
}
ACTION(destroyPort) { IONotificationPortDestroy(port); }
PROBE(probeHeard) { failure = std::to_string(heard) + " " + std::to_string(notifier); }
ACTION(addInOtherMode) {
  CFRunLoopAddSource(CFRunLoopGetMain(), IONotificationPortGetRunLoopSource(port),
                     CFSTR("other mode"));
}
