#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace korvel {

/// A point in time: seconds since 2001-01-01T00:00:00Z, fractions and negatives included.
struct Date {
  double secondsSinceReference = 0;

  /// 0001-01-01T00:00:00Z in the platform's calendar: the date that stands for "never".
  static constexpr Date distantPast() { return Date{-63114076800.0}; }

  friend auto operator<=>(const Date&, const Date&) = default;
};

/// Seconds from the Unix epoch to the reference date.
inline constexpr double unixToReferenceSeconds = 978307200.0;

/// `YYYY-MM-DDThh:mm:ssZ`, the fraction dropped downwards. Julian calendar before 1582-10-15, as
/// the platform counts, so that files of every age read back to the same date.
std::string iso8601Text(Date date);

/// The reverse, also with an offset (`+hh:mm`, `+hhmm`). None for any other form, fractions
/// included.
std::optional<Date> dateFromISO8601(std::string_view text);

}  // namespace korvel
