#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

namespace virtualmac {

/// The moment, during its acceptance, at which a new connection of the service breaks. Its
/// invalidation handler then runs on a thread of the connection, beside the one that accepts.
enum class ConnectionBreak : std::uint8_t {
  AtHandler,   ///< When the handler is set; it has run before the setting returns.
  InResume,    ///< It has run before resume returns.
  AfterResume  ///< It runs at any time after resume.
};

inline constexpr std::array<std::pair<std::string_view, ConnectionBreak>, 3> connectionBreaks{{
    {"handler", ConnectionBreak::AtHandler},
    {"resume", ConnectionBreak::InResume},
    {"after", ConnectionBreak::AfterResume},
}};

/// Why such a connection ended, for the journal.
inline constexpr std::string_view connectionBroke = "the connection broke";

}  // namespace virtualmac
