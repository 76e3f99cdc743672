#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VirtualMac/Schedule/Journal.h"

namespace virtualmac {

class Machine;

/// The facts that judge a condition. All but `reported` come from the machine itself, never from
/// the helper.
struct Facts {
  Machine& machine;
  bool helperRunning = false;
  std::optional<int> helperExitStatus;  ///< Of a helper that ended by itself.
  /// The state file's content; none: there is no such file.
  std::function<std::optional<std::string>()> savedState;
  /// Asks the helper for its state through a connected client; none: no client could ask.
  std::function<std::optional<std::string>()> reportedState;
};

/// A condition on the machine, in words:
///   gate paused | charging            the charging gate as the hardware obeys it
///   inflow on | inhibited             whether the adapter may feed the machine
///   adapter connected | disconnected  lid open | closed      display connected | disconnected
///   battery 80, battery >= 75, battery 75 to 80              whole percent
///   charging / draining               where the battery's charge goes
///   temperature >= 45                 degrees Celsius
///   asleep / awake                    sleep-disabled on | off
///   assertions 2                      power assertions held
///   helper running | stopped | exited 0
///   native-limit 80                   the system's own limit; 0 is none
///   CHIE=08                           a key's first bytes
///   writes CHTE <= 3                  writes of a key since the start
///   saved chargeLimit=80              a field of the state file; `absent` when it is not there
///   saved nothing                     there is no state file
///   reported topUpActive=true         the same, as the helper tells it
///   log "pause:ok"                    a log line contains this
///   journal "adapter renegotiated"    a journal line contains this
/// Each may follow `not`. `and` and `while` join them; all must hold. `log` and `journal` look at
/// the lines since the condition began to be watched.
class Condition {
 public:
  /// The error names what is wrong and what is allowed.
  static std::expected<Condition, std::string> parse(std::string_view text);

  [[nodiscard]] const std::string& text() const { return source; }
  /// True when it can be judged without asking the helper, at any moment.
  [[nodiscard]] bool canBeWatched() const;
  /// True when it looks at lines of the journal, so that only `hear` makes it true.
  [[nodiscard]] bool listens() const;

  /// Takes in a journal entry; `forget` drops all that was taken in.
  void hear(const Journal::Entry& entry);
  void forget();
  [[nodiscard]] bool holds(const Facts& facts) const;
  /// The actual state, for each part that does not hold: "the gate is charging".
  [[nodiscard]] std::string actual(const Facts& facts) const;

  enum class Subject : std::uint8_t {
    Gate,
    Inflow,
    Adapter,
    Lid,
    Display,
    Battery,
    Charging,
    Draining,
    Temperature,
    Asleep,
    SleepDisabled,
    Assertions,
    HelperRunning,
    HelperExited,
    NativeLimit,
    KeyValue,
    KeyWrites,
    Saved,
    SavedNothing,
    Reported,
    Log,
    Journal
  };
  struct Term {
    Subject subject{};
    bool negated = false;
    bool on = true;  ///< For subjects of two states: the first one is meant.
    double least = 0;
    double most = 0;
    std::string name;                  ///< A key or a field.
    std::optional<std::string> value;  ///< A text to hear, or a field's JSON; none: absent.
    std::vector<std::uint8_t> bytes;   ///< A key's.
    bool heard = false;
  };

 private:
  std::string source;
  std::vector<Term> terms;
};

}  // namespace virtualmac
