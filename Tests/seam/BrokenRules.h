#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "BatteryRegistryReader.h"
#include "HelperPersistence.h"
#include "HelperRecords.h"
#include "Platform/Dispatch.h"
#include "Platform/IORegistry.h"
#include "Platform/Platform.h"
#include "Platform/PowerSources.h"
#include "Platform/UnifiedLog.h"
#include "Platform/WallClock.h"
#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

/// A process that breaks rules on purpose, and the rules that watch it.
class BrokenRules : public testing::Test {
 protected:
  World world;
  InvariantSet rules{world};
  korvel::Platform& platform = world.startBareHelper();
  std::shared_ptr<korvel::WorkQueue> queue = platform.dispatch.makeSerialQueue("smc");
  Machine& mac = world.machine();

  void SetUp() override { world.runUntilIdle(); }
  void TearDown() override { world.killHelper(); }

  /// Journals an event as the machine or the helper would.
  void happens(const char* kind, const char* text) {
    world.journal().record(effectFrom(kind, text));
  }
  void logs(const std::string& text) {
    platform.log.emit("com.korvel.app.helper", "HelperImpl", korvel::LogLevel::Default, text);
  }
  void save(const korvel::HelperState& state) {
    mac.disk.writeFile(korvel::HelperPersistence::statePath, korvel::encodeFile(state));
  }
  /// Runs a piece of work on the helper's queue.
  void works(std::function<void()> body) {
    queue->async(std::move(body));
    world.runUntilIdle();
  }
  /// Makes one call per second, because the rules look whenever the helper does something.
  void actsFor(int seconds) {
    for (int second = 0; second < seconds; ++second) {
      world.runFor(1);
      platform.clock.now();
    }
  }
  void readLid() {
    const korvel::ScopedRegistryObject service(
        platform.registry, platform.registry.getMatchingService("IOPMrootDomain"));
    platform.registry.createProperty(service.get(), "AppleClamshellState");
  }
  void readCapacity() { platform.powerSources.release(platform.powerSources.copyInfo()); }
  void saveLimit(std::int64_t limit) {
    korvel::HelperState state;
    state.chargeLimit = limit;
    save(state);
  }
  void startDischarge() { happens("smc", "CHIE <- 08"); }
  void startDischargeAt(double percent) {
    mac.battery.setPercent(percent);
    startDischarge();
  }
  void stopDischarge() { happens("smc", "CHIE <- 00"); }
  /// Closes the lid of a Mac that its display keeps awake.
  void closeLid() {
    mac.lid.connectDisplay();
    mac.lid.close();
  }
  void startArmedDischarge() {
    closeLid();
    logs("clamshell keep-awake ARMED");
    startDischargeAt(50);
  }
  void sleepIsAnnounced() { happens("power", "message 0xe0000280 to pid 501"); }
  void sleepIsAcknowledgedAndBegins() {
    happens("power", "message acknowledged by pid 501");
    happens("power", "asleep");
  }
  std::vector<std::string> found() {
    rules.finish();
    return rules.violations();
  }
};

}  // namespace virtualmac
