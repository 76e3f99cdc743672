#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Schedule/Random.h"

namespace virtualmac {
namespace {

using testing::IsEmpty;

/// Counts the events of the days; days without any of one kind would prove nothing about it.
struct Seen {
  int discharges = 0;
  int pauses = 0;
  int keepAwakes = 0;
  int sleeps = 0;
  int exits = 0;
  int kills = 0;

  void see(const Journal::Entry& entry) {
    if (entry.text == "CHIE <- 08" || entry.text == "CH0I <- 01") ++discharges;
    if (entry.text == "CHTE <- 01 00 00 00" || entry.text == "CH0B <- 02" ||
        entry.text.starts_with("native limit ")) {
      ++pauses;
    }
    if (entry.text == "SleepDisabled = 1") ++keepAwakes;
    if (entry.kind == "power" && entry.text == "asleep") ++sleeps;
    if (entry.kind == "proc" && contains(entry.text, "exited 0")) ++exits;
    if (entry.kind == "proc" && contains(entry.text, "killed")) ++kills;
  }
};

/// Runs the built helper for one eventful day under one schedule.
std::vector<std::string> eventfulDay(const std::string& profile, std::uint64_t seed, Seen& seen) {
  WorldOptions options;
  options.profile = profile;
  options.seed = seed;
  options.scheduling = Scheduling::Seeded;
  World world(options);
  InvariantSet rules(world);
  world.journal().addListener([&seen](const Journal::Entry& entry) { seen.see(entry); });
  Machine& mac = world.machine();
  Random random(seed);
  world.launchd().job.restartAfterCrash = true;
  std::vector<std::unique_ptr<AppClient>> apps;
  const auto percent = [&random](std::int64_t lowest, std::int64_t highest) {
    return static_cast<std::uint8_t>(random.between(lowest, highest));
  };
  const std::array<std::function<void(AppClient&)>, 16> doings = {
      [&](AppClient& app) { app.setChargeLimit(percent(15, 105)); },
      [&](AppClient& app) { app.setChargeLimit(percent(15, 105)); },
      [&](AppClient& app) { app.clearChargeLimit(); },
      [&](AppClient& app) { app.forceDischarge(random.chance(3, 4)); },
      [&](AppClient& app) { app.forceDischarge(random.chance(3, 4)); },
      [&](AppClient& app) { app.setClamshellKeepAwake(random.chance(2, 3)); },
      [&](AppClient& app) { app.releaseLimitUntilFullThenRestore(); },
      [&](AppClient& app) { app.cancelTopUp(); },
      [&](AppClient& app) { app.resetAllSMCKeys(); },
      [&](AppClient&) { random.chance(1, 2) ? mac.lid.close() : mac.lid.open(); },
      [&](AppClient&) { random.chance(1, 3) ? mac.adapter.disconnect() : mac.adapter.connect(); },
      [&](AppClient&) { mac.battery.setPercent(percent(15, 100)); },
      [&](AppClient&) { random.chance(1, 2) ? mac.power.requestSleep() : mac.power.wake(); },
      [&](AppClient&) {
        if (apps.size() > 1) apps.erase(apps.begin());
      },
      [&](AppClient&) {
        if (random.chance(1, 5)) world.killHelper();
      },
      [&](AppClient&) {
        if (random.chance(1, 8)) world.sendSignal(SIGTERM);
      },
  };
  for (int step = 0; step < 150; ++step) {
    if (apps.empty() || random.chance(1, 12)) apps.push_back(world.connectApp());
    AppClient& app = *apps[random.below(apps.size())];
    doings.at(random.below(doings.size()))(app);
    world.runFor(static_cast<double>(random.below(100)) * (random.chance(1, 4) ? 60 : 0.3));
  }
  mac.lid.open();
  mac.power.wake();
  world.runFor(60);
  rules.finish();
  return rules.violations();
}

TEST(HeldRules, TheHelperBreaksNoneInEventfulDays) {
  Seen seen;
  for (const char* profile : {"newer-keys", "older-pair", "native-only", "no-control"}) {
    for (std::uint64_t seed = 1; seed <= 6; ++seed) {
      EXPECT_THAT(eventfulDay(profile, seed, seen), IsEmpty()) << profile << " seed " << seed;
    }
  }
  EXPECT_GT(seen.discharges, 10);
  EXPECT_GT(seen.pauses, 10);
  EXPECT_GT(seen.keepAwakes, 10);
  EXPECT_GT(seen.sleeps, 10);
  EXPECT_GT(seen.exits, 5);
  EXPECT_GT(seen.kills, 5);
}

}  // namespace
}  // namespace virtualmac
