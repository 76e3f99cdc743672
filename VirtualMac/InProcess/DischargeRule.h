#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "VirtualMac/InProcess/Invariant.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

/// The readings that a helper would get now if no fault replaced its calls. Faults of the machine
/// itself do affect them.
class Readings {
 public:
  explicit Readings(Machine& observed) : eye(observed, 0) {}

  std::optional<std::int64_t> capacity();
  bool lidClosed();
  std::optional<std::int64_t> celsius();

 private:
  HelperProcess eye;
};

/// An invariant about discharges. Follows the discharge as seen from outside: whether one runs,
/// whether keep-awake is armed, and which limit the helper has in memory.
class DischargeRule : public Invariant {
 public:
  DischargeRule(World& watched, std::string_view ruleName);

  void journalled(const Journal::Entry& entry) final;
  void workPosted(const Lane& from, const Lane& to, std::uint64_t number) override;
  void workBegins(const Lane& lane, std::uint64_t number) override;
  void workEnds(const Lane& lane, std::uint64_t number) override;

 protected:
  /// Called after the rule has seen the entry. `begins`: the entry begins a discharge.
  virtual void happened(const Journal::Entry& entry, const Lane& lane, bool begins) = 0;

  /// The limit in the helper's memory; while that is unknown, the one on disk; without a record, 0.
  [[nodiscard]] std::int64_t limit() const;
  /// The lower of the limit in memory and the limit set last: a running loop may use either.
  [[nodiscard]] std::int64_t lowestTarget() const;

  /// A discharge has begun, and has not ended for the helper. Its writes to end one count as its
  /// end even when the hardware ignores them.
  bool active = false;
  bool armed = false;
  Readings readings;

 private:
  /// The effects that a command will have in the work that it posts.
  struct Command {
    std::optional<std::int64_t> limit;  ///< The new limit; none: unchanged.
    bool endsDischarge = false;
  };

  /// True: the entry begins a discharge.
  bool see(const Journal::Entry& entry, const Lane& lane);
  void seeLog(std::string_view text, const Lane& lane);
  void seeAudit(std::string_view text, const Lane& lane);
  void forget();

  const Machine& machine;
  std::optional<std::int64_t> inMemory;
  std::optional<std::int64_t> setLast;
  bool recordUnreadable = false;
  /// Commands under way: first by the thread that audited them, then by the work that it posted.
  std::map<const Lane*, Command> audited;
  std::map<std::pair<const Lane*, std::uint64_t>, Command> posted;
};

}  // namespace virtualmac
