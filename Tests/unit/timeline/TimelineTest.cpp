#include "VirtualMac/Timeline/Timeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Tests/unit/timeline/Count.h"
#include "VirtualMac/Timeline/TimelineText.h"

namespace virtualmac {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

TimelineState plugged(double percent) {
  TimelineState state;
  state.percent = percent;
  state.adapterConnected = true;
  return state;
}

/// Returns the last state in a timeline made of `entries`.
TimelineState after(const std::vector<Journal::Entry>& entries) {
  TimelineBuilder builder("run", 0, plugged(76));
  for (const Journal::Entry& entry : entries) builder.add(entry);
  return builder.finish(100).samples.back().state;
}

std::vector<TimelineMark> marksOf(const std::vector<Journal::Entry>& entries) {
  TimelineBuilder builder("run", 0, plugged(76));
  for (const Journal::Entry& entry : entries) builder.add(entry);
  return builder.finish(100).marks;
}

/// Returns the first defect of `xml` as XML without comments and sections; empty: none.
std::string defectOf(const std::string& xml) {
  std::vector<std::string> open;
  for (std::size_t at = 0; at < xml.size();) {
    if (xml[at] == '&') {
      const std::size_t end = xml.find(';', at);
      const std::string name = end == std::string::npos ? "" : xml.substr(at, end - at + 1);
      if (name != "&amp;" && name != "&lt;" && name != "&gt;" && name != "&quot;") {
        return "a bare ampersand at " + xml.substr(at, 20);
      }
    }
    if (static_cast<unsigned char>(xml[at]) < 0x20 && xml[at] != '\n') return "a control character";
    if (xml[at] != '<') {
      ++at;
      continue;
    }
    std::size_t end = at + 1;
    bool quoted = false;
    while (end < xml.size() && (quoted || xml[end] != '>')) {
      if (xml[end] == '"') quoted = !quoted;
      if (xml[end] == '<') return "a bracket inside a tag at " + xml.substr(at, 40);
      ++end;
    }
    if (end == xml.size()) return "an unfinished tag";
    const std::string tag = xml.substr(at + 1, end - at - 1);
    const std::string name = tag.substr(0, tag.find_first_of(" /", tag[0] == '/' ? 1 : 0));
    if (tag[0] == '/') {
      if (open.empty() || "/" + open.back() != name) return "closes " + name + " out of turn";
      open.pop_back();
    } else if (tag.back() != '/') {
      open.push_back(name);
    }
    at = end + 1;
  }
  return open.empty() ? "" : open.back() + " is never closed";
}

TEST(TimelineTest, BuilderFollowsTheHardware) {
  EXPECT_EQ(after({{5, "mac", "battery 77 %"}}).percent, 77);
  EXPECT_EQ(after({{5, "mac", "battery 75 %"}}).percent, 75);
  EXPECT_EQ(after({{5, "mac", "battery 40 %"}}).percent, 40);
  EXPECT_FALSE(after({{5, "mac", "adapter disconnected"}}).adapterConnected);
  EXPECT_TRUE(after({{5, "mac", "lid closed"}}).lidClosed);
  EXPECT_FALSE(after({{5, "mac", "lid closed"}, {6, "mac", "lid opened"}}).lidClosed);
  EXPECT_TRUE(after({{5, "power", "asleep"}}).asleep);
  EXPECT_FALSE(after({{5, "power", "asleep"}, {6, "power", "awake (lid opened)"}}).asleep);
  EXPECT_TRUE(after({{5, "proc", "helper 412 started"}}).helperRunning);
  EXPECT_FALSE(
      after({{5, "proc", "helper 412 started"}, {6, "proc", "helper 412 killed by signal 9"}})
          .helperRunning);
}

TEST(TimelineTest, OnlyTheHardwareTellsALevel) {
  EXPECT_EQ(batteryLevelIn({5, "mac", "battery set to 63.5 %"}), 64) << "as the system rounds";
  EXPECT_EQ(batteryLevelIn({5, "mac", "battery set to 63.4 %"}), 63);
  EXPECT_EQ(batteryLevelIn({5, "mac", "battery empty, power lost"}), std::nullopt);
  EXPECT_EQ(batteryLevelIn({5, "mac", "battery 77 %"}), 77);
  EXPECT_EQ(batteryLevelIn({5, "mac", "lid closed"}), std::nullopt);
  EXPECT_EQ(batteryLevelIn({5, "log", "battery 77 %"}), std::nullopt);
}

// Adapter, lid, sleep and charge are not marks: lanes and the charge's line show them.
TEST(TimelineTest, WhatIsDoneToTheMachineIsAMark) {
  const std::vector<Journal::Entry> done{{1, "mac", "fault smc-silent-refusal CHTE on"},
                                         {2, "mac", "temperature set to 45 C"},
                                         {3, "mac", "ambient set to 30 C"},
                                         {4, "mac", "idle sleep after 10 min"},
                                         {5, "mac", "display connected"},
                                         {6, "mac", "speed 60"},
                                         {7, "mac", "battery set to 64 %"},
                                         {8, "mac", "touched"},
                                         {9, "power", "native limit 80 (by the user)"},
                                         {10, "power", "SleepDisabled = 1 (by another program)"}};
  const auto marks = marksOf(done);
  ASSERT_EQ(marks.size(), done.size());
  for (std::size_t index = 0; index < done.size(); ++index) {
    EXPECT_EQ(marks[index].text, done[index].text);
    EXPECT_EQ(marks[index].time, done[index].time);
    EXPECT_EQ(marks[index].kind, TimelineMarkKind::Deed);
  }
  EXPECT_EQ(marksOf({{1, "proc", "signal 19 to helper 412"}}).at(0).text, "signal 19 to helper");
  EXPECT_EQ(marksOf({{1, "mac", "battery empty, power lost"}}).at(0).kind, TimelineMarkKind::Loss);
  EXPECT_TRUE(marksOf({{1, "mac", "battery 77 %"},
                       {2, "mac", "adapter disconnected"},
                       {3, "mac", "adapter connected"},
                       {4, "mac", "lid closed"},
                       {5, "mac", "lid opened"},
                       {6, "power", "native limit 80 (pid 412)"},
                       {7, "power", "asleep"}})
                  .empty());
}

TEST(TimelineTest, ADeedHasAFlagInThePicture) {
  TimelineBuilder builder("hot", 0, plugged(50));
  builder.add({100, "mac", "temperature set to 45 C"});
  const std::string svg = timelineSVG(builder.finish(1000));
  EXPECT_THAT(svg, HasSubstr(">temperature set to 45 C<"));
  EXPECT_EQ(count(svg, "height=\"14\" rx=\"3\" fill=\"#854d0e\""), 1U);
}

// The helper pauses at a reading of 80; drawn half a point lower, it would seem too early.
TEST(TimelineTest, ABatteryHeldAtTheLimitStaysWhereTheHelperReadsIt) {
  TimelineBuilder builder("held", 0, plugged(79));
  builder.add({100, "mac", "battery 80 %"});
  builder.add({101, "smc", "CHTE <- 01 00 00 00"});
  builder.add({500, "mac", "adapter disconnected"});
  builder.add({900, "mac", "battery 79 %"});
  std::vector<double> levels;
  for (const Timeline::Sample& sample : builder.finish(1000).samples) {
    levels.push_back(sample.state.percent);
  }
  EXPECT_THAT(levels, ElementsAre(79, 80, 80, 80, 79));
}

TEST(TimelineTest, BuilderReadsTheGateFromEitherKeyFamilyAndTheNativeLimit) {
  EXPECT_TRUE(after({{1, "smc", "CHTE <- 01 00 00 00"}}).chargingPaused);
  EXPECT_TRUE(after({{1, "smc", "CH0B <- 02"}, {1, "smc", "CH0C <- 02"}}).chargingPaused);
  EXPECT_FALSE(
      after({{1, "smc", "CHTE <- 01 00 00 00"}, {2, "smc", "CHTE <- 00 00 00 00"}}).chargingPaused);
  EXPECT_TRUE(after({{1, "power", "native limit 80 (pid 412)"}}).chargingPaused);
  EXPECT_FALSE(after({{1, "power", "native limit 100 (pid 412)"}}).chargingPaused);
  EXPECT_FALSE(after({{1, "power", "native limit 80 refused (pid 412)"}}).chargingPaused);
  EXPECT_FALSE(after({{1, "power", "native limit 80 ignored (pid 412)"}}).chargingPaused);
  EXPECT_TRUE(after({{1, "smc", "CHIE <- 08"}}).inflowInhibited);
  EXPECT_TRUE(after({{1, "smc", "CH0I <- 01"}}).inflowInhibited);
  EXPECT_FALSE(
      after({{1, "smc", "CHIE <- 08"}, {2, "mac", "adapter renegotiated (inflow inhibit dropped)"}})
          .inflowInhibited);
}

TEST(TimelineTest, AWriteThatTheFirmwareDidNotObeyChangesNothing) {
  EXPECT_FALSE(after({{1, "smc", "CHTE <- 01 00 00 00 refused (result 134)"}}).chargingPaused);
  EXPECT_FALSE(
      after({{1, "smc", "CHTE <- 01 00 00 00 ignored (value stays 00 00 00 00)"}}).chargingPaused);
}

TEST(TimelineTest, TheLimitShowsWhileItIsEnforced) {
  const Journal::Entry saved{1, "disk", "state.json replaced: chargeLimit=70 sailingBand=3"};
  const Journal::Entry asked{1, "log", "HelperImpl default \"setChargeLimit(70) pid=501 team=T\""};
  EXPECT_FALSE(after({saved}).enforcing);
  const TimelineState held = after({asked, saved});
  EXPECT_TRUE(held.enforcing);
  EXPECT_EQ(held.limitPercent, 70);
  EXPECT_EQ(held.bandPercent, 3);
  EXPECT_FALSE(
      after({asked, saved, {2, "log", "HelperImpl default \"clearChargeLimit pid=501 team=T\""}})
          .enforcing);
  EXPECT_FALSE(after({asked, saved, {2, "proc", "helper 412 killed by signal 9"}}).enforcing);
  EXPECT_TRUE(
      after({{1, "log", "HelperImpl default \"client connect — arming polling loop at limit=80\""}})
          .enforcing);
}

TEST(TimelineTest, RequestsAreNamedByWhatWasAskedFor) {
  const auto marks =
      marksOf({{1, "log", "HelperImpl default \"setChargeLimit(80) pid=501 signingID=a\""},
               {2, "log", "HelperImpl default \"forceDischarge(1) pid=501 signingID=a\""},
               {3, "reply", "forceDischarge failed 400 \"Battery is already at the 80% limit.\""},
               {4, "log", "HelperImpl default \"charge enforcement pause:ok\""},
               {5, "log", "SMCWriter default \"SMC write CHTE bytes=[1, 0, 0, 0]\""},
               {5, "log", "SMCWriter error \"SMC write failed\""},
               {6, "proc", "helper 412 killed by signal 9"}});
  ASSERT_EQ(marks.size(), 6U);
  EXPECT_EQ(marks[0].text, "limit 80 %");
  EXPECT_EQ(marks[1].text, "discharge");
  EXPECT_EQ(marks[1].kind, TimelineMarkKind::Request);
  EXPECT_EQ(marks[2].text, "forceDischarge refused: \"Battery is already at the 80% limit.\"");
  EXPECT_EQ(marks[2].kind, TimelineMarkKind::Refusal);
  EXPECT_EQ(marks[3].kind, TimelineMarkKind::Log);
  EXPECT_EQ(marks[4].kind, TimelineMarkKind::Error);
  EXPECT_EQ(marks[5].text, "helper killed by signal 9");
  EXPECT_EQ(marks[5].kind, TimelineMarkKind::Loss);
}

TEST(TimelineTest, ClientsAreALaneAndQuitIsSaidOnce) {
  const std::vector<Journal::Entry> entries{
      {1, "log", "HelperImpl default \"client connected (count=1)\""},
      {2, "log", "HelperImpl default \"quit() received pid=412\""},
      {2, "log", "HelperImpl default \"shutdownGracefully — restoring SMC before exit\""}};
  EXPECT_TRUE(after(entries).clientConnected);
  EXPECT_FALSE(after({entries[0], {3, "proc", "helper 412 exited 0"}}).clientConnected);
  EXPECT_FALSE(
      after({entries[0], {3, "log", "HelperImpl default \"client disconnected (count=0)\""}})
          .clientConnected);
  ASSERT_EQ(marksOf(entries).size(), 1U);
  EXPECT_EQ(marksOf(entries)[0].text, "quit");
  EXPECT_EQ(marksOf({entries[2]})[0].text, "shut down");
}

TEST(TimelineTest, AJournalsTextReadsBackToItsEntries) {
  const Journal::Entry entry{12.345, "mac", "battery 79 %"};
  const auto read = journalEntryFrom(journalLine(entry));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->time, 12.345);
  EXPECT_EQ(read->kind, "mac");
  EXPECT_EQ(read->text, "battery 79 %");
  EXPECT_EQ(journalEntryFrom("3.000 power asleep")->text, "asleep");
  for (const char* wrong : {"", "x", "1.5 smc   a", "1.500", "1.500 smc", "a.500 smc   b"}) {
    EXPECT_FALSE(journalEntryFrom(wrong)) << wrong;
  }
}

