#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

#include "KorvelHelperProtocol.h"
#include "Platform/UnifiedLog.h"

// clang checks the arguments against the unified log's format language; other compilers do not know
// it, and need not: every source is also built by clang.
#if defined(__clang__)
#define KORVEL_LOG_FORMAT(formatIndex, firstArgument) \
  __attribute__((format(os_log, formatIndex, firstArgument)))
#else
#define KORVEL_LOG_FORMAT(formatIndex, firstArgument)
#endif

namespace korvel {

/// Renders a format in the unified log's language (`%{public}s`, `%{bool}d`, `%ld`, `%%`, …) with
/// its arguments. Annotations in braces do not change the text, so a Boolean is printed as 0 or 1.
std::string logText(const char* format, ...) KORVEL_LOG_FORMAT(1, 2);

/// One category of the helper's log. Cheap to copy; any thread.
class Logger {
 public:
  /// `name` is a literal, the category.
  Logger(UnifiedLog& unifiedLog, std::string_view name) : sink(&unifiedLog), category(name) {}

  /// The message's own format string stands at the call, verbatim.
  void log(const char* format, ...) const KORVEL_LOG_FORMAT(2, 3);    ///< Level default.
  void error(const char* format, ...) const KORVEL_LOG_FORMAT(2, 3);  ///< Level error.
  void fault(const char* format, ...) const KORVEL_LOG_FORMAT(2, 3);  ///< Level fault.

 private:
  void emit(LogLevel level, const char* format, std::va_list arguments) const;

  UnifiedLog* sink;
  std::string_view category;
};

}  // namespace korvel
