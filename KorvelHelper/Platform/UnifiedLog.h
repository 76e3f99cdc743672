#pragma once

#include <cstdint>
#include <string_view>

namespace korvel {

/// The levels the helper uses, with the unified log's own numbers.
enum class LogLevel : std::uint8_t { Default = 0x00, Error = 0x10, Fault = 0x11 };

/// The unified log. Any thread.
class UnifiedLog {
 public:
  virtual ~UnifiedLog() = default;
  /// os_log_with_type(os_log_create(subsystem, category), level, "%{public}s", text).
  virtual void emit(std::string_view subsystem, std::string_view category, LogLevel level,
                    std::string_view text) = 0;
};

}  // namespace korvel
