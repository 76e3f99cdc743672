#include "Base/Date.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace korvel {

namespace {

// Days are counted as Julian day numbers: one count through both calendars.
constexpr std::int64_t referenceDay = 2451911;       // 2001-01-01
constexpr std::int64_t firstGregorianDay = 2299161;  // 1582-10-15
constexpr std::int64_t secondsPerDay = 86400;

struct CivilDay {
  std::int64_t year;
  std::int64_t month;
  std::int64_t day;

  friend auto operator<=>(const CivilDay&, const CivilDay&) = default;
};

constexpr CivilDay firstGregorian{1582, 10, 15};

// Years are counted from March, so that the leap day is the last day of its year.
struct Calendar {
  bool gregorian;

  // The day number of 1 March of year 0.
  [[nodiscard]] constexpr std::int64_t epoch() const { return gregorian ? 1721120 : 1721118; }
  // Days from the epoch to 1 March of a year that is not negative.
  [[nodiscard]] constexpr std::int64_t yearStart(std::int64_t year) const {
    return 365 * year + year / 4 + (gregorian ? year / 400 - year / 100 : 0);
  }
};

// Days before month `index` (March is 0): months are 31 and 30 days long in a cycle of five.
constexpr std::int64_t monthStart(std::int64_t index) { return (153 * index + 2) / 5; }

constexpr std::int64_t dayNumber(const CivilDay& civil) {
  const Calendar calendar{civil >= firstGregorian};
  const bool beforeMarch = civil.month < 3;
  const std::int64_t year = civil.year - (beforeMarch ? 1 : 0);
  const std::int64_t month = civil.month + (beforeMarch ? 9 : -3);
  return calendar.epoch() + calendar.yearStart(year) + monthStart(month) + civil.day - 1;
}

constexpr CivilDay civilDay(std::int64_t number) {
  const Calendar calendar{number >= firstGregorianDay};
  const std::int64_t days = number - calendar.epoch();
  std::int64_t year = days / 365;
  while (calendar.yearStart(year) > days) --year;
  const std::int64_t dayOfYear = days - calendar.yearStart(year);
  std::int64_t month = dayOfYear / 30;
  while (monthStart(month) > dayOfYear) --month;
  const std::int64_t day = dayOfYear - monthStart(month) + 1;
  return month < 10 ? CivilDay{year, month + 3, day} : CivilDay{year + 1, month - 9, day};
}

constexpr double startOf(const CivilDay& civil) {
  return static_cast<double>((dayNumber(civil) - referenceDay) * secondsPerDay);
}

// The moments that four digits of a year can express.
constexpr double earliestSeconds = startOf({1, 1, 1});
constexpr double latestSeconds = startOf({10000, 1, 1}) - 1;

static_assert(earliestSeconds == Date::distantPast().secondsSinceReference);
static_assert(dayNumber({2001, 1, 1}) == referenceDay);
static_assert(dayNumber(firstGregorian) == firstGregorianDay);
static_assert(dayNumber({1582, 10, 4}) == firstGregorianDay - 1);

// Reads fixed-width fields off the front of a text.
class FieldReader {
 public:
  explicit FieldReader(std::string_view source) : rest(source) {}

  // A number of exactly `digits` digits; -1, and failed, for anything else.
  std::int64_t number(std::size_t digits) {
    std::int64_t value = 0;
    if (rest.size() < digits) return fail();
    for (const char digit : rest.substr(0, digits)) {
      if (digit < '0' || digit > '9') return fail();
      value = value * 10 + (digit - '0');
    }
    rest.remove_prefix(digits);
    return value;
  }
  bool take(char wanted) {
    if (rest.empty() || rest.front() != wanted) return false;
    rest.remove_prefix(1);
    return true;
  }
  void expect(char wanted) {
    if (!take(wanted)) fail();
  }
  [[nodiscard]] bool complete() const { return !failed && rest.empty(); }

 private:
  std::int64_t fail() {
    failed = true;
    return -1;
  }

  std::string_view rest;
  bool failed = false;
};

// Seconds that the zone is ahead of UTC; none for a field out of range.
std::optional<std::int64_t> readOffset(FieldReader& reader) {
  if (reader.take('Z')) return 0;
  const bool behind = reader.take('-');
  if (!behind) reader.expect('+');
  const std::int64_t hours = reader.number(2);
  reader.take(':');
  const std::int64_t minutes = reader.number(2);
  if (hours > 23 || minutes > 59) return std::nullopt;
  const std::int64_t seconds = (hours * 60 + minutes) * 60;
  return behind ? -seconds : seconds;
}

}  // namespace

std::string iso8601Text(Date date) {
  double seconds = std::floor(date.secondsSinceReference);
  if (!(seconds >= earliestSeconds)) seconds = earliestSeconds;  // also catches "not a number"
  seconds = std::min(seconds, latestSeconds);
  // Counted from day number 0, so that no division meets a negative.
  const std::int64_t total = static_cast<std::int64_t>(seconds) + referenceDay * secondsPerDay;
  const CivilDay civil = civilDay(total / secondsPerDay);
  const auto clock = static_cast<int>(total % secondsPerDay);
  std::array<char, 64> text{};
  const int length =
      std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02dZ",
                    static_cast<int>(civil.year), static_cast<int>(civil.month),
                    static_cast<int>(civil.day), clock / 3600, clock / 60 % 60, clock % 60);
  return {text.data(), static_cast<std::size_t>(length)};
}

std::optional<Date> dateFromISO8601(std::string_view text) {
  FieldReader reader(text);
  CivilDay civil{};
  civil.year = reader.number(4);
  reader.expect('-');
  civil.month = reader.number(2);
  reader.expect('-');
  civil.day = reader.number(2);
  reader.expect('T');
  const std::int64_t hour = reader.number(2);
  reader.expect(':');
  const std::int64_t minute = reader.number(2);
  reader.expect(':');
  const std::int64_t second = reader.number(2);
  const std::optional<std::int64_t> offset = readOffset(reader);
  if (!reader.complete() || !offset) return std::nullopt;
  if (civil.year < 1 || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  if (civilDay(dayNumber(civil)) != civil) return std::nullopt;  // no such month, or day of it
  const std::int64_t clock = (hour * 60 + minute) * 60 + second;
  return Date{startOf(civil) + static_cast<double>(clock - *offset)};
}

}  // namespace korvel