TEST(TimelineTest, ClockCountsDays) {
  EXPECT_EQ(timelineClock(0), "00:00:00");
  EXPECT_EQ(timelineClock(3725.9), "01:02:05");
  EXPECT_EQ(timelineClock(86400 + 61), "1d 00:01:01");
}

TEST(TimelineTest, LabelsFollowTheStep) {
  EXPECT_EQ(tickSeconds(10), 1);
  EXPECT_EQ(tickSeconds(11), 2);
  EXPECT_EQ(tickSeconds(3600), 600);
  EXPECT_EQ(tickSeconds(7 * 86400.0), 86400);
  EXPECT_EQ(timelineMoment(86400 + 61.25), "1d 00:01:01, 86461.250 s");
  EXPECT_EQ(tickLabel(65, 5), "00:01:05");
  EXPECT_EQ(tickLabel(3600, 600), "01:00");
  EXPECT_EQ(tickLabel(2 * 86400.0, 86400), "2d");
}

TEST(TimelineTest, AShortenedTextKeepsWholeCharacters) {
  EXPECT_EQ(shortened("short", 5), "short");
  EXPECT_EQ(shortened("shorter", 5), "short…");
  EXPECT_EQ(shortened("caf\u00e9s", 4), "caf…");
}

Timeline eventfulDay() {
  TimelineBuilder builder("A day of <every> \"kind\" & more", 0, plugged(76));
  builder.add({1, "proc", "helper 412 started"});
  builder.add({2, "log", "HelperImpl default \"setChargeLimit(80) pid=501 signingID=a\""});
  builder.add({2, "disk", "state.json replaced: chargeLimit=80 sailingBand=5"});
  for (int percent = 77; percent <= 80; ++percent) {
    builder.add({100.0 * (percent - 76), "mac", "battery " + std::to_string(percent) + " %"});
  }
  builder.add({400, "smc", "CHTE <- 01 00 00 00"});
  builder.add({400, "log", "HelperImpl default \"charge enforcement pause:ok\""});
  builder.add({500, "mac", "adapter disconnected"});
  builder.add({600, "power", "asleep"});
  builder.add({700, "power", "awake (lid opened)"});
  builder.add({800, "log", "SMCWriter error \"a < b && c\x01 é\""});
  for (int times = 0; times < 5; ++times) builder.add({850, "mac", "touched <&>"});
  builder.fail(900, "expected \"a < b && c\"");
  return builder.finish(1000);
}

