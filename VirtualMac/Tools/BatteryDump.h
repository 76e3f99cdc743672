#pragma once

#include <cstddef>
#include <expected>
#include <string>
#include <string_view>
#include <vector>

#include "Base/PropertyValue.h"

namespace virtualmac {

/// The battery's entries in what `ioreg -a -r -c AppleSmartBattery` prints.
struct BatteryDump {
  korvel::PropertyValue::Dictionary service;
  korvel::PropertyValue::Dictionary pack;  ///< Its "BatteryData"; empty: there is none.
  std::vector<korvel::PropertyValue::Dictionary> banks;  ///< Their "BatteryData".
  std::size_t moreServices = 0;  ///< Other batteries behind it, which the helper does not read.

  /// As the helper reads them: one flat dictionary.
  [[nodiscard]] korvel::PropertyValue::Dictionary merged() const;
};

/// Finds the battery, also in a dump of the whole registry. The error says what is wrong, in words
/// that follow the name of the dump's file.
std::expected<BatteryDump, std::string> batteryDumpFrom(std::string_view text);

}  // namespace virtualmac
