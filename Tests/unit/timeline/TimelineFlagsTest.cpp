#include "VirtualMac/Timeline/TimelineFlags.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Tests/unit/timeline/Count.h"
#include "VirtualMac/Timeline/TimelineText.h"

namespace virtualmac {
namespace {

using testing::HasSubstr;

TEST(TimelineFlagsTest, EachMarkIsShownOrCountedAndSignsNeverOverlap) {
  std::vector<TimelineMark> marks;
  for (int index = 0; index < 200; ++index) {
    marks.push_back({index * 5.0, TimelineMarkKind::Request, "mark " + std::to_string(index)});
  }
  marks.push_back({500, TimelineMarkKind::Log, "no flag"});
  const TimelineFlags laid = layFlags(marks, [](double time) { return time; }, 1000);
  ASSERT_EQ(laid.flags.size(), 200U);
  std::size_t shown = 0;
  for (const TimelineFlag& flag : laid.flags) shown += flag.row ? 1 : 0;
  std::size_t counted = 0;
  double end = 0;
  for (const TimelineCrowd& crowd : laid.crowds) {
    EXPECT_GE(crowd.left, end);
    end = crowd.left + crowd.width;
    EXPECT_LE(end, 1000);
    counted += crowd.marks.size();
  }
  EXPECT_GT(laid.crowds.size(), 3U);
  EXPECT_EQ(shown + counted, 200U);
}

TEST(TimelineFlagsTest, MarksWithoutRoomAreCountedAndListed) {
  TimelineBuilder builder("crowd", 0, {});
  for (const double time : {100, 400, 990}) {
    if (time > 900) builder.add({700, "mac", "touched"});
    for (int degrees = 1; degrees <= 5; ++degrees) {
      builder.add({time, "mac", "temperature set to " + std::to_string(degrees) + " C <&>"});
    }
  }
  const std::string svg = timelineSVG(builder.finish(1000));
  EXPECT_EQ(count(svg, ">+2 more<"), 3U);
  EXPECT_THAT(svg, HasSubstr("<title>00:01:40, 100.000 s: temperature set to 4 C &lt;&amp;&gt;\n"
                             "00:01:40, 100.000 s: temperature set to 5 C &lt;&amp;&gt;</title>"));
  EXPECT_EQ(count(svg, "more<"), 3U) << "nothing is counted where there is room";
  builder.add({995, "mac", "touched"});
  EXPECT_THAT(timelineSVG(builder.finish(1000)), HasSubstr(">+3 more<"))
      << "signs do not cover one another at the right edge";
}

TEST(TimelineFlagsTest, AFlagThatIsCutShortTellsAllUnderThePointer) {
  TimelineBuilder builder("long", 0, {});
  const std::string text = "fault powerui-error a text that is longer than forty letters on";
  builder.add({60, "mac", text});
  const std::string svg = timelineSVG(builder.finish(1000));
  EXPECT_THAT(svg, HasSubstr("<title>00:01:00, 60.000 s: " + text + "</title>"));
  EXPECT_THAT(svg, HasSubstr("…<"));
}

TEST(TimelineFlagsTest, AFailureHasItsTextAndALineThroughEverything) {
  const std::string words = "line 8: expected \"gate paused\", but the gate is charging";
  for (const double time : {60, 990}) {
    TimelineBuilder builder("fails", 0, {});
    for (int second = 0; second < 10; ++second) builder.add({time, "mac", "touched"});
    builder.fail(time, words);
    const std::string svg = timelineSVG(builder.finish(1000));
    EXPECT_THAT(svg, HasSubstr(">" + timelineMoment(time) + ": " + escapedXML(words) + "<"));
    EXPECT_EQ(count(svg, "V586.0\" stroke=\"#dc2626\" stroke-width=\"2\"/>"), 1U);
    EXPECT_THAT(svg, HasSubstr(">+7 more<")) << "a failure takes no flag's room";
  }
}

}  // namespace
}  // namespace virtualmac