TEST(TimelineTest, ThePictureIsWellFormed) {
  EXPECT_EQ(defectOf(timelineSVG(eventfulDay())), "");
  EXPECT_EQ(defectOf("<a><b x=\"1\"/></a>"), "");
  EXPECT_NE(defectOf("<a><b></a>"), "");
  EXPECT_NE(defectOf("<a>&</a>"), "");
}

TEST(TimelineTest, ThePictureShowsEachPart) {
  const std::string svg = timelineSVG(eventfulDay());
  EXPECT_THAT(svg, HasSubstr("A day of &lt;every&gt; &quot;kind&quot; &amp; more"));
  for (const char* words :
       {">limit 80 %<", ">charge enforcement pause:ok<", ">paused<", ">allowed<", ">connected<",
        ">asleep<", ">running<", ">80 %<", ">00:06:40, 400.000 s<"}) {
    EXPECT_THAT(svg, HasSubstr(words)) << words;
  }
  EXPECT_THAT(svg, Not(HasSubstr(">inhibited<")));
}

/// Returns the attributes of the line that shows the charge.
std::string chargeLine(const std::string& svg) {
  const std::size_t ink = svg.find("stroke=\"#2563eb\" stroke-width=\"2.5\" stroke-linejoin");
  const std::size_t begin = svg.rfind('<', ink);
  return ink == std::string::npos ? "" : svg.substr(begin, ink - begin);
}

