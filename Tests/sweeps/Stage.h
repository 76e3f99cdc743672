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

/// Thrown by a stage's operations when the helper ended without being asked to.
struct HelperDied : std::runtime_error {
  HelperDied() : std::runtime_error("the helper died") {}
};

/// A short sequence of events around one helper, with the same calls in the same order every time.
struct Story {
  std::string name;
  std::string profile = "newer-keys";
  /// Sets the machine up before the helper starts.
  std::function<void(virtualmac::Machine&)> prepare;
  /// Plays everything after the start. It must not rely on the helper: under faults it goes on as
  /// well as it can, and `Stage::expect` counts only without faults.
  std::function<void(Stage&)> play;
};

/// Plays a story: a world with its helper and clients, and the expectations that the story found
/// unmet.
///
/// The helper starts before the story. When it dies without having been asked to, an exception ends
/// the story at that point; `play` catches it, so a sweep finds the world as the death left it.
class Stage {
 public:
  explicit Stage(const Story& story, std::uint64_t seed = 1,
                 virtualmac::Scheduling scheduling = virtualmac::Scheduling::Fifo);
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  /// Starts the helper and plays the story. Returns false when the helper died.
  bool play();

  // For stories
  virtualmac::Machine& mac() { return world.machine(); }
  /// Connects another client; the connection is settled on return.
  virtualmac::AppClient& join();
  /// Returns the client that joined last.
  virtualmac::AppClient& app() { return *clients.back(); }
  /// Waits for the answer; returns true when it is yes.
  bool ask(const virtualmac::AppCallRef& call);
  /// Asks for a limit and remembers it as the last one wanted.
  bool setLimit(std::uint8_t percent);
  void run(double seconds);
  /// Runs until `reached` holds; after `limitSeconds`, notes `what` as unmet.
  void until(const std::function<bool()>& reached, double limitSeconds, std::string_view what);
  void expect(bool holds, std::string_view what);
  /// Allows the helper to exit by itself from now on.
  void expectExit() { exitExpected = true; }
  /// Puts the Mac to sleep for this time and wakes it.
  void sleepAndWake(double seconds);
  /// Asks the helper for its record; none while it cannot answer.
  std::optional<korvel::HelperState> state() { return app().state(); }

  // For sweeps
  [[nodiscard]] const std::vector<std::string>& unmetExpectations() const { return unmet; }
  [[nodiscard]] std::optional<std::uint8_t> lastLimitWanted() const { return wanted; }
  [[nodiscard]] bool exited() const { return exitExpected && world.exitStatus().has_value(); }

  virtualmac::World world;
  /// The rules that every run obeys, whatever fails.
  virtualmac::InvariantSet invariants{world};
  /// True when SleepDisabled was on at the start and no record claimed it.
  bool sleepDisabledByOther = false;
  /// True when SleepDisabled was on at the start and the record claimed it.
  bool sleepDisabledByEarlierHelper = false;
  std::vector<std::unique_ptr<virtualmac::AppClient>> clients;

 private:
  void leaveWhenDead();

  const Story& story;
  std::vector<std::string> unmet;
  std::optional<std::uint8_t> wanted;
  bool exitExpected = false;
};

/// Returns every story, in a fixed order.
const std::vector<Story>& stories();
/// Returns the story; throws when there is none of that name.
const Story& storyNamed(std::string_view name);

}  // namespace sweeps
