#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "HelperRecords.h"
#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"

/// What must hold after something went wrong, as plain questions to the machine.
namespace sweeps {

/// What one case found wrong; empty when nothing was.
class Findings {
 public:
  /// True: it holds; else `what` is noted.
  bool expect(bool holds, std::string_view what);
  void note(std::string what) { noted.push_back(std::move(what)); }
  [[nodiscard]] bool empty() const { return noted.empty(); }
  [[nodiscard]] std::string text() const;  ///< One line each.

 private:
  std::vector<std::string> noted;
};

/// The bytes of state.json; none: there is no such file.
std::optional<std::string> stateFile(const virtualmac::Machine& mac);

/// What of a helper's doing outlives its process.
struct Leftovers {
  std::optional<std::string> file;
  std::optional<korvel::HelperState> record;
  bool chargingPaused = false;  ///< By an SMC key or by a native limit.
  bool inflowInhibited = false;
  bool sleepDisabled = false;
};
Leftovers leftoversOn(virtualmac::World& world);

/// Charging is held back, by whichever control the machine has.
bool chargingPaused(virtualmac::Machine& mac);

/// Whether the gate stands as a limit wants it with the battery's present charge: at the limit and
/// above, charging is paused (the native limit set, where that is the gate); below the band, it is
/// not. True inside the band, where any gate is right, and without the adapter, where it is left
/// alone.
bool gateIsRight(virtualmac::Machine& mac, std::int64_t limit, std::int64_t band = 5);

/// Ends what keeps the helper from seeing and acting: readings work, the adapter is in, the lid is
/// open, the Mac awake.
void healMachine(virtualmac::Machine& mac);

/// What a helper that could ask everything would report of this machine.
korvel::HelperCapabilities trueCapabilities(virtualmac::Machine& mac);

/// state.json is absent or one complete record, private to its owner, in a private directory.
void checkStateFile(Findings& findings, const virtualmac::Machine& mac);

/// No assertion without a living owner.
void checkAssertions(Findings& findings, virtualmac::World& world);

/// An idle helper holds no descriptor, no foreign umask, and no object but those for life.
void checkIdleProcess(Findings& findings, virtualmac::World& world, bool descriptorsToo = true);

/// No rule broken that holds in every run, no write to a key that must never be written.
void checkConduct(Findings& findings, virtualmac::World& world,
                  const virtualmac::InvariantSet& invariants);

/// Runs for five seconds and a tick, and once more when the battery's percentage moved just now.
/// False: the gate is not right even then.
bool gateSettles(virtualmac::World& world, const std::vector<std::int64_t>& limits);

}  // namespace sweeps
