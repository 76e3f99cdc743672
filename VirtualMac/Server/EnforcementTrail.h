#pragma once

#include <cstdint>
#include <deque>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "VirtualMac/Schedule/Journal.h"

namespace virtualmac {

/// Whether the limit is enforced, by the helper's log and replies. Its record and capabilities do
/// not tell: in them a limit that was cleared, suspended or handed back looks enforced, and a
/// failed write is a flag without a reason.
struct Enforcement {
  enum class Loop : std::uint8_t {
    NoHelper,
    NotArmed,  ///< The helper runs; nothing has started its loop yet.
    Running,
    ToppingOff,
    TopOffFailed,  ///< The loop was stopped for a top-off that could not begin.
    Cleared,
    Reset,
    Suspended,   ///< Nobody was connected for 30 s.
    HandedBack,  ///< The limit is 100 %, and charging is the system's again.
    OutOfRange
  };
  struct LoggedError {
    double time = 0;  ///< Virtual seconds since the machine's start.
    std::string text;
    friend bool operator==(const LoggedError&, const LoggedError&) = default;
  };

  Loop loop = Loop::NoHelper;
  std::optional<std::int64_t> limit;     ///< The running loop's; none: the record's.
  bool armedByConnection = false;        ///< The loop runs because somebody connected.
  std::optional<std::string> outcome;    ///< The last one logged: "pause:ok".
  bool failing = false;                  ///< That outcome was a failure.
  std::optional<std::string> stopError;  ///< Why the stop did not hand charging back.
  std::optional<LoggedError> lastError;  ///< The last line of the log at level error or fault.
  std::uint64_t connects = 0;            ///< How often a helper has counted a client in.

  friend bool operator==(const Enforcement&, const Enforcement&) = default;
};

/// Follows a machine's journal, entry by entry, for the helper's log lines and replies. Everything
/// but `connects` starts anew with each helper.
class EnforcementTrail {
 public:
  void hear(const Journal::Entry& entry);
  [[nodiscard]] const Enforcement& now() const { return told; }

 private:
  void hearReply(const Effect& reply);
  void hearLog(const Journal::Entry& entry);
  void hearCore(std::string_view text);
  void begin(Enforcement::Loop loop);
  void run(std::optional<std::int64_t> limit, bool byConnection = false);
  void stop(Enforcement::Loop why, std::optional<std::string> error = std::nullopt);

  Enforcement told;
  bool toppingOff = false;
  std::optional<std::string> resetError;    ///< Of the reset that is under way.
  std::deque<std::int64_t> limitsAskedFor;  ///< Accepted, and not yet replied to.
  std::deque<bool> dischargesAskedFor;      ///< On or off, and not yet replied to.
};

nlohmann::ordered_json enforcementJSON(const Enforcement& enforcement);
/// The reverse; none: the JSON holds no enforcement.
std::optional<Enforcement> enforcementFrom(const nlohmann::json& json);

/// Why nothing is, or was, enforced; empty while the loop runs.
std::string_view reasonText(Enforcement::Loop loop);
/// On one line: `at 80 %, last outcome pause:ok`; `nothing: nobody connected for 30 s`.
std::string enforcementText(const Enforcement& enforcement);

}  // namespace virtualmac
