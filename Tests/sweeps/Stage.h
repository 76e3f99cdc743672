#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "HelperRecords.h"
#include "VirtualMac/InProcess/AppClient.h"
#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"

namespace sweeps {

class Stage;

/// Out of a stage's operations when the helper ended although nobody asked it to.
struct HelperDied : std::runtime_error {
  HelperDied() : std::runtime_error("the helper died") {}
};

/// A short course of events around one helper: the same calls in the same order every time.
struct Story {
  std::string name;
  std::string profile = "newer-keys";
  /// Sets the machine up before the helper starts.
  std::function<void(virtualmac::Machine&)> prepare;
  /// Everything after the start. Needs no helper that obeys: under faults it goes on as well as it
  /// can, and `Stage::expect` counts only where no fault is.
  std::function<void(Stage&)> play;
};

/// Where a story is played: a world with its helper, its clients, and what the story found unmet.
///
/// The helper starts before the story. When it dies without having been asked to, the story ends at
/// that point, by an exception that `play` catches: a sweep then has the world as the death left
/// it.
class Stage {
 public:
  explicit Stage(const Story& story, std::uint64_t seed = 1,
                 virtualmac::Scheduling scheduling = virtualmac::Scheduling::Fifo);
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  /// Starts the helper and plays the story. False: the helper died on the way.
  bool play();

  // For stories
  virtualmac::Machine& mac() { return world.machine(); }
  /// A further client connects; its connection is settled on return.
  virtualmac::AppClient& join();
  /// The client that joined last.
  virtualmac::AppClient& app() { return *clients.back(); }
  /// Waits for the answer. True: it is yes.
  bool ask(const virtualmac::AppCallRef& call);
  /// Asks for a limit and remembers it as the last one wanted.
  bool setLimit(std::uint8_t percent);
  void run(double seconds);
  /// Runs until it holds; within `limitSeconds`, or else `what` is unmet.
  void until(const std::function<bool()>& reached, double limitSeconds, std::string_view what);
  void expect(bool holds, std::string_view what);
  /// From here on the helper may exit by itself.
  void expectExit() { exitExpected = true; }
  /// Asks for sleep, sleeps, wakes.
  void sleepAndWake(double seconds);
  /// The record as the helper tells it; none while it cannot.
  std::optional<korvel::HelperState> state() { return app().state(); }

  // For sweeps
  [[nodiscard]] const std::vector<std::string>& unmetExpectations() const { return unmet; }
  [[nodiscard]] std::optional<std::uint8_t> lastLimitWanted() const { return wanted; }
  [[nodiscard]] bool exited() const { return exitExpected && world.exitStatus().has_value(); }

  virtualmac::World world;
  /// The rules that every run obeys, whatever fails.
  virtualmac::InvariantSet invariants{world};
  /// SleepDisabled was on at the start, and no helper's record claims it.
  bool sleepDisabledByOther = false;
  /// The same, and the record at the start claims it.
  bool sleepDisabledByEarlierHelper = false;
  std::vector<std::unique_ptr<virtualmac::AppClient>> clients;

 private:
  void leaveWhenDead();

  const Story& story;
  std::vector<std::string> unmet;
  std::optional<std::uint8_t> wanted;
  bool exitExpected = false;
};

/// Every story, in a fixed order.
const std::vector<Story>& stories();
/// Throws when there is no story of that name.
const Story& storyNamed(std::string_view name);

}  // namespace sweeps
