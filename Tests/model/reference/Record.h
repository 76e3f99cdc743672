#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace model {

inline constexpr double never = -63114076800.0;  ///< The first day of the calendar.

/// The record, as it is kept and reported.
struct Record {
  std::int64_t limit = 80;
  std::int64_t band = 5;
  bool discharging = false;
  bool heatPause = false;
  double writtenAt = never;
  bool verified = true;
  std::optional<std::string> reason = {};
  std::optional<double> reasonAt = {};
  bool toppingOff = false;
  bool ownsSleepDisabled = false;
  std::optional<std::string> version = {};
  friend bool operator==(const Record&, const Record&) = default;
};

std::string fileText(const Record& record);
std::string replyText(const Record& record);
std::optional<Record> recordFrom(const std::string& file);

/// A failure as a client hears of it.
struct Failure {
  std::string text;
  std::int64_t code = 500;
  std::optional<std::int64_t> result = {};
};
using Outcome = std::optional<Failure>;

}  // namespace model