// The charge rises from 76 to 77 % after a quarter of the time: the line goes across, up by a tenth
// of the height (70 to 80 %), and across.
TEST(TimelineTest, TheChargeIsDrawnInStepsOfWhatTheHelperReads) {
  TimelineBuilder builder("rising", 0, plugged(76));
  builder.add({250, "mac", "battery 77 %"});
  builder.add({600, "mac", "lid closed"});
  EXPECT_EQ(chargeLine(timelineSVG(builder.finish(1000))),
            "<path d=\"M92.0 234.0H342.0V210.0H1092.0\" fill=\"none\" ");
}

// In the legend, a pale blue ground means "asleep", so nothing else may have one.
TEST(TimelineTest, OnlySleepHasAGroundOfItsColour) {
  TimelineBuilder awake("awake", 0, plugged(76));
  awake.add({250, "mac", "battery 77 %"});
  const std::string day = timelineSVG(awake.finish(1000));
  EXPECT_EQ(count(day, "#c7d2fe"), 1U) << "the legend";
  EXPECT_EQ(count(day, "Z\""), 0U) << "nothing is filled under the charge";
  awake.add({500, "power", "asleep"});
  EXPECT_EQ(count(timelineSVG(awake.finish(1000)), "#c7d2fe"), 3U) << "and the ground, and a lane";
}

