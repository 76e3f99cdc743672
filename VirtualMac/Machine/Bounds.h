#pragma once

#include <cstddef>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

namespace virtualmac {

/// Bounds on input from outside: a file, a client, a frame. Each stands here and nowhere else,
/// except a frame's size, which is in Wire.h. Larger input is refused with an error that names the
/// bound, so that no input can end a machine by exhausting its memory, or its stack, on which
/// nested values are copied, compared and printed.
namespace bounds {

/// Nesting of arrays and objects in a JSON text.
inline constexpr std::size_t deepestJSON = 512;
/// Nesting of arrays and dictionaries in a property-list value.
inline constexpr std::size_t deepestProperty = 16;
/// Nesting of terms in a code-signing requirement.
inline constexpr std::size_t deepestRequirement = 200;
/// Bytes of a profile or of a scenario.
inline constexpr std::size_t longestText = std::size_t{1} << 20U;
/// Bytes of the helper's state file that the journal reads to tell which fields differ.
inline constexpr std::size_t longestCompared = std::size_t{1} << 20U;
/// Bytes of JSON that hold the limits a profile's PowerUI offers: they must fit into one frame.
inline constexpr std::size_t longestOffer = std::size_t{16} << 10U;
/// Bytes of one line on a control connection.
inline constexpr std::size_t longestRequest = std::size_t{64} << 10U;
/// Answers that a control client has not read yet; until it does, none of its requests is read.
inline constexpr std::size_t mostUnread = 64;
/// Bytes that a follower of the journal has not read yet; with more, it is disconnected.
inline constexpr std::size_t mostUnreadBytes = std::size_t{16} << 20U;
/// Connections to a machine's page that are served at once; others are refused.
inline constexpr std::size_t mostPageConnections = 64;
/// Those of them that follow the journal.
inline constexpr std::size_t mostPageStreams = 16;
/// Bytes of a request to the page: its line, headers and body.
inline constexpr std::size_t longestPageRequest = longestRequest + (std::size_t{16} << 10U);
/// Seconds in which such a request must have come.
inline constexpr double longestPageArrival = 10;
/// Seconds for which a browser may take nothing of what it is sent; then it is let go.
inline constexpr double longestPageStall = 5;
/// Applications that the page has started and not ended.
inline constexpr std::size_t mostPageClients = 16;
/// Bytes of such an application's name, and of one of its requests.
inline constexpr std::size_t longestPageWord = 256;
/// Requests of an application that are not answered yet.
inline constexpr std::size_t mostPageRequests = 16;
/// Nesting of lists and mappings in a scenario: as deep as its YAML reader goes.
inline constexpr std::size_t deepestStory = 498;
/// Steps of a scenario, once its repetitions are unrolled.
inline constexpr std::size_t mostSteps = 100'000;
/// Phrases of those steps: moments, actions, replies, conditions.
inline constexpr std::size_t mostPhrases = 300'000;
/// Any length of time, in seconds: a century, which fits into 64 bits of nanoseconds.
inline constexpr double longestSeconds = 100.0 * 365 * 24 * 3600;
/// Virtual seconds in a real one.
inline constexpr double slowest = 0.01, fastest = 10000;

}  // namespace bounds

/// Checks a text from outside as JSON, nested no deeper than `deepestJSON`. Returns the first
/// defect, in one line that names the byte; none: the text parses.
std::optional<std::string> jsonDefect(std::string_view text);

/// A file of at most `longestText` bytes. The error names the file, and the bound if that was it.
std::expected<std::string, std::string> readTextFile(const std::string& path);

}  // namespace virtualmac
