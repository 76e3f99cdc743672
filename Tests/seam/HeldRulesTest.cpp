#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
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
  for (int step = 0; step < 150; ++step) {
    if (apps.empty() || random.chance(1, 12)) apps.push_back(world.connectApp());
    AppClient& app = *apps[random.below(apps.size())];
    switch (random.below(16)) {
      case 0:
      case 1:
        app.setChargeLimit(static_cast<std::uint8_t>(random.between(15, 105)));
        break;
      case 2:
        app.clearChargeLimit();
        break;
      case 3:
      case 4:
        app.forceDischarge(random.chance(3, 4));
        break;
      case 5:
        app.setClamshellKeepAwake(random.chance(2, 3));
        break;
      case 6:
        app.releaseLimitUntilFullThenRestore();
        break;
      case 7:
        app.cancelTopUp();
        break;
      case 8:
        app.resetAllSMCKeys();
        break;
      case 9:
        random.chance(1, 2) ? mac.lid.close() : mac.lid.open();
        break;
      case 10:
        random.chance(1, 3) ? mac.adapter.disconnect() : mac.adapter.connect();
        break;
      case 11:
        mac.battery.setPercent(static_cast<double>(random.between(15, 100)));
        break;
      case 12:
        random.chance(1, 2) ? mac.power.requestSleep() : mac.power.wake();
        break;
      case 13:
        if (apps.size() > 1) apps.erase(apps.begin());
        break;
      case 14:
        if (random.chance(1, 5)) world.killHelper();
        break;
      default:
        if (random.chance(1, 8)) world.sendSignal(SIGTERM);
        break;
    }
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
