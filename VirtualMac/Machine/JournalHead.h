#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace virtualmac {

class Machine;

/// How a machine came to run, as far as it does not know that itself.
struct JournalOrigin {
  std::string run = {};                        ///< New at each `up`; empty: a story's machine.
  std::string profileFile = {};                ///< Empty: the profile is built in.
  std::optional<double> speed = {};            ///< None: as fast as it goes, in virtual time.
  std::optional<std::uint64_t> seed = {};      ///< Of a story.
  std::optional<std::string> savedState = {};  ///< The helper's state file; none: there is none.
  std::string savedStateUntold = {};           ///< Why one that is there is not told; else empty.
  std::optional<bool> restartAfterCrash = {};  ///< None: as launchd's job says.
};

/// The first line of a saved journal, which tells the machine before its first effect. It is no
/// line of the journal: readers of those skip it, and no hash is taken over it.
struct JournalHead {
  /// Holds all that a story's `start` may set, and the hardware keys.
  struct Start {
    std::optional<double> batteryPercent;  ///< None: no battery.
    double temperatureCelsius = 0;
    double ambientCelsius = 0;
    bool adapterConnected = false;
    std::string lid;  ///< "open", "closed" or "none".
    bool displayConnected = false;
    bool sleepDisabled = false;
    std::int64_t idleSleepMinutes = 0;  ///< 0: never.
    std::int64_t nativeLimit = 0;       ///< 0: none.
    std::map<std::string, std::vector<std::uint8_t>> smcKeys;
    std::vector<std::string> faults;  ///< As `fault` takes them, without `on`.
    std::optional<std::string> savedState;
    std::string savedStateUntold;  ///< Why a state file that is there is not told; else empty.
    std::optional<std::string> helperVersion;
    bool restartAfterCrash = true;

    friend bool operator==(const Start&, const Start&) = default;
  };

  std::string run;
  std::string profile;
  std::string profileFile;
  std::string clock;  ///< The wall clock at second 0.
  std::optional<double> speed;
  std::optional<std::uint64_t> seed;
  Start start;

  /// Of a machine that has not begun yet.
  static JournalHead of(const Machine& machine, const JournalOrigin& origin);
  /// None: the line is no head, or one that says less than this.
  static std::optional<JournalHead> from(std::string_view line);
  /// `# {"journal":1,…}`, without a newline.
  [[nodiscard]] std::string line() const;
};

/// The line that begins the saved journal of a machine that has not begun yet.
std::string journalHead(const Machine& machine, const JournalOrigin& origin);

}  // namespace virtualmac
