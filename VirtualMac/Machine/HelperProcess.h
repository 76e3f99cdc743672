#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Base/PropertyValue.h"
#include "Platform/KernelTypes.h"
#include "VirtualMac/Machine/CodeSignatures.h"
#include "VirtualMac/Machine/Disk.h"
#include "VirtualMac/Machine/PowerSourceList.h"
#include "VirtualMac/Machine/PowerUI.h"
#include "VirtualMac/Machine/Registry.h"
#include "VirtualMac/Machine/RootDomain.h"
#include "VirtualMac/Machine/SMC.h"

namespace virtualmac {

class Machine;

/// Everything that dies with one started helper: names, connections, snapshots, registrations,
/// descriptors, umask. (Assertions die with it too; they are kept by the power manager under its
/// pid.) Its members answer the seam's calls one to one. The machine outlives it; once it has ended
/// it holds nothing, and creates no assertion any more. Nobody makes its other calls then.
///
/// Fault model: it may end between any two calls, and everything it holds is then dropped as the
/// kernel does: connections, assertions, registrations, descriptors, never a value in the hardware.
class HelperProcess {
 public:
  HelperProcess(Machine& owner, std::int32_t processID);
  HelperProcess(const HelperProcess&) = delete;
  HelperProcess& operator=(const HelperProcess&) = delete;

  [[nodiscard]] std::int32_t pid() const { return id; }
  [[nodiscard]] bool isAlive() const { return alive; }

  /// PowerAssertions and PowerSettings.
  korvel::KernReturn createAssertion(const korvel::PropertyValue& properties,
                                     std::uint32_t& assertion);
  korvel::KernReturn releaseAssertion(std::uint32_t assertion);
  korvel::KernReturn setSystemPowerSetting(std::string_view key, bool value);
  korvel::PropertyValue copySystemPowerSettings();
  /// Process: [NSBundle mainBundle].
  [[nodiscard]] std::optional<std::string> bundleExecutablePath() const;
  [[nodiscard]] korvel::PropertyValue bundleInfo(std::string_view key) const;

  /// Names and objects of every sort that it holds now, descriptors included; after a helper gave
  /// everything back, only what lives as long as it does is left.
  [[nodiscard]] std::size_t liveObjects() const;

 private:
  Machine& machine;
  std::int32_t id;
  bool alive = true;

 public:
  RegistryClient registry;
  SMCClient smc;
  PowerSourcesClient powerSources;
  RootDomainClient rootDomain;
  SmartChargeClient smartCharge;
  FilesClient files;
  CodeSigningClient codeSigning;

 private:
  friend class Machine;
  void end();
};

}  // namespace virtualmac
