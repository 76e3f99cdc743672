#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Tests/behaviour/Bench.h"
#include "VirtualMac/Schedule/Lane.h"
#include "VirtualMac/Schedule/Observer.h"

namespace korvel::test {

/// Records in one order what happens from now on: the journal's lines of some kinds
/// (`smc CHIE <- 00`), and the helper's timers, which no line tells of.
class Steps final : public virtualmac::ScheduleObserver {
 public:
  Steps(Bench& watched, std::string_view kinds) : world(watched.world) {
    world.observers().add(*this);
    // The journal keeps its listeners; the lines may go on after this object.
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
  /// For a double of the test, which tells what it is asked for.
  void note(std::string step) { noted->push_back(std::move(step)); }

  void timerStarted(const virtualmac::TimerFacts& timer) override {
    note("starts " + nameOf(timer));
  }
  void timerCancelled(const virtualmac::TimerFacts& timer) override {
    note("cancels " + nameOf(timer));
  }

 private:
  /// By how it is scheduled, which tells the helper's three apart.
  static std::string nameOf(const virtualmac::TimerFacts& timer) {
    if (!timer.intervalSeconds) return "the grace period";
    return timer.delaySeconds == 0 ? "enforcement" : "the restore loop";
  }

  World& world;
  std::shared_ptr<Lines> noted = std::make_shared<Lines>();
};

}  // namespace korvel::test
