#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>
#include <string_view>

#include "Base/PropertyValue.h"
#include "macOS/CFReference.h"

namespace korvel::macos {

/// A borrowed CoreFoundation value as a PropertyValue. Types are kept strictly: a CFBoolean is a
/// Boolean and never a number, a floating-point CFNumber is a real even when it is whole. Absent:
/// no value, a type that is no property-list type, a dictionary with a key that is not text, and
/// anything nested deeper than 32 levels.
PropertyValue propertyValue(CFTypeRef value);

/// The reverse. Absent values give nothing, and are left out of arrays and dictionaries.
CFReference<CFTypeRef> makeCFValue(const PropertyValue& value);
CFReference<CFDictionaryRef> makeCFDictionary(const PropertyValue::Dictionary& entries);

/// The text in UTF-8; none for null. Half a surrogate pair, which UTF-8 lacks, becomes a question
/// mark.
std::optional<std::string> utf8Text(CFStringRef string);

/// Never null: bytes that are not UTF-8 are taken as Latin-1, in which every byte stands
/// for a character, so that no message is lost over its encoding.
CFReference<CFStringRef> makeCFString(std::string_view text);

}  // namespace korvel::macos
