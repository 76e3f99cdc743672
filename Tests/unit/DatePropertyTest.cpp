#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

#include "Base/Date.h"
#include "Tests/unit/FixedSeed.h"

namespace korvel {
namespace {

const test::FixedSeed fixedSeed;

constexpr std::int64_t earliest = -63114076800;
constexpr std::int64_t latest = 252423993599;  // 9999-12-31T23:59:59Z

std::string textAt(double seconds) { return iso8601Text(Date{seconds}); }

RC_GTEST_PROP(DateProperty, EveryWholeSecondComesBackFromItsText, ()) {
  const auto seconds = static_cast<double>(*rc::gen::inRange<std::int64_t>(earliest, latest + 1));
  RC_ASSERT(dateFromISO8601(textAt(seconds)) == Date{seconds});
}

RC_GTEST_PROP(DateProperty, AFractionReadsAsTheSecondItIsIn, ()) {
  const auto whole = static_cast<double>(*rc::gen::inRange<std::int64_t>(earliest, latest));
  const double fraction = *rc::gen::inRange(0, 1000) / 1000.0;
  RC_ASSERT(textAt(whole + fraction) == textAt(whole));
}

RC_GTEST_PROP(DateProperty, LaterDatesHaveLaterTexts, ()) {
  const auto anySecond = rc::gen::inRange<std::int64_t>(earliest, latest + 1);
  const std::int64_t first = *anySecond;
  const std::int64_t second = *anySecond;
  RC_ASSERT((first < second) ==
            (textAt(static_cast<double>(first)) < textAt(static_cast<double>(second))));
}

RC_GTEST_PROP(DateProperty, AnOffsetMovesTheDateByItself, ()) {
  const int hours = *rc::gen::inRange(0, 24);
  const int minutes = *rc::gen::inRange(0, 60);
  const bool colon = *rc::gen::arbitrary<bool>();
  const bool behind = *rc::gen::arbitrary<bool>();
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), "2020-06-15T12:00:00%c%02d%s%02d", behind ? '-' : '+',
                hours, colon ? ":" : "", minutes);
  const double offset = (behind ? -1 : 1) * (hours * 3600 + minutes * 60);
  const double noon = dateFromISO8601("2020-06-15T12:00:00Z")->secondsSinceReference;
  RC_ASSERT(dateFromISO8601(text.data()) == Date{noon - offset});
}

}  // namespace
}  // namespace korvel
