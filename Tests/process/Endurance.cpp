#include "Tests/process/Endurance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <optional>
#include <span>
#include <vector>

#include "Tests/process/Mac.h"

namespace processtests {

namespace {

constexpr double usualSpeed = 600;
constexpr int limit = 80;

// The address sanitizer delays the reuse of freed memory, and both sanitizers shadow all memory
// ever touched, so a process's size says little about leaks. The sanitizer reports leaks itself.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool underSanitizer = true;
#elif defined(__has_feature)
constexpr bool underSanitizer = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool underSanitizer = false;
#endif
constexpr long allowedGrowthKilobytes = underSanitizer ? 64 * 1024 : 1024;

struct Facts {
  ProcessFacts helper;
  ProcessFacts machine;
};

std::optional<Facts> factsNow(const Mac& mac, pid_t helper) {
  const auto ofHelper = factsOf(helper);
  const auto ofMachine = factsOf(mac.machinePid());
  if (!ofHelper || !ofMachine) return std::nullopt;
  return Facts{*ofHelper, *ofMachine};
}

/// Takes the minimum over the samples, because a closing connection or a page briefly in use is no
/// growth.
Facts leastOf(std::span<const Facts> samples) {
  const auto lower = [](ProcessFacts& least, const ProcessFacts& other) {
    least.residentKilobytes = std::min(least.residentKilobytes, other.residentKilobytes);
    least.descriptors = std::min(least.descriptors, other.descriptors);
    least.threads = std::min(least.threads, other.threads);
  };
  Facts least = samples.front();
  for (const Facts& each : samples) {
    lower(least.helper, each.helper);
    lower(least.machine, each.machine);
  }
  return least;
}

void expectNoGrowth(const ProcessFacts& early, const ProcessFacts& late, const char* whose) {
  SCOPED_TRACE(whose);
  std::cout << whose << ": " << early.residentKilobytes << " to " << late.residentKilobytes
            << " kB, " << early.descriptors << " to " << late.descriptors << " descriptors, "
            << early.threads << " to " << late.threads << " threads\n";
  EXPECT_LE(late.residentKilobytes, early.residentKilobytes + allowedGrowthKilobytes);
  EXPECT_EQ(late.descriptors, early.descriptors);
  EXPECT_EQ(late.threads, early.threads);
}

void expectNoGrowth(const std::vector<Facts>& samples) {
  const std::size_t part = std::max<std::size_t>(3, samples.size() / 4);
  ASSERT_GE(samples.size(), 2 * part);
  const std::span all(samples);
  const Facts early = leastOf(all.first(part));
  const Facts late = leastOf(all.last(part));
  expectNoGrowth(early.helper, late.helper, "helper");
  expectNoGrowth(early.machine, late.machine, "machine");
}

/// Reads from the journal the highest percentage of each stretch on the adapter that reached the
/// limit.
std::vector<int> highestOnTheAdapter(const Mac& mac) {
  std::vector<int> all;
  bool plugged = true;
  int highest = 0;
  const auto endStretch = [&] {
    if (plugged && highest >= limit) all.push_back(highest);
    highest = 0;
  };
  for (const JournalLine& line : mac.journal()) {
    if (line.text.starts_with("adapter ")) {
      endStretch();
      plugged = line.text.starts_with("adapter connected");
    }
    // A level is either reached by the battery or set.
    for (const std::string start : {"battery ", "battery set to "}) {
      const std::string level = line.text.substr(std::min(start.size(), line.text.size()));
      if (line.text.starts_with(start) && level.find_first_of("0123456789") == 0)
        highest = std::max(highest, std::stoi(level));
    }
  }
  endStretch();
  return all;
}

/// The machine's time also runs while its helper has no processor; at the usual speed a tenth of a
/// second is most of a percent. So the median stretch is judged here, and a slow last one below.
void expectTheLimitHeld(const Mac& mac) {
  std::vector<int> highest = highestOnTheAdapter(mac);
  ASSERT_FALSE(highest.empty()) << "the limit was never reached";
  std::ranges::sort(highest);
  std::cout << highest.size() << " stretches up to the limit, highest " << highest.back()
            << " %, usually " << highest[highest.size() / 2] << " %\n";
  EXPECT_LE(highest[highest.size() / 2], limit + 1);
}

void expectTheHelperStillGates(const Mac& mac) {
  const auto inhibited = [](bool wanted) {
    return
        [wanted](const nlohmann::json& status) { return status.at("chargingInhibited") == wanted; };
  };
  mac.tell({"speed", "10"});
  mac.tell({"set", "adapter", "on"});
  for (const bool above : {false, true, false}) {
    mac.tell({"set", "battery", above ? "90" : "60"});
    EXPECT_TRUE(mac.becomes(inhibited(above)));
  }
}

}  // namespace

void endure(double virtualHours) {
  // A helper that is slow to look must have the time for it, though not for each of two hours.
  const double speed = usualSpeed / std::min(slowness(), 4.0);
  const Mac mac;
  mac.tell({"set", "battery", "72"});
  const Background application("korvel-app", {"--root", mac.root(), "watch", "--every", "0.1"});
  ASSERT_EQ(mac.app({"set-limit", std::to_string(limit)}).status, 0);
  const auto pid = mac.helper();
  ASSERT_TRUE(pid);
  // Its start takes real time, in which the battery shall not reach the limit.
  mac.tell({"speed", std::to_string(speed)});
  const double end = clockNow() + virtualHours * 3600 / speed;

  // One hour warms up: allocators and pools take what they need in the first rounds.
  pauseFor(std::min(1.0, virtualHours / 2) * 3600 / speed);
  std::vector<Facts> samples;
  bool plugged = true;
  while (clockNow() < end || samples.size() < 6) {
    // The adapter is out for about ten minutes at a time.
    plugged = !plugged;
    mac.tell({"set", "adapter", plugged ? "on" : "off"});
    pauseFor(1);
    const auto facts = factsNow(mac, *pid);
    ASSERT_TRUE(facts) << "one of them is gone";
    samples.push_back(*facts);
  }

  EXPECT_EQ(mac.helper(), pid);
  EXPECT_EQ(mac.status().at("helperStarts"), 1);
  EXPECT_GE(mac.status().at("seconds").get<double>(), virtualHours * 3600);
  EXPECT_EQ(mac.status().at("forbiddenWrites"), 0);
  expectNoGrowth(samples);
  expectTheLimitHeld(mac);
  expectTheHelperStillGates(mac);
}

}  // namespace processtests
