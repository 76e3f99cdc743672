#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Tests/behaviour/Bench.h"
#include "VirtualMac/Schedule/Lane.h"
#include "VirtualMac/Schedule/Observer.h"

namespace korvel::test {

/// Records in one order, from now on, the journal's lines of some kinds (`smc CHIE <- 00`) and the
/// helper's timers, which the journal does not show.
class Steps final : public virtualmac::ScheduleObserver {
 public:
  Steps(Bench& watched, std::string_view kinds) : world(watched.world) {
    world.observers().add(*this);
    // The journal never drops a listener, so the lines are shared and outlive this object.
    world.journal().addListener(
        [into = noted, wanted = " " + std::string(kinds) + " "](const auto& entry) {
          if (!wanted.contains(" " + entry.kind + " ")) return;
          into->push_back(entry.kind + " " + entry.text);
        });
  }
  ~Steps() override { world.observers().remove(*this); }
  Steps(const Steps&) = delete;
  Steps& operator=(const Steps&) = delete;

  [[nodiscard]] const Lines& lines() const { return *noted; }
  /// Adds a step that a test double has observed.
  void note(std::string step) { noted->push_back(std::move(step)); }

  void timerStarted(const virtualmac::TimerFacts& timer) override {
    note("starts " + nameOf(timer));
  }
  void timerCancelled(const virtualmac::TimerFacts& timer) override {
    note("cancels " + nameOf(timer));
  }

 private:
  /// Tells the helper's three timers apart by their schedule.
  static std::string nameOf(const virtualmac::TimerFacts& timer) {
    if (!timer.intervalSeconds) return "the grace period";
    return timer.delaySeconds == 0 ? "enforcement" : "the restore loop";
  }

  World& world;
  std::shared_ptr<Lines> noted = std::make_shared<Lines>();
};

}  // namespace korvel::test
