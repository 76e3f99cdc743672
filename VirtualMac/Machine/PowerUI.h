#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "Base/PropertyValue.h"
#include "Platform/SmartChargeRuntime.h"
#include "VirtualMac/Machine/MachineContext.h"
#include "VirtualMac/Machine/NameTable.h"
#include "VirtualMac/Machine/Profile.h"

namespace virtualmac {

/// The methods that the framework has: two that make a client, five that it answers to.
inline constexpr std::array<std::string_view, 7> smartChargeMethods{
    "alloc",
    "initWithClientName:",
    "isMCLSupported",
    "isMCLCurrentlyEnabled:",
    "getMCLLimitWithError:",
    "availableChargeLimitsWithError:",
    "setMCLLimit:error:"};

/// The operating system's own charge limit behind the PowerUI framework; the battery obeys it.
/// Journals `power native limit 80 (pid 412)`, `power native limit none (pid 412)` and, when the
/// framework says no, `power native limit 80 refused (pid 412)`.
///
/// Fault model. The framework, the class or any method can be missing; the machine can be
/// unsupported; init can give nothing; each of the three calls with an error slot can fill it; the
/// setter can refuse without an error, or succeed and keep the old limit; the offered limits can be
/// any value. Not modelled: a limit that the system changes by itself.
class PowerUI {
 public:
  PowerUI(const PowerUIProfile& profile, MachineContext& shared);

  [[nodiscard]] std::uint8_t currentLimit() const { return limit; }
  /// As the user sets it in System Settings; 0: none.
  void setLimitByUser(std::uint8_t percent);

  bool frameworkPresent;
  bool classPresent;
  bool classIsNotAClass = false;
  bool initGivesNothing = false;
  bool supported;
  korvel::PropertyValue offeredLimits;  ///< Absent: nil.
  std::set<std::string, std::less<>> missingMethods;
  std::optional<std::string> setError;
  std::optional<std::string> getError;
  std::optional<std::string> offeredError;
  bool refuses = false;        ///< The setter says no, without an error.
  bool keepsOldLimit = false;  ///< The setter says yes and changes nothing.

 private:
  friend class SmartChargeClient;
  bool setLimit(std::int32_t pid, std::uint8_t percent);

  MachineContext& context;
  std::uint8_t limit;
};

/// The seam's runtime calls as one process makes them, with its loaded framework and objects.
class SmartChargeClient final : public korvel::SmartChargeRuntime {
 public:
  SmartChargeClient(PowerUI& framework, std::int32_t processID)
      : powerUI(framework), pid(processID) {}

  korvel::HandleRef dlopen(std::string_view path, int mode) override;
  korvel::HandleRef classFromString(std::string_view name) override;
  bool isClass(korvel::HandleRef object) override;
  korvel::HandleRef getClassMethod(korvel::HandleRef cls, std::string_view selector) override;
  korvel::HandleRef getInstanceMethod(korvel::HandleRef cls, std::string_view selector) override;
  korvel::HandleRef callAlloc(korvel::HandleRef method, korvel::HandleRef cls) override;
  korvel::HandleRef callInit(korvel::HandleRef method, korvel::HandleRef object,
                             std::string_view clientName) override;
  bool respondsToSelector(korvel::HandleRef object, std::string_view selector) override;
  bool callBoolean(korvel::HandleRef object, std::string_view selector) override;
  std::int32_t callInt32(korvel::HandleRef object, std::string_view selector,
                         korvel::ErrorSlot& error) override;
  korvel::PropertyValue callObject(korvel::HandleRef object, std::string_view selector,
                                   korvel::ErrorSlot& error) override;
  bool callSetUInt8(korvel::HandleRef object, std::string_view selector, std::uint8_t value,
                    korvel::ErrorSlot& error) override;
  void release(korvel::HandleRef object) override;

  [[nodiscard]] std::size_t liveObjects() const { return objects.size(); }
  void dropAll() { objects.clear(); }

 private:
  struct Object {
    bool initialised = false;
  };
  [[nodiscard]] bool isClient(korvel::HandleRef object);
  [[nodiscard]] bool offers(std::string_view selector) const;

  PowerUI& powerUI;
  std::int32_t pid;
  bool loaded = false;
  NameTable<Object> objects{0x0f};
};

}  // namespace virtualmac
