#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/ByteList.h"
#include "Base/Date.h"

namespace korvel {

/// The record that the helper persists and reports. Equality compares every field.
struct HelperState {
  std::int64_t chargeLimit = 80;      ///< The limit the user chose, percent; 100 means none.
  std::int64_t sailingBand = 5;       ///< Width of the hysteresis band below the limit, percent.
  bool forceDischargeActive = false;  ///< The discharge keys are in force.
  bool heatPauseActive = false;  ///< Never set, only cleared: kept so that old files still load.
  Date lastWriteAt = Date::distantPast();
  bool lastWriteVerified = true;  ///< The last charging-control write read back as written.
  std::optional<std::string> lastDischargeAbortReason;  ///< Banner of the last stop by itself.
  std::optional<Date> lastDischargeAbortAt;
  bool topUpActive = false;
  bool sleepDisabledByKorvel = false;        ///< We set SleepDisabled and must clear it.
  std::optional<std::string> helperVersion;  ///< Of the helper that wrote the record.

  /// The record of a fresh install.
  static const HelperState& empty();

  friend bool operator==(const HelperState&, const HelperState&) = default;
};

/// The controls that this machine's hardware offers.
struct HelperCapabilities {
  bool tahoeCharging = false;
  bool preTahoeCharging = false;
  bool tahoeDischarge = false;
  bool preTahoeDischarge = false;
  bool nativeCharging = false;

  static const HelperCapabilities& none();

  [[nodiscard]] bool canControlCharging() const {
    return tahoeCharging || preTahoeCharging || nativeCharging;
  }
  [[nodiscard]] bool canForceDischarge() const { return tahoeDischarge || preTahoeDischarge; }

  friend bool operator==(const HelperCapabilities&, const HelperCapabilities&) = default;
};

/// The process behind an XPC message, for audit lines only. Empty text: could not be read.
struct CallerIdentity {
  std::int32_t pid = 0;
  std::string signingID;
  std::string teamID;
  std::string cdHashHex;
};

/// One SMC key and the bytes that put it back to the system's default.
struct ResetWrite {
  std::string_view key;
  ByteList bytes;
};

/// Every charging key that the helper may ever write, in the order of restoration.
const std::vector<ResetWrite>& resetWrites();

/// Compact JSON, dates as seconds since 2001-01-01: the form of the replies.
std::string encodeReply(const HelperState& state);
std::string encodeReply(const HelperCapabilities& capabilities);

/// Two-space indent, sorted keys, ISO 8601 dates in whole seconds: the form of the state file.
std::string encodeFile(const HelperState& state);

/// The reverse. The error text says what is wrong and where. Unknown keys are ignored with any
/// well-formed value; the first of duplicate keys counts; a null optional is absent.
std::expected<HelperState, std::string> decodeStateFile(std::string_view text);
std::expected<HelperState, std::string> decodeStateReply(std::string_view text);
std::expected<HelperCapabilities, std::string> decodeCapabilities(std::string_view text);

}  // namespace korvel
