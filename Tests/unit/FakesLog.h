#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "Platform/UnifiedLog.h"

namespace korvel::test {

/// Keeps every line as "level category: text". A line of a foreign subsystem fails the test.
class FakeLog final : public UnifiedLog {
 public:
  std::vector<std::string> lines;

  void emit(std::string_view subsystem, std::string_view category, LogLevel level,
            std::string_view text) override {
    EXPECT_EQ(subsystem, "com.korvel.app.helper");
    lines.push_back(
        std::string(nameOf(level)).append(" ").append(category).append(": ").append(text));
  }

 private:
  static std::string_view nameOf(LogLevel level) {
    switch (level) {
      case LogLevel::Default:
        return "default";
      case LogLevel::Error:
        return "error";
      case LogLevel::Fault:
        return "fault";
    }
    return "unknown";
  }
};

}  // namespace korvel::test
