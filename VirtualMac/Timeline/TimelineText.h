#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace virtualmac {

/// Escapes a text for XML and for attributes in double quotes. Control characters, which XML cannot
/// hold, become spaces.
std::string escapedXML(std::string_view text);

/// At most `bytes` long; what is cut off is marked. Never cuts a UTF-8 character in two.
std::string shortened(std::string text, std::size_t bytes);

/// Roughly how wide a text is in a common sans-serif face of that size.
double textWidth(std::string_view text, double size);

/// A moment in both forms: `00:01:40, 100.000 s`, the clock of stories and the journal's seconds.
std::string timelineMoment(double seconds);

/// The step between two time labels: the smallest round one that leaves room for them.
double tickSeconds(double duration);

/// A time as exact as the step needs: in days, in hours and minutes, or with seconds.
std::string tickLabel(double seconds, double step);

}  // namespace virtualmac
