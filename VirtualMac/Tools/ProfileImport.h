#pragma once

#include <expected>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "VirtualMac/Tools/BatteryDump.h"

namespace virtualmac {

/// A profile that was made from a dump of a real Mac's battery and a base, for what a dump does not
/// tell. Nothing of the dump is in it but the figures that are named.
struct ImportedProfile {
  nlohmann::ordered_json profile;
  nlohmann::ordered_json taken;   ///< Fields of the profile that the dump told, with their values.
  std::vector<std::string> kept;  ///< Fields of the battery that are the base's.
  std::vector<std::string> odd;   ///< Values that the helper reads in another form.
};

/// `base` is a profile's JSON text. The error says what is wrong, in words that follow the name of
/// the dump's file.
std::expected<ImportedProfile, std::string> importProfile(const BatteryDump& dump,
                                                          std::string_view base);

}  // namespace virtualmac
