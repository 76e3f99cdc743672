#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "Base/PropertyValue.h"
#include "VirtualMac/Machine/Profile.h"

/// Second readers, written for nothing but to be plain. They share no code with the program's.
namespace korvel::fuzz::slow {

/// Seconds from 2001-01-01 of a date's text; none: it is no date.
std::optional<std::int64_t> secondsOf(std::string_view text);

/// Whether a requirement is met; none: it does not parse.
std::optional<bool> satisfies(std::string_view requirement,
                              const virtualmac::SigningIdentity& code);

/// The registry's figures, merged.
PropertyValue::Dictionary merged(PropertyValue::Dictionary root, PropertyValue::Dictionary pack,
                                 const std::vector<PropertyValue::Dictionary>& banks);

}  // namespace korvel::fuzz::slow
