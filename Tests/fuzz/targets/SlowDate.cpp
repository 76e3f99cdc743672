#include <string>

#include "Tests/fuzz/targets/Slow.h"

namespace korvel::fuzz::slow {

namespace {

bool leaps(int year) {
  const bool julian = year <= 1582;
  return year % 4 == 0 && (julian || year % 100 != 0 || year % 400 == 0);
}

int daysIn(int year, int month) {
  if (month == 2) return leaps(year) ? 29 : 28;
  return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

/// Days from 1 January of the year 1, counted day by day but for whole years.
std::int64_t daysBefore(int year, int month, int day) {
  std::int64_t days = 0;
  for (int each = 1; each < year; ++each) days += leaps(each) ? 366 : 365;
  for (int each = 1; each < month; ++each) days += daysIn(year, each);
  days += day - 1;
  // Ten days were left out of October 1582.
  const bool later = year > 1582 || (year == 1582 && (month > 10 || (month == 10 && day >= 15)));
  return later ? days - 10 : days;
}

int numberAt(std::string_view text, std::size_t at, std::size_t size) {
  return std::stoi(std::string(text.substr(at, size)));
}

/// Whether a text has the form, where 0 stands for any digit.
bool looksLike(std::string_view text, std::string_view form) {
  if (text.size() != form.size()) return false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool digit = text[at] >= '0' && text[at] <= '9';
    if (form[at] == '0' ? !digit : text[at] != form[at]) return false;
  }
  return true;
}

/// Minutes that a zone is ahead; none: it is no zone.
std::optional<int> zoneOf(std::string_view text) {
  if (text == "Z") return 0;
  for (const std::string_view form : {"+00:00", "-00:00", "+0000", "-0000"}) {
    if (!looksLike(text, form)) continue;
    const int hours = numberAt(text, 1, 2);
    const int minutes = numberAt(text, text.size() - 2, 2);
    if (hours > 23 || minutes > 59) return std::nullopt;
    return (text.front() == '-' ? -1 : 1) * (hours * 60 + minutes);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::int64_t> secondsOf(std::string_view text) {
  constexpr std::string_view form = "0000-00-00T00:00:00";
  if (!looksLike(text.substr(0, form.size()), form)) return std::nullopt;
  const std::optional<int> zone = zoneOf(text.substr(form.size()));
  const int year = numberAt(text, 0, 4);
  const int month = numberAt(text, 5, 2);
  const int day = numberAt(text, 8, 2);
  const int hour = numberAt(text, 11, 2);
  const int minute = numberAt(text, 14, 2);
  const int second = numberAt(text, 17, 2);
  if (!zone || year < 1 || month < 1 || month > 12 || day < 1 || day > daysIn(year, month) ||
      hour > 23 || minute > 59 || second > 59)
    return std::nullopt;
  if (year == 1582 && month == 10 && day > 4 && day < 15) return std::nullopt;
  const std::int64_t days = daysBefore(year, month, day) - daysBefore(2001, 1, 1);
  return ((days * 24 + hour) * 60 + minute - *zone) * 60 + second;
}

}  // namespace korvel::fuzz::slow
