#include <IOKit/pwr_mgt/IOPMLib.h>

#import "TinMac/Frameworks/Arguments.h"
#import "TinMac/Frameworks/Conversion.h"

using namespace tinmac;

namespace {

constexpr const char* assertionBook = "IOPMAssertion";

}  // namespace

TIN_EXPORT IOReturn IOPMAssertionCreateWithProperties(CFDictionaryRef properties,
                                                      IOPMAssertionID* assertion) {
  expectPlace(assertion, __func__);
  if (properties == nullptr) return kIOReturnBadArgument;
  expectKind((id)properties, [NSDictionary class], __func__);
  tell((id)properties, *tinOutgoingValue());
  IOPMAssertionID created = kIOPMNullAssertionID;
  const IOReturn code = tinAssertionCreate(&created);
  if (code == kIOReturnSuccess) {
    tinBooksCount(assertionBook, 1);
    *assertion = created;
  }
  return code;
}

TIN_EXPORT IOReturn IOPMAssertionRelease(IOPMAssertionID assertion) {
  const IOReturn code = tinAssertionRelease(assertion);
  if (code == kIOReturnSuccess) tinBooksCount(assertionBook, -1);
  return code;
}

// IOKit exports both; no public header declares them.
TIN_EXPORT IOReturn IOPMSetSystemPowerSetting(CFStringRef key, CFTypeRef value);
TIN_EXPORT CFDictionaryRef IOPMCopySystemPowerSettings(void);

TIN_EXPORT IOReturn IOPMSetSystemPowerSetting(CFStringRef key, CFTypeRef value) {
  if (!isBoolean((id)value)) trap("a power setting is a CFBoolean", __func__);
  return tinSetPowerSetting(textArgument(key, __func__).c_str(),
                            CFBooleanGetValue((CFBooleanRef)value) ? 1 : 0);
}

TIN_EXPORT CFDictionaryRef IOPMCopySystemPowerSettings() {
  ValueBuilder told;
  tinPowerSettings(told.sink());
  return (CFDictionaryRef)told.take();
}
