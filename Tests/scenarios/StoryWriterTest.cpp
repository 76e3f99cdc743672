#include "VirtualMac/Scenarios/StoryWriter.h"

#include <gtest/gtest.h>

#include "VirtualMac/Scenarios/Phrase.h"
#include "VirtualMac/Scenarios/Scenario.h"

namespace virtualmac {
namespace {

TEST(StoryWriterTest, TimesAreReadBackAsTheyWere) {
  EXPECT_EQ(momentText(0), "00:00:00");
  EXPECT_EQ(momentText(2530), "00:42:10");
  EXPECT_EQ(momentText(93605.25), "1d 02:00:05.25");
  EXPECT_EQ(durationText(0), "0s");
  EXPECT_EQ(durationText(5400), "1h30m");
  EXPECT_EQ(durationText(62.5), "1m2.5s");
  for (const double seconds : {0.0, 0.001, 59.999, 60.0, 3599.0, 86400.0, 1234567.89}) {
    EXPECT_DOUBLE_EQ(momentFrom(momentText(seconds)).value_or(-1), seconds);
    EXPECT_NEAR(durationFrom(durationText(seconds)).value_or(-1), seconds, 1e-9);
  }
}

TEST(StoryWriterTest, AnyTextIsReadBackAsItWas) {
  for (const std::string& text :
       {std::string("plain"), std::string("a: b"), std::string("it's"), std::string("#1"),
        std::string("\"quoted\""), std::string("null"), std::string("- a"), std::string("a #b"),
        std::string("{\n  \"a\" : 1\n}\n"), std::string("no end\nof line"), std::string(" a\nb\n"),
        std::string("a\n\nb\n"), std::string("tab\tand\x01more"), std::string("Grüße — ≤")}) {
    WrittenStory story{.name = "A",
                       .description = "B",
                       .profile = "newer-keys",
                       .seed = std::nullopt,
                       .start = {{"saved-state", text}},
                       .steps = {},
                       .end = 10};
    story.steps.push_back({.time = 1, .actions = {"lid closed"}});
    const auto read = parseScenario(story.text(), "a.yaml");
    ASSERT_TRUE(read) << read.error() << story.text();
    EXPECT_EQ(read->savedState, text) << story.text();
  }
}

TEST(StoryWriterTest, AStoryHasTheLayoutOfOneThatAPersonWrites) {
  WrittenStory story{
      .name = "A",
      .description = "B: c",
      .profile = "newer-keys",
      .seed = 7,
      .start = {{"faults", "disk-full"}, {"battery", "80"}, {"faults", "lid-unknown"}},
      .steps = {},
      .end = 60};
  story.steps.push_back({.time = 10,
                         .actions = {"connect", "set-limit 80"},
                         .reply = "none",
                         .within = {"5s gate paused", "5s log \"a, b\""}});
  EXPECT_EQ(story.text(), R"(# yaml-language-server: $schema=scenario.schema.json
name: A
description: 'B: c'
profile: newer-keys
seed: 7
start:
  faults:
    - disk-full
    - lid-unknown
  battery: 80
steps:
  - at: 00:00:10
    do: [connect, set-limit 80]
    reply: none
    within:
      - 5s gate paused
      - 5s log "a, b"
ends: 00:01:00
)");
  EXPECT_TRUE(parseScenario(story.text(), "a.yaml"));
}

}  // namespace
}  // namespace virtualmac
