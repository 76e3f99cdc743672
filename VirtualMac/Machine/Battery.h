#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "VirtualMac/Machine/MachineContext.h"
#include "VirtualMac/Machine/Profile.h"

namespace virtualmac {

/// The range in which the pack's or the room's temperature can be set, by anybody.
inline constexpr double lowestCelsius = -40;
inline constexpr double highestCelsius = 120;

/// The conditions that decide how the charge and the temperature move.
struct BatteryConditions {
  bool adapterConnected = false;
  bool inflowInhibited = false;
  bool chargingInhibited = false;
  std::uint8_t nativeLimitPercent = 0;  ///< 0: none.
  bool asleep = false;
  bool lidClosed = false;

  friend bool operator==(const BatteryConditions&, const BatteryConditions&) = default;
};

/// The pack: charge and temperature over virtual time. Exact integers inside, so the outcome does
/// not depend on how time is cut. Journals `mac   battery 79 %` whenever the shown whole percentage
/// changes by itself, and what is done to it by hand: `mac   battery set to 64 %`,
/// `mac   temperature set to 45 C`, `mac   temperature free`, `mac   ambient set to 30 C`.
///
/// Fault model. The level can be unreadable, the temperature can be unreadable or overridden; both
/// are faults of the readings (Registry, PowerSourceList), the pack itself goes on. Not modelled:
/// ageing, imbalance of cells, a gauge that jumps (setPercent does that by hand).
class Battery {
 public:
  Battery(const BatteryProfile& kind, MachineContext& shared);

  /// Jumps to a level, as a recalibrating gauge would; clamped to 0 to 100.
  void setPercent(double level);
  /// The level as the system shows it: the nearest whole percent.
  [[nodiscard]] int percent() const;
  [[nodiscard]] double exactPercent() const;
  [[nodiscard]] bool isCharging() const { return ratePerNanosecond > 0; }
  /// The machine runs from the battery.
  [[nodiscard]] bool isDraining() const;
  [[nodiscard]] bool isFull() const;
  [[nodiscard]] bool isEmpty() const { return charge == 0; }
  /// The native limit was reached and keeps the battery from charging, until it is 1 % below.
  [[nodiscard]] bool heldByNativeLimit() const { return nativeHold; }
  [[nodiscard]] bool isPresent() const { return profile.present; }

  /// Milliampere hours, from the present level.
  [[nodiscard]] std::int64_t rawCurrentCapacity() const;
  [[nodiscard]] std::int64_t rawMaxCapacity() const;
  [[nodiscard]] std::int64_t designCapacity() const;
  void setFullCapacity(std::int64_t milliampHours);

  /// Hundredths of a degree Celsius.
  [[nodiscard]] std::int64_t temperatureHundredths() const;
  void setAmbientCelsius(double celsius);
  /// Holds the temperature at a value; none lets it move again from there. A fault uses `override`,
  /// which journals nothing, as the fault has a line of its own.
  void setTemperatureCelsius(std::optional<double> celsius);
  void overrideTemperatureCelsius(std::optional<double> celsius);

  void setConditions(const BatteryConditions& present);
  [[nodiscard]] const BatteryConditions& conditions() const { return now; }
  /// Until the shown percentage or the rate changes by itself.
  [[nodiscard]] Nanoseconds untilNextChange() const;
  /// Lets time pass; `duration` is not longer than untilNextChange().
  void pass(Nanoseconds duration);

  /// Capacities, rates and heats.
  [[nodiscard]] const BatteryProfile& kind() const { return profile; }

 private:
  void updateRate();
  void passTemperature(Nanoseconds duration);
  [[nodiscard]] std::int64_t targetMicrodegrees() const;
  [[nodiscard]] double ratePercentPerHour() const;
  [[nodiscard]] std::int64_t nextBoundary() const;
  [[nodiscard]] bool hasNativeLimit() const;
  [[nodiscard]] std::int64_t nativeLimit() const;

  MachineContext& context;
  BatteryProfile profile;
  BatteryConditions now;
  std::int64_t charge = 0;  ///< In units small enough for whole rates a nanosecond.
  std::int64_t ratePerNanosecond = 0;
  bool nativeHold = false;  ///< The native limit has been reached and holds.
  std::int64_t microdegrees = 0;
  std::optional<std::int64_t> overriddenMicrodegrees;
  Nanoseconds sinceTemperatureStep = 0;
};

}  // namespace virtualmac
