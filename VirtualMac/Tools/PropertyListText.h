#pragma once

#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "Base/PropertyValue.h"

namespace virtualmac {

/// Reads a property list in XML. The error says what is wrong with it, in words that follow the
/// name of its file.
std::expected<korvel::PropertyValue, std::string> propertyListFrom(std::string_view text);

/// The system's own reading, or a library's; none: it does not parse. It is asked only for texts
/// that are XML and nested no deeper than its stack bears.
std::optional<korvel::PropertyValue> parsedPropertyList(std::string_view xml);

}  // namespace virtualmac
