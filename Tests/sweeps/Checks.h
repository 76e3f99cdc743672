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

/// These checks ask the machine what must hold after a fault.
namespace sweeps {

/// Collects the problems of one case; empty when there are none.
class Findings {
 public:
  /// Returns `holds`; when it is false, notes `what`.
  bool expect(bool holds, std::string_view what);
  void note(std::string what) { noted.push_back(std::move(what)); }
  [[nodiscard]] bool empty() const { return noted.empty(); }
  [[nodiscard]] std::string text() const;  ///< One problem per line.

 private:
  std::vector<std::string> noted;
};

/// Reads the bytes of state.json; none: there is no such file.
std::optional<std::string> stateFile(const virtualmac::Machine& mac);

/// The effects of a helper that outlive its process.
struct Leftovers {
  std::optional<std::string> file;
  std::optional<korvel::HelperState> record;
  bool chargingPaused = false;  ///< By an SMC key or by a native limit.
  bool inflowInhibited = false;
  bool sleepDisabled = false;
};
Leftovers leftoversOn(virtualmac::World& world);

/// Returns whether charging is held back, by whichever control the machine has.
bool chargingPaused(virtualmac::Machine& mac);

/// Returns whether the gate suits a limit at the battery's present charge: at the limit and above,
/// charging is paused (or the native limit set, where that is the gate); below the band it is not.
/// Always true inside the band and without the adapter, where the helper leaves the gate alone.
bool gateIsRight(virtualmac::Machine& mac, std::int64_t limit, std::int64_t band = 5);

/// Lets the helper see and act again: readings work, the adapter is in, the lid is open and the Mac
/// awake.
void healMachine(virtualmac::Machine& mac);

/// Returns what a helper should report of this machine when every probe works.
korvel::HelperCapabilities trueCapabilities(virtualmac::Machine& mac);

/// Checks that state.json is absent or one complete record, private, in a private directory.
void checkStateFile(Findings& findings, const virtualmac::Machine& mac);

/// Checks that every assertion belongs to a living process.
void checkAssertions(Findings& findings, virtualmac::World& world);

/// Checks that an idle helper holds no descriptor, no other umask and only its permanent objects.
void checkIdleProcess(Findings& findings, virtualmac::World& world, bool descriptorsToo = true);

/// Checks the rules of every run, and that no forbidden key was written.
void checkConduct(Findings& findings, virtualmac::World& world,
                  const virtualmac::InvariantSet& invariants);

/// Runs for five seconds and a tick, and again when the battery's percentage has just moved.
/// Returns false when the gate is wrong even then.
bool gateSettles(virtualmac::World& world, const std::vector<std::int64_t>& limits);

}  // namespace sweeps
