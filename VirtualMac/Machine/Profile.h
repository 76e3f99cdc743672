#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>
#include <vector>

#include "Base/PropertyValue.h"

namespace virtualmac {

/// One SMC key as it is at the machine's first start.
struct SMCKeyProfile {
  std::string name;  ///< Four characters.
  std::uint32_t size = 0;
  std::string type = "ui8 ";  ///< Four characters.
  std::uint8_t attributes = 0;
  std::vector<std::uint8_t> bytes = {};  ///< Zero-padded to `size`.
};

/// The place of the battery's figures in the registry.
enum class BatteryLayout : std::uint8_t { Root, Pack };

struct BatteryProfile {
  bool present = true;
  BatteryLayout layout = BatteryLayout::Root;
  std::uint32_t banks = 0;  ///< Bank entries below the battery service.
  double startPercent = 60;
  std::int64_t designCapacityMilliampHours = 6000;
  std::int64_t fullCapacityMilliampHours = 5700;
  double chargePercentPerHour = 50;       ///< Below the taper.
  double taperStartPercent = 80;          ///< From here to 100 the charge rate falls to a tenth.
  double activeDrainPercentPerHour = 12;  ///< Running from the battery.
  double heldDrainPercentPerHour = 0.2;   ///< Adapter in, charging inhibited.
  double asleepDrainPercentPerHour = 0.5;
  double ambientCelsius = 24;
  double chargingHeatCelsius = 9;     ///< Added to ambient while charging.
  double dischargingHeatCelsius = 6;  ///< Added while running from the battery, lid open.
  double closedLidHeatCelsius = 12;   ///< Added on top while awake on battery with the lid closed.
};

/// A power source that is listed beside the battery.
struct OtherPowerSourceProfile {
  std::string name;
  std::string type;  ///< "UPS" or any other text.
  std::int64_t currentCapacity = 100;
  bool beforeBattery = false;
};

/// The operating system's own charge limit.
struct PowerUIProfile {
  bool present = false;
  bool supported = true;
  korvel::PropertyValue offeredLimits;  ///< The framework's answer, of any type.
  std::uint8_t currentLimit = 0;        ///< 0: none.
};

/// One signed (or unsigned) program.
struct SigningIdentity {
  std::string name;  ///< Its name in tests and commands.
  bool isSigned = true;
  bool anchorApple = false;         ///< Apple's own code.
  bool anchorAppleGeneric = false;  ///< A chain up to Apple, developers included.
  std::string identifier = {};
  std::string team = {};  ///< Empty: none (ad-hoc).
  std::vector<std::string> leafExtensions = {};
};

/// A kind of Mac, as data.
struct Profile {
  std::string name;
  std::string description;
  bool smcPresent = true;
  std::vector<SMCKeyProfile> smcKeys;
  BatteryProfile battery;
  bool hasLid = true;
  bool adapterConnected = true;
  bool externalDisplayConnected = false;
  std::int64_t idleSleepMinutes = 0;  ///< 0: never.
  std::vector<OtherPowerSourceProfile> otherPowerSources;
  PowerUIProfile powerUI;
  std::vector<SigningIdentity> identities;  ///< In addition to the built-in ones.
};

/// The names of the built-in profiles, sorted.
std::vector<std::string> builtInProfileNames();

/// Whether this names a JSON file, which has a '/' or ends in ".json", and no built-in profile.
bool isProfileFile(std::string_view nameOrPath);

/// `nameOrPath`: a built-in profile, or a JSON file. The error is one line that names the file, the
/// key and what it may hold.
std::expected<Profile, std::string> loadProfile(std::string_view nameOrPath);

/// The JSON of the same, not looked into.
std::expected<std::string, std::string> profileText(std::string_view nameOrPath);

/// The same from text; `origin` stands for the file in errors.
std::expected<Profile, std::string> parseProfile(std::string_view text, std::string_view origin);

}  // namespace virtualmac
