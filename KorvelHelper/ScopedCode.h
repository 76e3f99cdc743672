#pragma once

#include "Base/Scoped.h"
#include "Platform/CodeSigning.h"

namespace korvel {

using ScopedCode = Scoped<CodeSigning, HandleRef, &CodeSigning::release>;

/// The signing information of static code; absent when it cannot be read or is no dictionary.
inline PropertyValue signingInformation(CodeSigning& signing, HandleRef staticCode) {
  PropertyValue information;
  const auto status =
      signing.copySigningInformation(staticCode, codeSigningInformationFlag, information);
  return status == 0 && information.dictionary() != nullptr ? information : PropertyValue();
}

/// The text of an entry of the signing information; empty when it is missing or of another type.
inline std::string textOrEmpty(const PropertyValue& value) {
  return value.text() == nullptr ? std::string() : *value.text();
}

}  // namespace korvel
