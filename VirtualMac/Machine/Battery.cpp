#include "VirtualMac/Machine/Battery.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

namespace virtualmac {

namespace {

/// In these units every rate with up to four decimals of a percent an hour is a whole number of
/// units a nanosecond, and a full battery still fits into 64 bits.
constexpr std::int64_t rateUnit = 10'000;
constexpr std::int64_t unitsPerPercent = rateUnit * 3600 * nanosecondsPerSecond;
constexpr std::int64_t fullCharge = 100 * unitsPerPercent;
constexpr std::int64_t halfPercent = unitsPerPercent / 2;

/// The temperature moves on a fixed grid of time, so that it does not depend on how time is cut.
constexpr Nanoseconds temperatureStep = 10 * nanosecondsPerSecond;
constexpr std::int64_t temperatureLagSteps = 90;  ///< A quarter of an hour.

/// The part of the charge rate that is left near a full battery.
constexpr double taperFloor = 0.1;

std::int64_t microdegreesOf(double celsius) {
  return static_cast<std::int64_t>(std::llround(celsius * 1e6));
}

/// The shortest form of a number: 64, 45.5.
std::string numberText(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", number);
  return text;
}

}  // namespace

Battery::Battery(const BatteryProfile& kind, MachineContext& shared)
    : context(shared),
      profile(kind),
      charge(static_cast<std::int64_t>(std::clamp(kind.startPercent, 0.0, 100.0) *
                                       static_cast<double>(unitsPerPercent))),
      microdegrees(microdegreesOf(kind.ambientCelsius)) {
  updateRate();
}

void Battery::setPercent(double level) {
  const std::int64_t before = charge;
  const double within = std::clamp(level, 0.0, 100.0);
  charge = static_cast<std::int64_t>(within * static_cast<double>(unitsPerPercent));
  charge = std::clamp<std::int64_t>(charge, 0, fullCharge);
  updateRate();
  context.noteChange();
  if (charge != before) context.journal.record<EffectID::batterySet>(numberText(within));
}

int Battery::percent() const { return static_cast<int>((charge + halfPercent) / unitsPerPercent); }

double Battery::exactPercent() const {
  return static_cast<double>(charge) / static_cast<double>(unitsPerPercent);
}

bool Battery::isDraining() const {
  return profile.present && (!now.adapterConnected || now.inflowInhibited);
}

bool Battery::isFull() const { return charge == fullCharge; }

std::int64_t Battery::rawCurrentCapacity() const {
  return profile.fullCapacityMilliampHours * percent() / 100;
}

std::int64_t Battery::rawMaxCapacity() const { return profile.fullCapacityMilliampHours; }
std::int64_t Battery::designCapacity() const { return profile.designCapacityMilliampHours; }

void Battery::setFullCapacity(std::int64_t milliampHours) {
  profile.fullCapacityMilliampHours = milliampHours;
  context.noteChange();
}

std::int64_t Battery::temperatureHundredths() const {
  const double hundredths =
      static_cast<double>(overriddenMicrodegrees.value_or(microdegrees)) / 1e4;
  return std::llround(hundredths);
}

void Battery::setAmbientCelsius(double celsius) {
  profile.ambientCelsius = celsius;
  context.journal.record("mac", "ambient set to " + numberText(celsius) + " C");
}

void Battery::setTemperatureCelsius(std::optional<double> celsius) {
  overrideTemperatureCelsius(celsius);
  context.journal.record(
      "mac", celsius ? "temperature set to " + numberText(*celsius) + " C" : "temperature free");
}

void Battery::overrideTemperatureCelsius(std::optional<double> celsius) {
  if (celsius) {
    overriddenMicrodegrees = microdegreesOf(*celsius);
  } else if (overriddenMicrodegrees) {
    microdegrees = *overriddenMicrodegrees;
    overriddenMicrodegrees.reset();
  }
}

void Battery::setConditions(const BatteryConditions& present) {
  if (present == now) return;
  now = present;
  updateRate();
}

double Battery::ratePercentPerHour() const {
  if (!profile.present) return 0;
  if (isDraining()) {
    if (charge == 0) return 0;
    return now.asleep ? -profile.asleepDrainPercentPerHour : -profile.activeDrainPercentPerHour;
  }
  if (now.chargingInhibited || nativeHold) {
    return charge == 0 ? 0 : -profile.heldDrainPercentPerHour;
  }
  if (charge == fullCharge) return 0;
  const double above = std::max(0.0, percent() - profile.taperStartPercent);
  const double span = std::max(1.0, 100 - profile.taperStartPercent);
  return profile.chargePercentPerHour * (1 - (1 - taperFloor) * std::min(1.0, above / span));
}

bool Battery::hasNativeLimit() const {
  return now.nativeLimitPercent > 0 && now.nativeLimitPercent < 100;
}

void Battery::updateRate() {
  // One percent of play keeps a held battery from being topped up at every small loss.
  if (!hasNativeLimit() || charge < nativeLimit() - unitsPerPercent) {
    nativeHold = false;
  } else if (charge >= nativeLimit()) {
    nativeHold = true;
  }
  ratePerNanosecond =
      static_cast<std::int64_t>(std::llround(ratePercentPerHour() * static_cast<double>(rateUnit)));
}

std::int64_t Battery::nativeLimit() const { return now.nativeLimitPercent * unitsPerPercent; }

std::int64_t Battery::nextBoundary() const {
  const std::int64_t shown = percent();
  if (ratePerNanosecond > 0) {
    const std::int64_t step = std::min(fullCharge, shown * unitsPerPercent + halfPercent);
    return hasNativeLimit() && charge < nativeLimit() ? std::min(step, nativeLimit()) : step;
  }
  const std::int64_t step = std::max<std::int64_t>(0, shown * unitsPerPercent - halfPercent - 1);
  return nativeHold ? std::max(step, nativeLimit() - unitsPerPercent - 1) : step;
}

Nanoseconds Battery::untilNextChange() const {
  if (ratePerNanosecond == 0) return neverNanoseconds;
  const std::int64_t distance = std::abs(nextBoundary() - charge);
  const std::int64_t rate = std::abs(ratePerNanosecond);
  return (distance + rate - 1) / rate;
}

void Battery::pass(Nanoseconds duration) {
  passTemperature(duration);
  if (ratePerNanosecond == 0) return;
  const bool reaches = duration >= untilNextChange();
  const int before = percent();
  charge = std::clamp<std::int64_t>(charge + ratePerNanosecond * duration, 0, fullCharge);
  if (!reaches) return;
  updateRate();
  context.noteChange();
  if (percent() != before) context.journal.record<EffectID::batteryLevel>(percent());
}

std::int64_t Battery::targetMicrodegrees() const {
  double celsius = profile.ambientCelsius;
  if (ratePerNanosecond > 0) celsius += profile.chargingHeatCelsius;
  if (isDraining() && !now.asleep) {
    celsius += profile.dischargingHeatCelsius;
    if (now.lidClosed) celsius += profile.closedLidHeatCelsius;
  }
  return microdegreesOf(celsius);
}

void Battery::passTemperature(Nanoseconds duration) {
  const Nanoseconds passed = sinceTemperatureStep + duration;
  sinceTemperatureStep = passed % temperatureStep;
  if (passed < temperatureStep) return;
  const std::int64_t target = targetMicrodegrees();
  for (Nanoseconds steps = passed / temperatureStep; steps > 0 && microdegrees != target; --steps) {
    const std::int64_t part = (target - microdegrees) / temperatureLagSteps;
    microdegrees = part == 0 ? target : microdegrees + part;
  }
}

}  // namespace virtualmac
