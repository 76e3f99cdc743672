// Dates as a person in the United States reads them who lives in Greenwich: a virtual Mac has no
// settings of language and place.

#include <chrono>
#include <cmath>
#include <cstdio>

#import "TinMac/Frameworks/Arguments.h"
#include "TinMac/Frameworks/BelowServices.h"
#import "TinMac/Frameworks/Objects.h"

using namespace tinmac;

namespace {

constexpr std::int64_t daySeconds = 86400;
constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

std::string mediumText(double secondsSince2001) {
  using namespace std::chrono;
  const auto whole = static_cast<std::int64_t>(std::floor(secondsSince2001));
  const std::int64_t second = ((whole % daySeconds) + daySeconds) % daySeconds;
  constexpr sys_days start = sys_days(year(2001) / January / 1);
  const year_month_day date(start + days((whole - second) / daySeconds));
  const std::int64_t hour = second / 3600;
  char text[64];
  // A narrow space that does not break stands before the half of the day.
  std::snprintf(text, sizeof text, "%s %u, %d at %lld:%02lld:%02lld\u202f%s",
                months[static_cast<unsigned>(date.month()) - 1], static_cast<unsigned>(date.day()),
                static_cast<int>(date.year()), hour % 12 == 0 ? 12 : hour % 12, second / 60 % 60,
                second % 60, hour < 12 ? "AM" : "PM");
  return text;
}

}  // namespace

@implementation NSFormatter
@end

@implementation NSDateFormatter
+ (NSString*)localizedStringFromDate:(NSDate*)date
                           dateStyle:(NSDateFormatterStyle)dateStyle
                           timeStyle:(NSDateFormatterStyle)timeStyle {
  expectKind(date, [NSDate class], "localizedStringFromDate:dateStyle:timeStyle:");
  expectNumber<NSUInteger>(dateStyle, NSDateFormatterMediumStyle, "dateStyle");
  expectNumber<NSUInteger>(timeStyle, NSDateFormatterMediumStyle, "timeStyle");
  return autoreleased(makeString(mediumText([date timeIntervalSinceReferenceDate])));
}
@end

@implementation NSDate (Moments)
/// The first day of the year before the first, by the calendar that was reformed.
+ (NSDate*)distantPast {
  return autoreleased(makeDate(-63114076800.0));
}
+ (NSTimeInterval)timeIntervalSinceReferenceDate {
  return tinSecondsSince2001();
}
- (BOOL)isEqualToDate:(NSDate*)other {
  return [self isEqual:other];
}
@end
