#include "Logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cwchar>
#include <limits>
#include <string>

#include "Tests/unit/FakesLog.h"

namespace korvel {
namespace {

using testing::ElementsAre;

// The compiler does not check a format that goes through a pointer: some here are wrong on purpose.
constexpr auto* rendered = &logText;

TEST(LogTextTest, PlainTextStaysAsItIs) {
  EXPECT_EQ(rendered(""), "");
  EXPECT_EQ(rendered("SleepDisabled=0 cleared — normal"), "SleepDisabled=0 cleared — normal");
}

TEST(LogTextTest, ADoubledPercentSignIsOne) {
  EXPECT_EQ(rendered("100%% target"), "100% target");
  EXPECT_EQ(rendered("%%"), "%");
  EXPECT_EQ(rendered("%%{public}s"), "%{public}s");
}

TEST(LogTextTest, AnnotationsDoNotShow) {
  EXPECT_EQ(rendered("%{public}s/%{public}d/%{private}s", "a", 5, "b"), "a/5/b");
}

TEST(LogTextTest, IntegersOfEveryWidthAreDecimal) {
  EXPECT_EQ(rendered("%d %{public}d", std::numeric_limits<int>::min(), -536870195),
            "-2147483648 -536870195");
  EXPECT_EQ(rendered("%u", std::numeric_limits<unsigned>::max()), "4294967295");
  EXPECT_EQ(rendered("%ld %lu", std::numeric_limits<long>::min(),
                     std::numeric_limits<unsigned long>::max()),
            "-9223372036854775808 18446744073709551615");
  EXPECT_EQ(rendered("%lld %llu", -7LL, 7ULL), "-7 7");
  EXPECT_EQ(rendered("%hhu %hhd", 255, -1), "255 -1");
  EXPECT_EQ(rendered("%hu %hd", 65535, -2), "65535 -2");
  EXPECT_EQ(rendered("%zu %zd %td", std::size_t{9}, std::ptrdiff_t{-9}, std::ptrdiff_t{3}),
            "9 -9 3");
  EXPECT_EQ(rendered("%jd %ju", std::intmax_t{-4}, std::uintmax_t{4}), "-4 4");
  EXPECT_EQ(rendered("%i", 12), "12");
}

TEST(LogTextTest, NarrowIntegersAreCutToTheirWidth) {
  EXPECT_EQ(rendered("%hhu", 256 + 132), "132");
  EXPECT_EQ(rendered("%hhd", 255), "-1");
  EXPECT_EQ(rendered("%hu", 65536 + 1), "1");
}

TEST(LogTextTest, BooleansAreOneOrZero) {
  EXPECT_EQ(rendered("%{bool}d %{bool}d", 1, 0), "1 0");
  EXPECT_EQ(rendered("%{bool,public}d %{public,bool}d", 1, 0), "1 0");
}

TEST(LogTextTest, ArgumentsStayInStepBehindEachOther) {
  EXPECT_EQ(rendered("%s %hhu %ld %{bool}d %u %d %s", "a", 200, -1L, 1, 3U, -3, "z"),
            "a 200 -1 1 3 -3 z");
}

TEST(LogTextTest, LayoutsAreKept) {
  EXPECT_EQ(rendered("[%5d] [%-5d] [%05d] [%+d]", 42, 42, 42, 42), "[   42] [42   ] [00042] [+42]");
  EXPECT_EQ(rendered("%02x%02X %#o", 10, 171, 8), "0aAB 010");
  EXPECT_EQ(rendered("[%4s] [%.2s] [%.*s] [%*d]", "a", "abc", 1, "xyz", 4, 7),
            "[   a] [ab] [x] [   7]");
  EXPECT_EQ(rendered("%.1f %g %.2e", 14400.0, 0.5, 1.0), "14400.0 0.5 1.00e+00");
  EXPECT_EQ(rendered("%c%c", 'o', 'k'), "ok");
}

TEST(LogTextTest, AFormatWhoseAnnotationHasNoEndIsTheText) {
  EXPECT_EQ(rendered("100 %% of %{public"), "100 %% of %{public");
}

TEST(LogTextTest, AnEmptyTextIsEmptyAndNotItsFormat) { EXPECT_EQ(rendered("%{public}s", ""), ""); }

TEST(LogTextTest, ANullTextIsNamed) {
  const char* nothing = nullptr;
  EXPECT_EQ(rendered("%{public}s", nothing), "(null)");
}

TEST(LogTextTest, TextsOfAnyLengthComeOutWhole) {
  for (const std::size_t size : {1U, 120U, 500U, 511U, 512U, 513U, 1024U, 100000U}) {
    const std::string text(size, 'x');
    EXPECT_EQ(rendered("%s", text.c_str()), text) << size;
    EXPECT_EQ(rendered("%s|%d|%s", text.c_str(), 5, text.c_str()),
              std::string(text).append("|5|").append(text))
        << size;
    EXPECT_EQ(rendered("%*d", static_cast<int>(size), 7), std::string(size - 1, ' ') + "7") << size;
  }
}

TEST(LogTextTest, ATextThatCannotBeRenderedIsItsFormat) {
  constexpr wint_t outsideUnicode = 0x110000;
  EXPECT_EQ(rendered("no %{public}lc", outsideUnicode), "no %{public}lc");
}

TEST(LoggerTest, EveryLevelReachesTheLogUnderItsCategory) {
  test::FakeLog unified;
  const Logger log(unified, "Boot");
  log.log("plain %d", 1);
  log.error("bad %{public}s", "thing");
  log.fault("worse %{bool}d", true);
  EXPECT_THAT(unified.lines,
              ElementsAre("default Boot: plain 1", "error Boot: bad thing", "fault Boot: worse 1"));
}

TEST(LoggerTest, CopiesWriteToTheSameLog) {
  test::FakeLog unified;
  const Logger log(unified, "Boot");
  const Logger copy = log;
  copy.log("text");
  EXPECT_THAT(unified.lines, ElementsAre("default Boot: text"));
}

}  // namespace
}  // namespace korvel
