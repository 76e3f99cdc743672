#pragma once

#include "Platform/CodeSigning.h"

namespace korvel {

/// Owns one code object for a scope, and reads the signing information of a static one.
class ScopedCode {
 public:
  explicit ScopedCode(CodeSigning& owner) : signing(owner) {}
  ~ScopedCode() {
    if (code != 0) signing.release(code);
  }
  ScopedCode(const ScopedCode&) = delete;
  ScopedCode& operator=(const ScopedCode&) = delete;

  /// Where a call puts the object that it gives.
  [[nodiscard]] HandleRef& slot() { return code; }
  [[nodiscard]] HandleRef get() const { return code; }
  explicit operator bool() const { return code != 0; }

  /// The signing information; absent when it cannot be read or is no dictionary.
  [[nodiscard]] PropertyValue signingInformation() const {
    PropertyValue information;
    if (signing.copySigningInformation(code, codeSigningInformationFlag, information) != 0)
      return {};
    return information.dictionary() == nullptr ? PropertyValue() : information;
  }

 private:
  CodeSigning& signing;
  HandleRef code = 0;
};

}  // namespace korvel
