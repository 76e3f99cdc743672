#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Base/PropertyValue.h"
#include "Platform/PowerAssertions.h"
#include "Platform/PowerSettings.h"
#include "Platform/UnifiedLog.h"
#include "Platform/WallClock.h"
#include "VirtualMac/Machine/CodeSignatures.h"
#include "VirtualMac/Machine/Disk.h"
#include "VirtualMac/Machine/PowerSourceList.h"
#include "VirtualMac/Machine/PowerUI.h"
#include "VirtualMac/Machine/Registry.h"
#include "VirtualMac/Machine/RootDomain.h"
#include "VirtualMac/Machine/SMC.h"

namespace virtualmac {

class Machine;

/// One process's assertions, which the power manager keeps under its pid.
class AssertionsClient final : public korvel::PowerAssertions {
 public:
  AssertionsClient(PowerManagement& manager, std::int32_t processID)
      : power(manager), pid(processID) {}
  korvel::KernReturn createWithProperties(const korvel::PropertyValue& properties,
                                          std::uint32_t& assertion) override;
  korvel::KernReturn release(std::uint32_t assertion) override;
  void dropAll();

 private:
  PowerManagement& power;
  std::int32_t pid;
  bool ended = false;
};

/// The power settings as a process of root has them.
class SettingsClient final : public korvel::PowerSettings {
 public:
  explicit SettingsClient(PowerManagement& manager) : power(manager) {}
  korvel::KernReturn setSystemPowerSetting(std::string_view key, bool value) override;
  korvel::PropertyValue copySystemPowerSettings() override;

 private:
  PowerManagement& power;
};

class ClockClient final : public korvel::WallClock {
 public:
  explicit ClockClient(const Machine& owner) : machine(owner) {}
  korvel::Date now() override;

 private:
  const Machine& machine;
};

/// One started helper as the model sees it: an implementation of each header of the seam that a
/// machine answers, and everything that dies with the process (names, connections, snapshots,
/// registrations, assertions, descriptors, umask). The machine outlives it. Once it has ended it
/// holds nothing, and creating an assertion fails; the gate keeps its other calls away.
///
/// Fault model: it may end between any two calls. Everything it holds is then dropped, as the
/// kernel does it, but never a value in the hardware.
class HelperProcess {
 public:
  HelperProcess(Machine& owner, std::int32_t processID);
  HelperProcess(const HelperProcess&) = delete;
  HelperProcess& operator=(const HelperProcess&) = delete;

  [[nodiscard]] std::int32_t pid() const { return id; }
  [[nodiscard]] bool isAlive() const { return alive; }

  /// Process: [NSBundle mainBundle].
  [[nodiscard]] std::optional<std::string> bundleExecutablePath() const;
  [[nodiscard]] korvel::PropertyValue bundleInfo(std::string_view key) const;

  /// Names and objects of every sort that it holds now, descriptors included. A helper that gave
  /// everything back still holds those that live as long as it does.
  [[nodiscard]] std::size_t liveObjects() const;

 private:
  Machine& machine;
  std::int32_t id;
  bool alive = true;

 public:
  RegistryClient registry;
  SMCClient smc;
  PowerSourcesClient powerSources;
  AssertionsClient assertions;
  SettingsClient powerSettings;
  RootDomainClient rootDomain;
  SmartChargeClient smartCharge;
  FilesClient files;
  ClockClient clock;
  CodeSigningClient codeSigning;

 private:
  friend class Machine;
  void end();
};

}  // namespace virtualmac
