#include "Base/Date.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

namespace korvel {
namespace {

constexpr std::int64_t earliest = -63114076800;
constexpr std::int64_t latest = 252423993599;  // 9999-12-31T23:59:59Z

std::string textAt(double seconds) { return iso8601Text(Date{seconds}); }

TEST(DateTest, ReferenceDateIsZero) {
  EXPECT_EQ(textAt(0), "2001-01-01T00:00:00Z");
  EXPECT_EQ(dateFromISO8601("2001-01-01T00:00:00Z"), Date{0});
}

TEST(DateTest, DistantPastReadsAsTheFirstDayOfTheFirstYear) {
  EXPECT_EQ(iso8601Text(Date::distantPast()), "0001-01-01T00:00:00Z");
}

TEST(DateTest, TheFirstDayOfTheFirstYearIsExactlyTheDistantPast) {
  EXPECT_EQ(dateFromISO8601("0001-01-01T00:00:00Z"), Date::distantPast());
  EXPECT_EQ(dateFromISO8601("0001-01-01T00:00:00Z")->secondsSinceReference, -63114076800.0);
}

TEST(DateTest, UnixEpochLiesAtItsKnownDistance) {
  EXPECT_EQ(textAt(-unixToReferenceSeconds), "1970-01-01T00:00:00Z");
}

TEST(DateTest, TheSecondBeforeTheGregorianCalendarIsJulian) {
  EXPECT_EQ(textAt(-13197600001.0), "1582-10-04T23:59:59Z");
  EXPECT_EQ(dateFromISO8601("1582-10-04T23:59:59Z"), Date{-13197600001.0});
}

TEST(DateTest, TheGregorianCalendarBeginsOnTheFifteenth) {
  EXPECT_EQ(textAt(-13197600000.0), "1582-10-15T00:00:00Z");
  EXPECT_EQ(textAt(-13197599999.0), "1582-10-15T00:00:01Z");
  EXPECT_EQ(dateFromISO8601("1582-10-15T00:00:00Z"), Date{-13197600000.0});
  EXPECT_EQ(dateFromISO8601("1582-10-15T00:00:01Z"), Date{-13197599999.0});
}

TEST(DateTest, TheTenSkippedDaysAreNoDates) {
  for (int day = 5; day <= 14; ++day) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "1582-10-%02dT12:00:00Z", day);
    EXPECT_EQ(dateFromISO8601(text.data()), std::nullopt) << text.data();
  }
}

TEST(DateTest, FractionsAreDroppedDownwards) {
  EXPECT_EQ(textAt(0.999999), "2001-01-01T00:00:00Z");
  EXPECT_EQ(textAt(-0.000001), "2000-12-31T23:59:59Z");
  EXPECT_EQ(textAt(-1.5), "2000-12-31T23:59:58Z");
}

TEST(DateTest, DatesOutsideFourDigitYearsReadAsTheNearestOnes) {
  EXPECT_EQ(textAt(static_cast<double>(latest)), "9999-12-31T23:59:59Z");
  EXPECT_EQ(textAt(static_cast<double>(latest) + 0.5), "9999-12-31T23:59:59Z");
  EXPECT_EQ(textAt(static_cast<double>(latest) + 1), "9999-12-31T23:59:59Z");
  EXPECT_EQ(textAt(static_cast<double>(earliest) - 1), "0001-01-01T00:00:00Z");
  EXPECT_EQ(textAt(1e300), "9999-12-31T23:59:59Z");
  EXPECT_EQ(textAt(-1e300), "0001-01-01T00:00:00Z");
  EXPECT_EQ(textAt(std::numeric_limits<double>::infinity()), "9999-12-31T23:59:59Z");
  EXPECT_EQ(textAt(std::nan("")), "0001-01-01T00:00:00Z");
}

TEST(DateTest, LeapDaysFollowTheCalendarOfTheirTime) {
  EXPECT_TRUE(dateFromISO8601("2000-02-29T00:00:00Z"));
  EXPECT_FALSE(dateFromISO8601("1900-02-29T00:00:00Z"));
  EXPECT_TRUE(dateFromISO8601("1500-02-29T00:00:00Z"));  // Julian: every fourth year
  EXPECT_TRUE(dateFromISO8601("2024-02-29T00:00:00Z"));
  EXPECT_FALSE(dateFromISO8601("2023-02-29T00:00:00Z"));
}

TEST(DateTest, OffsetsCountTowardsUTC) {
  EXPECT_EQ(dateFromISO8601("2001-01-01T01:00:00+01:00"), Date{0});
  EXPECT_EQ(dateFromISO8601("2001-01-01T01:30:00+0130"), Date{0});
  EXPECT_EQ(dateFromISO8601("2000-12-31T16:00:00-08:00"), Date{0});
  EXPECT_EQ(dateFromISO8601("2000-12-31T12:30:00-1130"), Date{0});
}

