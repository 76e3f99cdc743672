#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

/// How often each seam call was made. The difference of two snapshots counts the calls in between.
struct CallCounts {
  std::array<std::uint64_t, seamCallCount> byCall{};
  std::uint64_t total = 0;

  [[nodiscard]] std::uint64_t operator[](SeamCall call) const {
    return byCall[static_cast<std::size_t>(call)];
  }
  friend CallCounts operator-(const CallCounts& later, const CallCounts& earlier);
  friend bool operator==(const CallCounts&, const CallCounts&) = default;
  /// "smcCallStruct 3, clockNow 1": the calls that were made, in the table's order.
  [[nodiscard]] std::string text() const;
};

/// A fault that means "this failed" for the call's kind: an error code, EIO, an error text. Calls
/// of the kinds Sure and Release have none.
std::optional<InjectedFault> plainFault(SeamCall call);

/// The written fault model of the seam: which call of which kind fails, when, and how long calls
/// take. Occurrences are counted from the moment a rule is added, starting with 1.
class FaultTable {
 public:
  using RuleId = std::uint64_t;
  static constexpr std::uint64_t forever = std::numeric_limits<std::uint64_t>::max();

  /// The table's decision about one call.
  struct Verdict {
    std::optional<InjectedFault> fault;
    double latencySeconds = 0;
    bool kill = false;  ///< The process dies in place of the call.
  };

  RuleId failNth(SeamCall call, std::uint64_t n, InjectedFault fault);
  RuleId failEvery(SeamCall call, std::uint64_t n, InjectedFault fault);
  /// The n-th call and those after it fail, `count` in all.
  RuleId failFrom(SeamCall call, std::uint64_t n, InjectedFault fault,
                  std::uint64_t count = forever);
  RuleId failAlways(SeamCall call, InjectedFault fault);
  /// The call fails whenever `condition` holds as it is made.
  RuleId failWhen(SeamCall call, std::function<bool()> condition, InjectedFault fault);
  /// Call number k in all, counted as CallCounts::total does, fails with its plain fault. A call
  /// that cannot fail is made as usual.
  void failAtCall(std::uint64_t k) { failIndex = k; }
  /// The process is killed in place of call number k in all.
  void killAtCall(std::uint64_t k) { killIndex = k; }

  /// Every call of this kind takes this long from now on; 0 ends it.
  void setLatency(SeamCall call, double seconds);
  /// The n-th call takes this long.
  RuleId delayNth(SeamCall call, std::uint64_t n, double seconds);

  /// Runs with every call, before the table decides about it; an empty function ends that.
  void observe(std::function<void(SeamCall)> function) { observer = std::move(function); }

  void remove(RuleId rule);
  /// Forgets all rules and latencies; the counters go on.
  void clear();

  /// Counts a call and decides about it.
  Verdict next(SeamCall call);

  [[nodiscard]] const CallCounts& counts() const { return made; }
  /// How many faults were put in the place of calls.
  [[nodiscard]] std::uint64_t injected() const { return injections; }
  /// The call that had failAtCall's number; none: it was not made yet.
  [[nodiscard]] std::optional<SeamCall> callAtFailIndex() const { return failedCall; }

 private:
  struct Rule {
    RuleId id = 0;
    SeamCall call{};
    std::uint64_t seen = 0;
    std::uint64_t first = 1;
    std::uint64_t every = 1;
    std::uint64_t remaining = forever;
    std::function<bool()> condition = {};
    std::optional<InjectedFault> fault = {};  ///< None: the call is only delayed.
    double delaySeconds = 0;
  };

  RuleId add(Rule rule);
  void applyRules(SeamCall call, Verdict& verdict);

  CallCounts made;
  std::function<void(SeamCall)> observer;
  std::vector<Rule> rules;
  std::array<double, seamCallCount> latency{};
  std::uint64_t failIndex = 0;
  std::uint64_t killIndex = 0;
  std::uint64_t injections = 0;
  std::optional<SeamCall> failedCall;
  RuleId lastId = 0;
};

}  // namespace virtualmac
