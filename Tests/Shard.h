#pragma once

#include <charconv>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

/// One of several equal parts of a long run, as KORVEL_SHARD=I/N names it: parts of one run go to
/// several machines.
struct Shard {
  std::uint64_t part = 1;
  std::uint64_t parts = 1;

  /// Returns whether the case with this number, counted from 0, belongs to the part.
  [[nodiscard]] bool takes(std::uint64_t number) const { return number % parts == part - 1; }

  /// Reads "I/N"; throws std::invalid_argument for anything else.
  static Shard from(std::string_view text) {
    Shard shard;
    const char* const begin = text.data();
    const char* const end = begin + text.size();
    const auto part = std::from_chars(begin, end, shard.part);
    const bool divided = part.ec == std::errc() && part.ptr != end && *part.ptr == '/';
    const auto parts = std::from_chars(divided ? part.ptr + 1 : end, end, shard.parts);
    if (!divided || parts.ec != std::errc() || parts.ptr != end || shard.part < 1 ||
        shard.part > shard.parts) {
      throw std::invalid_argument("KORVEL_SHARD takes I/N with I from 1 to N, not \"" +
                                  std::string(text) + '"');
    }
    return shard;
  }
};
