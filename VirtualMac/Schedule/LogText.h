#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "Platform/UnifiedLog.h"

namespace virtualmac {

// Reading the helper's log: its lines are words to the machine as well.

/// "default", "error", "fault"
std::string_view levelName(korvel::LogLevel level);

bool contains(std::string_view text, std::string_view part);

/// The number after `word` in `text`: 80 for "limit=" in "… limit=80 …"; none: there is none.
std::optional<std::int64_t> numberAfter(std::string_view text, std::string_view word);

}  // namespace virtualmac
