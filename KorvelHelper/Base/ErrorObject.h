#pragma once

#include <cstdint>
#include <string>

#include "Base/PropertyValue.h"

namespace korvel {

/// The user-info key of an error's human-readable text.
inline constexpr const char* localizedDescriptionKey = "NSLocalizedDescription";

/// An error as it travels between programs: a domain, a code in it, and property-list details.
struct ErrorObject {
  std::string domain;
  std::int64_t code = 0;
  PropertyValue::Dictionary userInfo;

  /// The text under localizedDescriptionKey; "(domain error code)" when there is none.
  [[nodiscard]] std::string localizedDescription() const;

  friend bool operator==(const ErrorObject&, const ErrorObject&) = default;
};

}  // namespace korvel
