#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "Tests/model/reference/Record.h"

namespace model {

// The model writes these down about work that is to come, and about things it has found out.

inline constexpr int fault = 17, error = 16;  ///< Levels of the log.

inline std::string text(std::int64_t number) { return std::to_string(number); }

using Duty = std::function<void()>;

struct Timer {
  std::int64_t due = 0;
  std::int64_t interval = 0;
  Duty fire;
};

struct Posted {
  std::int64_t at = 0;
  std::uint64_t asker = 0;
  Duty body;
};

struct KeyInfo {
  std::string size = "0", type = "0";
};

/// A version of the record. It begins to hold at some moment between two places.
struct Version {
  Record record;
  std::uint64_t surely = 0;
};

}  // namespace model
