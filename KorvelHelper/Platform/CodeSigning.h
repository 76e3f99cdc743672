#pragma once

#include <cstdint>
#include <string_view>

#include "Base/PropertyValue.h"
#include "Platform/KernelTypes.h"

namespace korvel {

/// A Security framework status; 0 is success.
using SecurityStatus = std::int32_t;

inline constexpr std::uint32_t codeSigningInformationFlag = 2;  ///< kSecCSSigningInformation
inline constexpr std::string_view codeInfoIdentifierKey = "identifier";  ///< kSecCodeInfoIdentifier
inline constexpr std::string_view codeInfoTeamIdentifierKey =
    "teamid";  ///< kSecCodeInfoTeamIdentifier

/// Code objects and their signing information, call for call. Any thread; calls may touch the disk.
class CodeSigning {
 public:
  virtual ~CodeSigning() = default;
  /// SecStaticCodeCreateWithPath(file URL of path, kSecCSDefaultFlags, &code).
  virtual SecurityStatus staticCodeCreateWithPath(std::string_view path, HandleRef& code) = 0;
  /// SecCodeCopyGuestWithAttributes(NULL, {kSecGuestAttributePid: pid}, kSecCSDefaultFlags, &code).
  virtual SecurityStatus copyGuestWithPid(std::int32_t pid, HandleRef& code) = 0;
  /// SecCodeCopyStaticCode(code, kSecCSDefaultFlags, &staticCode).
  virtual SecurityStatus copyStaticCode(HandleRef code, HandleRef& staticCode) = 0;
  /// SecCodeCopySigningInformation(staticCode, flags, &information). Absent: no dictionary.
  virtual SecurityStatus copySigningInformation(HandleRef staticCode, std::uint32_t flags,
                                                PropertyValue& information) = 0;
  /// CFRelease of a code object.
  virtual void release(HandleRef code) = 0;
};

}  // namespace korvel
