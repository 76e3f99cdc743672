#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VirtualMac/Schedule/Journal.h"

namespace virtualmac {

/// The machine at one moment, as far as a timeline shows it.
struct TimelineState {
  double percent = 0;  ///< The charge, in whole percent as the helper reads it.
  bool adapterConnected = false;
  bool chargingPaused = false;   ///< The charging gate is closed.
  bool inflowInhibited = false;  ///< The adapter is in but feeds nothing.
  bool lidClosed = false;
  bool asleep = false;
  bool helperRunning = false;
  bool clientConnected = false;  ///< At least one.
  bool toppingOff = false;
  bool enforcing = false;           ///< A limit was asked for and is held.
  std::optional<int> limitPercent;  ///< Shown while enforcing.
  int bandPercent = 5;

  friend bool operator==(const TimelineState&, const TimelineState&) = default;
};

enum class TimelineMarkKind : std::uint8_t {
  Request,  ///< Somebody asked the helper for something.
  Refusal,  ///< The helper said no.
  Event,    ///< The helper started or ended in order.
  Loss,     ///< The helper was killed, or the power was lost.
  Deed,     ///< Something was done to the machine that no lane shows: a fault, a temperature.
  Log,
  Error,   ///< A log line of level error or fault.
  Failure  ///< The story went wrong here, or was stopped.
};

/// Something that happened at one moment.
struct TimelineMark {
  double time = 0;
  TimelineMarkKind kind{};
  std::string text;
};

/// A run as a picture needs it: states in the order of time, each in force until the next, marks,
/// and the moment where it ends.
struct Timeline {
  struct Sample {
    double time = 0;
    TimelineState state;
  };
  std::string title;
  std::vector<Sample> samples;
  std::vector<TimelineMark> marks;
  double end = 0;
};

/// Reads a journal entry by entry and keeps what a timeline shows. It skips all other entries and
/// the routine log lines of components, so a whole journal may be given. The caller passes the
/// state at the start, which the journal does not tell.
class TimelineBuilder {
 public:
  /// `start` is the state at `startTime` (virtual seconds).
  TimelineBuilder(std::string title, double startTime, const TimelineState& start);

  void add(const Journal::Entry& entry);
  /// The story went wrong at `time`, or was stopped; `text` says how.
  void fail(double time, std::string text);
  /// The timeline up to `time`.
  [[nodiscard]] Timeline finish(double time) const;

 private:
  void addHardware(const Journal::Entry& entry);
  void addWrite(std::string_view key, std::string_view payload);
  void addDisk(const Effect& effect);
  void addProcess(const Journal::Entry& entry);
  void addReply(const Journal::Entry& entry);
  void addLog(const Journal::Entry& entry);
  void mark(double time, TimelineMarkKind kind, std::string text);
  void keep(double time);

  Timeline made;
  TimelineState now;
};

/// The level that an entry tells, as the system shows it; none: it tells no level.
std::optional<int> batteryLevelIn(const Journal::Entry& entry);

/// The picture: the charge with limit and band, a lane for each of adapter, gate, inflow, lid,
/// sleep and helper, requests above, numbered log lines below. The same timeline gives the same
/// bytes. Has its own light background, so it reads on a dark page too.
std::string timelineSVG(const Timeline& timeline);
/// The same into a file; false: it cannot be written.
bool writeTimeline(const std::string& file, const Timeline& timeline);

/// `01:02:05`, with `1d ` before it from a day on.
std::string timelineClock(double seconds);

}  // namespace virtualmac
