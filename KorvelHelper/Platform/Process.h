#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Base/PropertyValue.h"

namespace korvel {

/// The helper's own process and bundle. Any thread.
class Process {
 public:
  virtual ~Process() = default;
  virtual std::int32_t getpid() = 0;
  /// exit(status). Does not return.
  [[noreturn]] virtual void exit(int status) = 0;
  /// [NSBundle mainBundle].executablePath.
  virtual std::optional<std::string> bundleExecutablePath() = 0;
  /// [[NSBundle mainBundle] objectForInfoDictionaryKey:key]. Absent: none.
  virtual PropertyValue bundleInfo(std::string_view key) = 0;
};

}  // namespace korvel