TEST(TimelineTest, TheSameTimelineGivesTheSameBytes) {
  EXPECT_EQ(timelineSVG(eventfulDay()), timelineSVG(eventfulDay()));
}

TEST(TimelineTest, ManyLogLinesAreListedInPartAndTheRestIsCounted) {
  TimelineBuilder builder("busy", 0, plugged(50));
  for (int line = 0; line < 40; ++line) {
    builder.add({line * 10.0, "log", "HelperImpl default \"line " + std::to_string(line) + "\""});
  }
  const std::string svg = timelineSVG(builder.finish(400));
  EXPECT_EQ(count(svg, ">line "), 14U);
  EXPECT_THAT(svg, HasSubstr(">and 26 more log lines<"));
}

TEST(TimelineTest, FlagsNeverOverlap) {
  TimelineBuilder builder("crowd", 0, plugged(50));
  for (int second = 0; second < 30; ++second) {
    builder.add({100.0 + second, "log", "HelperImpl default \"setChargeLimit(80) pid=1 a\""});
  }
  // There are thirty poles, but flags only where the rows have room.
  const std::string svg = timelineSVG(builder.finish(1000));
  EXPECT_EQ(count(svg, "opacity=\"0.45\"/>"), 30U);
  EXPECT_EQ(count(svg, ">limit 80 %<"), 3U);
}

TEST(TimelineTest, ARunWithoutLengthHasAPictureToo) {
  const TimelineBuilder builder("nothing happened", 5, plugged(100));
  const std::string svg = timelineSVG(builder.finish(5));
  EXPECT_EQ(defectOf(svg), "");
  EXPECT_THAT(svg, Not(HasSubstr("nan")));
  EXPECT_EQ(timelineSVG({}), "");
}

}  // namespace
}  // namespace virtualmac
