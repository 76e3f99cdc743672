#include "Platform/UnifiedLog.h"

#include <os/log.h>

#include <string>

#include "macOS/Adapters.h"

namespace korvel::macos {

namespace {

static_assert(static_cast<std::uint8_t>(LogLevel::Default) == OS_LOG_TYPE_DEFAULT);
static_assert(static_cast<std::uint8_t>(LogLevel::Error) == OS_LOG_TYPE_ERROR);
static_assert(static_cast<std::uint8_t>(LogLevel::Fault) == OS_LOG_TYPE_FAULT);

/// The unified log. The text is finished, so it goes as one public string. os_log_create gives the
/// same object again for the same pair of names, and keeps it for good: nothing is released.
class SystemUnifiedLog final : public UnifiedLog {
 public:
  void emit(std::string_view subsystem, std::string_view category, LogLevel level,
            std::string_view text) override {
    const os_log_t log =
        os_log_create(std::string(subsystem).c_str(), std::string(category).c_str());
    os_log_with_type(log, static_cast<os_log_type_t>(level), "%{public}s",
                     std::string(text).c_str());
  }
};

}  // namespace

std::unique_ptr<UnifiedLog> makeUnifiedLog() { return std::make_unique<SystemUnifiedLog>(); }

}  // namespace korvel::macos
