#include "Tests/swarm/SwarmPlan.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "Tests/swarm/Deeds.h"
#include "VirtualMac/Schedule/Random.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace swarm {

namespace {

using virtualmac::FailureKind;
using virtualmac::Random;
using virtualmac::SeamCall;

constexpr std::array profiles{"newer-keys",    "newer-keys",     "older-pair",
                              "native-only",   "no-control",     "two-banks",
                              "both-families", "mixed-families", "newer-keys-and-native"};

constexpr std::array<std::string_view, 52> machineFaults{
    "smc-missing",
    "smc-open-refused",
    "smc-stale",
    "smc-reopen-fails",
    "smc-key-missing CHTE",
    "smc-key-missing CHIE",
    "smc-key-missing CH0B",
    "smc-result CHTE 132",
    "smc-result CHIE 1",
    "smc-result CH0C 130",
    "smc-write-result CHTE 130",
    "smc-write-result CHIE 132",
    "smc-write-result CH0B 1",
    "smc-write-result CH0J 1",
    "smc-silent-refusal CHTE",
    "smc-silent-refusal CHIE",
    "smc-silent-refusal CH0C",
    "smc-junk CHTE 0 0 7",
    "smc-size CHTE 2",
    "smc-size CHIE 0",
    "smc-latency 0.15",
    "smc-latency 2",
    "battery-unreadable",
    "battery-mistyped",
    "power-sources-missing",
    "power-sources-empty",
    "temperature-unreadable",
    "temperature-override 47",
    "adapter-unknown",
    "adapter-hidden",
    "lid-unknown",
    "battery-service-missing",
    "root-domain-missing",
    "registry-unreadable",
    "powerui-error no",
    "powerui-refuses",
    "powerui-keeps-limit",
    "settings-refused",
    "settings-unreadable",
    "assertion-refused",
    "assertion-secondary-refused",
    "assertion-release-refused",
    "power-registration-fails",
    "disk-full",
    "disk-readonly",
    "disk-rename-fails",
    "disk-short-writes 3",
    "disk-call-fails fsync 5",
    "disk-call-fails readFile 5",
    "connection-breaks handler",
    "connection-breaks resume",
    "connection-breaks after",
};

/// Returns whether the call may fail now and then. A failed close would keep its descriptor.
bool mayFail(SeamCall call) {
  const FailureKind kind = virtualmac::describe(call).kind;
  return kind != FailureKind::Sure && kind != FailureKind::Release && call != SeamCall::fileClose;
}

}  // namespace

bool SwarmPlan::has(std::string_view deed) const {
  return std::ranges::find(deeds, deed) != deeds.end();
}

bool SwarmPlan::hasFault(std::string_view beginning) const {
  const auto begins = [beginning](const std::string& each) { return each.starts_with(beginning); };
  return std::ranges::any_of(machineFaults, begins) || std::ranges::any_of(callFaults, begins);
}

std::string SwarmPlan::text() const {
  std::string line = "seed " + std::to_string(seed) + ", " + profile + ", " +
                     std::to_string(steps) + " steps" +
                     (restartAfterCrash ? ", restarted after crashes" : "") + "; deeds:";
  for (const std::string& deed : deeds) line += " " + deed;
  line += "; faults:";
  for (const std::string& fault : machineFaults) line += " [" + fault + "]";
  line += "; failing calls:";
  for (const std::string& call : callFaults) line += " " + call;
  return line;
}

SwarmPlan planFor(std::uint64_t seed) {
  Random random(seed);
  SwarmPlan plan;
  plan.seed = seed;
  plan.profile = profiles.at(random.below(profiles.size()));
  plan.steps = static_cast<std::uint64_t>(random.between(40, 250));
  plan.restartAfterCrash = random.chance(1, 2);
  // A third of the runs has no faults, so nothing excuses what the helper does there.
  const std::uint64_t share = random.below(3);
  for (const std::string_view fault : machineFaults) {
    if (random.chance(share, 6)) plan.machineFaults.emplace_back(fault);
  }
  const bool callsFail = share > 0 && random.chance(1, 2);
  for (std::size_t i = 0; i < virtualmac::seamCallCount; ++i) {
    const auto call = static_cast<SeamCall>(i);
    if (callsFail && mayFail(call) && random.chance(1, 8)) {
      plan.callFaults.emplace_back(virtualmac::describe(call).id);
    }
  }
  for (const Deed& deed : deeds()) {
    if (random.chance(2, 3)) plan.deeds.emplace_back(deed.name);
  }
  return plan;
}

}  // namespace swarm