TEST(DateTest, WidestOffsetsAreAMinuteShortOfADay) {
  EXPECT_EQ(dateFromISO8601("2001-01-01T23:59:00+23:59"), Date{0});
  EXPECT_EQ(dateFromISO8601("2001-01-01T23:59:00+2359"), Date{0});
  EXPECT_EQ(dateFromISO8601("2000-12-31T00:01:00-23:59"), Date{0});
  EXPECT_EQ(dateFromISO8601("2001-01-01T00:00:00-24:00"), std::nullopt);
  EXPECT_EQ(dateFromISO8601("2001-01-01T00:00:00-23:60"), std::nullopt);
}

TEST(DateTest, OtherFormsAreNoDates) {
  for (const char* text : {"",
                           "2001",
                           "2001-01-01",
                           "2001-01-01T00:00:00",
                           "2001-01-01 00:00:00Z",
                           "2001-01-01T00:00:00.5Z",
                           "2001-01-01T00:00:00z",
                           "2001-01-01t00:00:00Z",
                           "2001-01-01T00:00:00Z ",
                           " 2001-01-01T00:00:00Z",
                           "2001-1-01T00:00:00Z",
                           "02001-01-01T00:00:00Z",
                           "-001-01-01T00:00:00Z",
                           "0000-01-01T00:00:00Z",
                           "2001-00-01T00:00:00Z",
                           "2001-13-01T00:00:00Z",
                           "2001-01-00T00:00:00Z",
                           "2001-01-32T00:00:00Z",
                           "2001-04-31T00:00:00Z",
                           "2001-01-01T24:00:00Z",
                           "2001-01-01T00:60:00Z",
                           "2001-01-01T00:00:60Z",
                           "2001-01-01T00:00:00+24:00",
                           "2001-01-01T00:00:00+00:60",
                           "2001-01-01T00:00:00+1",
                           "2001-01-01T00:00:00+1:00",
                           "2001-01-01T00:00:00ZZ",
                           "2001-01-01T00:00:00+00:00Z",
                           "2001-01-01T0a:00:00Z",
                           "2001-01-01T00:00:00 01:00",
                           "2001/01/01T00:00:00Z"}) {
    EXPECT_EQ(dateFromISO8601(text), std::nullopt) << text;
  }
}

TEST(DateTest, NoOtherMonthsAndDaysOfTwoDigitsAreDates) {
  constexpr std::array<unsigned, 12> lengths = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  for (const int year : {1, 4, 1581, 1583, 1900, 2000, 2023, 9999}) {
    const bool leap = year == 4 || year == 2000;
    for (unsigned month = 0; month < 100; ++month) {
      unsigned length = month >= 1 && month <= 12 ? lengths[month - 1] : 0;
      if (month == 2 && leap) ++length;
      for (unsigned day = 0; day < 100; ++day) {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT00:00:00Z", year, month, day);
        ASSERT_EQ(dateFromISO8601(text.data()).has_value(), day >= 1 && day <= length)
            << text.data();
      }
    }
  }
}

TEST(DateTest, NULBytesAreNoDates) {
  EXPECT_EQ(dateFromISO8601(std::string_view("2001-01-01T00:00:00Z\0", 21)), std::nullopt);
  EXPECT_EQ(dateFromISO8601(std::string_view("2001-01-01\0T00:00:00Z", 21)), std::nullopt);
}

// A calendar kept by hand: one day after the other, from the first to the year 2500.
TEST(DateTest, EveryMonthOfTwentyFiveCenturiesIsWhereTheCalendarPutsIt) {
  constexpr std::array<int, 12> lengths = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  std::int64_t day = earliest / 86400;
  for (int year = 1; year <= 2500; ++year) {
    for (int month = 1; month <= 12; ++month) {
      const bool gregorian = year > 1582;
      const bool leap = year % 4 == 0 && (!gregorian || year % 100 != 0 || year % 400 == 0);
      const int length =
          lengths[static_cast<std::size_t>(month - 1)] + (month == 2 && leap ? 1 : 0);
      std::array<char, 32> first{};
      std::snprintf(first.data(), first.size(), "%04d-%02d-01T00:00:00Z", year, month);
      std::array<char, 32> last{};
      std::snprintf(last.data(), last.size(), "%04d-%02d-%02dT23:59:59Z", year, month, length);
      const auto begin = static_cast<double>(day * 86400);
      ASSERT_EQ(textAt(begin), first.data());
      ASSERT_EQ(dateFromISO8601(first.data()), Date{begin});
      day += year == 1582 && month == 10 ? length - 10 : length;
      const auto end = static_cast<double>(day * 86400 - 1);
      ASSERT_EQ(textAt(end), last.data());
      ASSERT_EQ(dateFromISO8601(last.data()), Date{end});
    }
  }
}

TEST(DateTest, GregorianDaysAgreeWithTheLibrarysCalendar) {
  using std::chrono::days, std::chrono::sys_days, std::chrono::year, std::chrono::year_month_day;
  const sys_days reference = year{2001} / 1 / 1;
  for (sys_days day = year{1582} / 10 / 15; day < sys_days{year{9999} / 12 / 31}; day += days{97}) {
    const year_month_day civil(day);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT00:00:00Z", int{civil.year()},
                  unsigned{civil.month()}, unsigned{civil.day()});
    ASSERT_EQ(textAt(static_cast<double>((day - reference).count()) * 86400), text.data());
  }
}

}  // namespace
}  // namespace korvel
