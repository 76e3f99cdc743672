#pragma once

#include <memory>
#include <utility>

#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"

namespace benchmarks {

inline constexpr double tickSeconds = 5;

/// A Mac above its limit of 80 %, on the adapter, with charging paused. Ticks stay steady while the
/// battery is refilled now and then, because it drains slowly even so.
class SteadyMac {
 public:
  explicit SteadyMac(bool watched = false, virtualmac::WorldOptions options = {})
      : world(std::move(options)) {
    if (watched) rules = std::make_unique<virtualmac::InvariantSet>(world);
    fillUp();
    world.machine().adapter.connect();
    app = world.connectApp();
    app->await(app->setChargeLimit(80));
    world.runFor(60);
  }

  void fillUp() { world.machine().battery.setPercent(95); }
  /// A thousand at a time, as a simulation of days does.
  void runThousandTicks() {
    fillUp();
    world.runFor(tickSeconds * 1000);
  }

  virtualmac::World world;
  std::unique_ptr<virtualmac::InvariantSet> rules;  ///< Gone before the world.
  std::unique_ptr<virtualmac::AppClient> app;
};

}  // namespace benchmarks
