#pragma once

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Reads from the environment which cases a long run shall play, and which part of them.
namespace longrun {

/// Reads a variable by its name; null: it is not set.
using Environment = const char* (*)(const char* name);

/// The process's own environment.
inline const char* ownEnvironment(const char* name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  return std::getenv(name);
}

/// Returns the variable's text; `otherwise` when it is not set or empty.
inline std::string_view textOr(Environment environment, const char* name,
                               std::string_view otherwise) {
  const char* const value = environment(name);
  return value == nullptr || *value == '\0' ? otherwise : std::string_view(value);
}

/// Returns the variable's number; `otherwise` when it is not set or empty. Throws
/// std::invalid_argument for anything but a whole number from 1.
inline std::uint64_t numberOr(Environment environment, const char* name, std::uint64_t otherwise) {
  const std::string_view text = textOr(environment, name, "");
  if (text.empty()) return otherwise;
  std::uint64_t number = 0;
  const char* const begin = text.data();
  const char* const end = begin + text.size();
  const auto read = std::from_chars(begin, end, number);
  if (read.ec != std::errc() || read.ptr != end || number == 0) {
    throw std::invalid_argument(std::string(name) + " takes a whole number from 1, not \"" +
                                std::string(text) + '"');
  }
  return number;
}

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

/// Returns the seeds that are to be played: KORVEL_SEED alone, or KORVEL_SEEDS many (`usual`) from
/// KORVEL_FIRST_SEED (1) on, and of these the part that KORVEL_SHARD names.
inline std::vector<std::uint64_t> seedsToPlay(Environment environment, std::uint64_t usual) {
  const std::uint64_t one = numberOr(environment, "KORVEL_SEED", 0);
  if (one != 0) return {one};
  const std::uint64_t first = numberOr(environment, "KORVEL_FIRST_SEED", 1);
  const std::uint64_t count = numberOr(environment, "KORVEL_SEEDS", usual);
  const Shard shard = Shard::from(textOr(environment, "KORVEL_SHARD", "1/1"));
  std::vector<std::uint64_t> seeds;
  for (std::uint64_t number = 0; number < count; ++number) {
    if (shard.takes(number)) seeds.push_back(first + number);
  }
  return seeds;
}

}  // namespace longrun
