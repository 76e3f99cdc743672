#include "VirtualMac/Scenarios/Scenario.h"

#include <filesystem>

#include "VirtualMac/Machine/Profile.h"

namespace virtualmac {

JournalOrigin originOf(const Scenario& scenario, std::optional<double> speed) {
  JournalOrigin origin;
  if (isProfileFile(scenario.profile)) {
    origin.profileFile = std::filesystem::absolute(scenario.profile).lexically_normal().string();
  }
  origin.speed = speed;
  origin.seed = scenario.seed;
  origin.savedState = scenario.savedState;
  origin.restartAfterCrash = scenario.restartAfterCrash;
  return origin;
}

}  // namespace virtualmac
