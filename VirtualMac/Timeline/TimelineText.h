#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace virtualmac {

/// Fit for XML text and for attributes in double quotes; control characters, for which XML has no
/// place at all, become spaces.
std::string escapedXML(std::string_view text);

/// At most `bytes` long; what is cut off is marked. Never cuts a UTF-8 character in two.
std::string shortened(std::string text, std::size_t bytes);

/// Roughly how wide a text is in a common sans-serif face of that size.
double textWidth(std::string_view text, double size);

/// The step between two time labels: the smallest round one that leaves room for them.
double tickSeconds(double duration);

/// A label says what the step needs: days alone, hours and minutes, or seconds too.
std::string tickLabel(double seconds, double step);

}  // namespace virtualmac
