#include <Security/Security.h>
#include <unistd.h>

#import "TinMac/Frameworks/Arguments.h"
#include "TinMac/Frameworks/BelowServices.h"
#import "TinMac/Frameworks/Conversion.h"

using namespace tinmac;

/// A code object of the machine's, on the disk or running.
@interface TinCode : NSObject {
 @public
  uint64_t name;
}
@end

@implementation TinCode
- (void)dealloc {
  tinCodeRelease(name);
  [super dealloc];
}
@end

TIN_EXPORT const CFStringRef kSecGuestAttributePid = CFSTR("pid");
TIN_EXPORT const CFStringRef kSecCodeInfoTeamIdentifier = CFSTR("teamid");

namespace {

TinCode* makeCode(std::uint64_t name) {
  TinCode* code = [[TinCode alloc] init];
  code->name = name;
  return code;
}

/// Hands a new code object over on success; a failed call writes nothing.
template <class CodeRef>
OSStatus handOver(OSStatus status, std::uint64_t name, CodeRef* code) {
  if (status == errSecSuccess) *code = (CodeRef)makeCode(name);
  return status;
}

std::uint64_t nameOf(CFTypeRef code, const char* function) {
  expectKind((id)code, [TinCode class], function);
  return ((TinCode*)code)->name;
}

/// The process that the attributes name, and nothing else.
pid_t pidIn(CFDictionaryRef attributes, const char* function) {
  expectKind((id)attributes, [NSDictionary class], function);
  const auto entries = entriesOf((NSDictionary*)attributes);
  const id pid = valueFor((NSDictionary*)attributes, utf8((NSString*)kSecGuestAttributePid));
  if (entries.size() != 1 || pid == nil) {
    trap("a guest is found by its process identifier only", function);
  }
  expectKind(pid, [NSNumber class], function);
  std::int64_t number = 0;
  CFNumberGetValue((CFNumberRef)pid, kCFNumberSInt64Type, &number);
  return static_cast<pid_t>(number);
}

}  // namespace

TIN_EXPORT OSStatus SecStaticCodeCreateWithPath(CFURLRef path, SecCSFlags flags,
                                                SecStaticCodeRef* code) {
  expectKind((id)path, [NSURL class], __func__);
  expectNumber(flags, SecCSFlags{kSecCSDefaultFlags}, __func__);
  expectPlace(code, __func__);
  std::uint64_t name = 0;
  const OSStatus status = tinStaticCodeWithPath([(NSURL*)path fileSystemRepresentation], &name);
  return handOver(status, name, code);
}

TIN_EXPORT OSStatus SecCodeCopyGuestWithAttributes(SecCodeRef host, CFDictionaryRef attributes,
                                                   SecCSFlags flags, SecCodeRef* guest) {
  if (host != nullptr) trap("only the system is built as a host of code", __func__);
  expectNumber(flags, SecCSFlags{kSecCSDefaultFlags}, __func__);
  expectPlace(guest, __func__);
  std::uint64_t name = 0;
  return handOver(tinGuestWithPid(pidIn(attributes, __func__), &name), name, guest);
}

TIN_EXPORT OSStatus SecCodeCopySelf(SecCSFlags flags, SecCodeRef* self) {
  expectNumber(flags, SecCSFlags{kSecCSDefaultFlags}, __func__);
  expectPlace(self, __func__);
  std::uint64_t name = 0;
  return handOver(tinGuestWithPid(getpid(), &name), name, self);
}

TIN_EXPORT OSStatus SecCodeCopyStaticCode(SecCodeRef code, SecCSFlags flags,
                                          SecStaticCodeRef* staticCode) {
  expectNumber(flags, SecCSFlags{kSecCSDefaultFlags}, __func__);
  expectPlace(staticCode, __func__);
  std::uint64_t name = 0;
  return handOver(tinStaticCodeOf(nameOf(code, __func__), &name), name, staticCode);
}

TIN_EXPORT const CFStringRef kSecCodeInfoIdentifier = CFSTR("identifier");
TIN_EXPORT const CFStringRef kSecCodeInfoPList = CFSTR("info-plist");

TIN_EXPORT OSStatus SecCodeCopySigningInformation(SecStaticCodeRef code, SecCSFlags flags,
                                                  CFDictionaryRef* information) {
  expectPlace(information, __func__);
  ValueBuilder told;
  const OSStatus status = tinSigningInformation(nameOf(code, __func__), flags, told.sink());
  const id dictionary = told.take();
  if (status == errSecSuccess) {
    *information = (CFDictionaryRef)dictionary;
  } else {
    [dictionary release];
  }
  return status;
}
