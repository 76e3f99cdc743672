#include "Tests/process/Endurance.h"

#include <gtest/gtest.h>

#include "Tests/process/Mac.h"

namespace processtests {

namespace {

constexpr double speed = 600;
constexpr int limit = 80;

struct Facts {
  ProcessFacts helper;
  ProcessFacts machine;
};

Facts factsNow(const Mac& mac) {
  const pid_t pid = mac.helper().value_or(0);
  pauseFor(0.2);  // The connection of the question before is closed by now.
  const auto helper = factsOf(pid);
  const auto machine = factsOf(mac.machinePid());
  EXPECT_TRUE(helper && machine);
  return {helper.value_or(ProcessFacts{}), machine.value_or(ProcessFacts{})};
}

void expectNoGrowth(const ProcessFacts& early, const ProcessFacts& late, const char* whose) {
  SCOPED_TRACE(whose);
  EXPECT_LE(late.residentKilobytes, early.residentKilobytes + 1024);
  EXPECT_EQ(late.descriptors, early.descriptors);
  EXPECT_EQ(late.threads, early.threads);
}

/// The highest percentage that the machine's own journal tells.
int highestPercent(const Mac& mac) {
  int highest = 0;
  for (const JournalLine& line : mac.journal())
    if (line.text.starts_with("battery "))
      highest = std::max(highest, std::stoi(line.text.substr(8)));
  return highest;
}

}  // namespace

void endure(double virtualHours) {
  const Mac mac({.speed = speed});
  mac.tell({"set", "battery", "72"});
  const Background application("korvel-app", {"--root", mac.root(), "watch", "--every", "0.1"});
  ASSERT_EQ(mac.app({"set-limit", std::to_string(limit)}).status, 0);
  const auto pid = mac.helper();
  const double end = clockNow() + virtualHours * 3600 / speed;

  // An hour to warm up: allocators and pools take what they need in the first rounds.
  pauseFor(std::min(1.0, virtualHours / 2) * 3600 / speed);
  const Facts early = factsNow(mac);
  bool plugged = true;
  while (clockNow() < end) {
    pauseFor(std::min(1.0, std::max(0.0, end - clockNow())));
    // Unplugged for ten minutes in every half hour or so.
    plugged = !plugged;
    mac.tell({"set", "adapter", plugged ? "on" : "off"});
  }
  mac.tell({"set", "adapter", "on"});
  const Facts late = factsNow(mac);

  EXPECT_EQ(mac.helper(), pid);
  EXPECT_EQ(mac.status().at("helperStarts"), 1);
  EXPECT_GE(mac.status().at("seconds").get<double>(), virtualHours * 3600);
  EXPECT_LE(highestPercent(mac), limit + 1);
  EXPECT_GE(highestPercent(mac), limit - 1);
  EXPECT_EQ(mac.status().at("forbiddenWrites"), 0);
  expectNoGrowth(early.helper, late.helper, "helper");
  expectNoGrowth(early.machine, late.machine, "machine");
}

}  // namespace processtests
