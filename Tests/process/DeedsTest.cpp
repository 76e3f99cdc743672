#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <utility>

#include "Tests/process/Mac.h"

namespace processtests {

namespace {

struct Deed {
  std::vector<std::string> words;
  std::string kind;
  std::string line;
};

std::size_t countLines(const Mac& mac, const std::string& kind, const std::string& text) {
  const std::vector<JournalLine> lines = mac.journal();
  return static_cast<std::size_t>(std::ranges::count_if(
      lines, [&](const JournalLine& line) { return line.kind == kind && line.text == text; }));
}

}  // namespace

// A journal without causes could not be understood.
TEST(DeedsTest, WhatIsDoneToTheMachineIsALineOfTheJournal) {
  const Mac mac({.speed = 1, .profile = "newer-keys-and-native"});
  const std::string picture = mac.root() + "/picture.svg";
  const std::vector<Deed> deeds{
      {{"fault", "smc-silent-refusal", "CHTE", "on"}, "mac", "fault smc-silent-refusal CHTE on"},
      {{"fault", "smc-silent-refusal", "CHTE", "off"}, "mac", "fault smc-silent-refusal CHTE off"},
      {{"set", "battery", "64"}, "mac", "battery set to 64 %"},
      {{"set", "temperature", "45"}, "mac", "temperature set to 45 C"},
      {{"set", "temperature", "free"}, "mac", "temperature free"},
      {{"set", "ambient", "-5"}, "mac", "ambient set to -5 C"},
      {{"set", "idle-sleep", "15"}, "mac", "idle sleep after 15 min"},
      {{"set", "idle-sleep", "0"}, "mac", "idle sleep off"},
      {{"set", "display", "on"}, "mac", "display connected"},
      {{"set", "display", "off"}, "mac", "display disconnected"},
      {{"set", "adapter", "off"}, "mac", "adapter disconnected"},
      {{"set", "adapter", "on"}, "mac", "adapter connected"},
      {{"set", "adapter", "renegotiate"}, "mac", "adapter renegotiated"},
      {{"set", "native-limit", "80"}, "power", "native limit 80 (by the user)"},
      {{"set", "sleep-disabled", "on"}, "power", "SleepDisabled = 1 (by another program)"},
      {{"set", "lid", "closed"}, "mac", "lid closed"},
      {{"set", "lid", "open"}, "mac", "lid opened"},
      {{"wake"}, "mac", "touched"},
      {{"set", "sleep-disabled", "off"}, "power", "SleepDisabled = 0 (by another program)"},
      {{"sleep"}, "power", "sleep (requested) begins"},
      {{"speed", "2.5"}, "mac", "speed 2.5"},
      {{"timeline", picture}, "mac", "speed 2.5"},
      {{"power-loss"}, "mac", "power lost"},
      {{"reboot"}, "mac", "reboot"},
      {{"down"}, "mac", "going down"}};
  for (const Deed& deed : deeds) {
    mac.tell(deed.words);
    EXPECT_EQ(countLines(mac, deed.kind, deed.line), 1U) << deed.line;
  }
  EXPECT_NE(readFile(picture).find(">fault smc-silent-refusal CHTE on<"), std::string::npos);
}

// An end by a signal gets its own line when it comes; stopping the helper and going on get none.
TEST(DeedsTest, ASignalToTheHelperIsALineOfTheJournal) {
  const Mac mac;
  ASSERT_EQ(mac.app({"ping"}).status, 0);
  const auto helper = mac.helper();
  ASSERT_TRUE(helper);
  const std::string sent = " to helper " + std::to_string(*helper);
  for (const auto& [name, number] :
       {std::pair{"STOP", SIGSTOP}, {"CONT", SIGCONT}, {"TERM", SIGTERM}}) {
    mac.tell({"kill", name});
    EXPECT_EQ(countLines(mac, "proc", "signal " + std::to_string(number) + sent), 1U) << name;
  }
  EXPECT_TRUE(mac.becomes([](const auto& status) { return status.at("helperPid").is_null(); }));
}

}  // namespace processtests
