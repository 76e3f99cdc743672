#include "VirtualMac/Scenarios/Scenario.h"

#include <filesystem>
#include <stdexcept>
#include <utility>

#include "VirtualMac/Machine/JournalHead.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Machine/Profile.h"

namespace virtualmac {

JournalHead journalHead(const Scenario& scenario, std::optional<double> speed) {
  JournalOrigin origin;
  if (isProfileFile(scenario.profile))
    origin.profileFile = std::filesystem::absolute(scenario.profile).lexically_normal().string();
  origin.speed = speed;
  origin.seed = scenario.seed;
  origin.savedState = scenario.savedState;
  origin.restartAfterCrash = scenario.restartAfterCrash;
  auto profile = loadProfile(scenario.profile);
  if (!profile) throw std::runtime_error(profile.error());
  // No time has passed on it, while on a stage of real processes some has.
  Journal nowhere([] { return 0.0; });
  Machine machine(*std::move(profile), nowhere);
  constexpr const char* version = "CFBundleShortVersionString";
  machine.bundleInformation.erase(version);
  if (scenario.helperVersion) machine.bundleInformation[version] = *scenario.helperVersion;
  return JournalHead::of(machine, origin);
}

}  // namespace virtualmac
