#include "Platform/CodeSigning.h"

#include <Security/Security.h>

#include <type_traits>

#include "macOS/Adapters.h"
#include "macOS/PropertyConversion.h"

namespace korvel::macos {

namespace {

static_assert(std::is_same_v<OSStatus, SecurityStatus>);
static_assert(errSecSuccess == 0);
static_assert(kSecCSSigningInformation == codeSigningInformationFlag);

/// Code objects through the Security framework. Out-parameters are handed on only on success: a
/// failed call does not write them.
class SecurityCodeSigning final : public CodeSigning {
 public:
  SecurityStatus staticCodeCreateWithPath(std::string_view path, HandleRef& code) override {
    const auto url = CFReference<CFURLRef>::adopting(CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
        static_cast<CFIndex>(path.size()), false));
    if (!url) return errSecParam;
    SecStaticCodeRef created = nullptr;
    const OSStatus status = SecStaticCodeCreateWithPath(url.get(), kSecCSDefaultFlags, &created);
    if (status == errSecSuccess) code = handle(created);
    return status;
  }

  SecurityStatus copyGuestWithPid(std::int32_t pid, HandleRef& code) override {
    const auto number = CFReference<CFNumberRef>::adopting(
        CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &pid));
    const void* key = kSecGuestAttributePid;
    const void* value = number.get();
    const auto attributes = CFReference<CFDictionaryRef>::adopting(
        CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks,
                           &kCFTypeDictionaryValueCallBacks));
    SecCodeRef guest = nullptr;
    const OSStatus status =
        SecCodeCopyGuestWithAttributes(nullptr, attributes.get(), kSecCSDefaultFlags, &guest);
    if (status == errSecSuccess) code = handle(guest);
    return status;
  }

  SecurityStatus copyStaticCode(HandleRef code, HandleRef& staticCode) override {
    SecStaticCodeRef copied = nullptr;
    const OSStatus status =
        SecCodeCopyStaticCode(borrowed<SecCodeRef>(code), kSecCSDefaultFlags, &copied);
    if (status == errSecSuccess) staticCode = handle(copied);
    return status;
  }

  SecurityStatus copySigningInformation(HandleRef staticCode, std::uint32_t flags,
                                        PropertyValue& information) override {
    CFDictionaryRef copied = nullptr;
    const OSStatus status =
        SecCodeCopySigningInformation(borrowed<SecStaticCodeRef>(staticCode), flags, &copied);
    const auto dictionary = CFReference<CFDictionaryRef>::adopting(copied);
    if (status == errSecSuccess) information = propertyValue(dictionary.get());
    return status;
  }

  void release(HandleRef code) override { CFRelease(borrowed<CFTypeRef>(code)); }
};

}  // namespace

std::unique_ptr<CodeSigning> makeCodeSigning() { return std::make_unique<SecurityCodeSigning>(); }

}  // namespace korvel::macos
