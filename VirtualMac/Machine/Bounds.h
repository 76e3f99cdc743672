#pragma once

#include <cstddef>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

namespace virtualmac {

/// How much of what comes from outside (a file, a client, a frame) is taken, each bound stated here
/// and nowhere else; a frame's size is in Wire.h. What is more is refused by an error that names
/// the bound. So nothing that somebody writes can end a machine: not by its memory, and not by the
/// stack, on which values that are nested get copied, compared and told.
namespace bounds {

/// Arrays and objects of a JSON text within each other.
inline constexpr std::size_t deepestJSON = 512;
/// Arrays and dictionaries of a property-list value within each other.
inline constexpr std::size_t deepestProperty = 16;
/// Terms of a code-signing requirement within each other.
inline constexpr std::size_t deepestRequirement = 200;
/// The bytes of a profile or of a scenario. Nobody writes a longer one.
inline constexpr std::size_t longestText = std::size_t{1} << 20U;
/// Of the helper's state file, what the journal reads to tell which fields differ.
inline constexpr std::size_t longestCompared = std::size_t{1} << 20U;
/// The limits that a profile's PowerUI offers, in bytes of JSON: they have to fit into one frame.
inline constexpr std::size_t longestOffer = std::size_t{16} << 10U;
/// A line of a control connection.
inline constexpr std::size_t longestRequest = std::size_t{64} << 10U;
/// Answers that a control connection has not read yet; no request of it is read before that.
inline constexpr std::size_t mostUnread = 64;
/// Bytes that a follower of the journal has not read yet; then it is let go.
inline constexpr std::size_t mostUnreadBytes = std::size_t{16} << 20U;
/// Lists and mappings of a scenario within each other: as deep as its YAML reader goes.
inline constexpr std::size_t deepestStory = 498;
/// Steps of a scenario, once what repeats is unrolled.
inline constexpr std::size_t mostSteps = 100'000;
/// Phrases of those steps: moments, actions, replies, conditions.
inline constexpr std::size_t mostPhrases = 300'000;
/// Any length of time, in seconds: a century, which whole nanoseconds can count.
inline constexpr double longestSeconds = 100.0 * 365 * 24 * 3600;

}  // namespace bounds

/// Checks a text from outside as JSON, nested no deeper than `deepestJSON`. The first defect in one
/// line that names the byte; none: it parses.
std::optional<std::string> jsonDefect(std::string_view text);

/// A file of at most `longestText` bytes. The error names the file, and the bound if that was it.
std::expected<std::string, std::string> readTextFile(const std::string& path);

}  // namespace virtualmac
