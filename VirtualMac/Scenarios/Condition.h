#pragma once

#include <expected>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "VirtualMac/Scenarios/Stage.h"
#include "VirtualMac/Schedule/Journal.h"

namespace virtualmac {

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
/// the lines since the condition began to be watched. All but `reported` are judged by the machine
/// itself, never by the helper.
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
  [[nodiscard]] bool holds(Stage& stage) const;
  /// The actual state, for each part that does not hold: "the gate is charging".
  [[nodiscard]] std::string actual(Stage& stage) const;

  /// The places where terms look. The machine is taken once, so that all terms see one moment.
  struct Facts {
    explicit Facts(Stage& place) : stage(place), machine(place.machine()) {}
    Stage& stage;
    Machine& machine;
  };
  /// One part of a condition. One that listens has `hears` in place of the two before it.
  struct Term {
    std::function<bool(const Facts&)> holds;
    std::function<std::string(const Facts&)> actual;
    std::function<bool(const Journal::Entry&)> hears;
    bool heard = false;
    bool asksHelper = false;
    bool negated = false;
  };

 private:
  std::string source;
  std::vector<Term> terms;
};

}  // namespace virtualmac
