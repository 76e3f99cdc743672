#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "VirtualMac/InProcess/Invariant.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

/// The readings that a helper would get now from the machine, whatever is wrong with it, as long as
/// no fault is put in the place of its calls.
class Readings {
 public:
  explicit Readings(Machine& observed) : eye(observed, 0) {}

  std::optional<std::int64_t> capacity();
  bool lidClosed();
  std::optional<std::int64_t> celsius();

 private:
  HelperProcess eye;
};

/// What can be told from outside of discharging: whether one runs, whether keep-awake is armed, and
/// which limit the helper has in mind.
class DischargeView {
 public:
  explicit DischargeView(const Machine& observed) : machine(observed) {}

  /// `lane`: who runs as the entry is made. True: a discharge has just begun.
  bool see(const Journal::Entry& entry, const Lane& lane);
  void workPosted(const Lane& from, const Lane& to, std::uint64_t number);
  void workBegins(const Lane& lane, std::uint64_t number);
  void workEnds(const Lane& lane, std::uint64_t number);

  /// For the helper: it has not stopped what it started, or what it did to stop it had an effect.
  bool active = false;
  bool armed = false;

  /// The limit in the helper's memory; before anything is known of it the one on disk, else 0.
  [[nodiscard]] std::int64_t limit() const;
  /// A running loop may hold the limit that was set last, or the one in the memory. The lower.
  [[nodiscard]] std::int64_t lowestTarget() const;

 private:
  void forget();
  /// What a command will do in the work that it posts.
  struct Command {
    std::optional<std::int64_t> limit;  ///< To be set.
    bool endsDischarge = false;
  };

  void seeLog(std::string_view text, const Lane& lane);
  void seeAudit(std::string_view text, const Lane& lane);

  const Machine& machine;
  std::optional<std::int64_t> inMemory;
  std::optional<std::int64_t> setLast;
  bool recordUnreadable = false;
  /// Commands on their way: audited on a thread, then in a piece of work that it posted.
  std::map<const Lane*, Command> audited;
  std::map<std::pair<const Lane*, std::uint64_t>, Command> posted;
};

/// A rule about discharges: an invariant with a view of them.
class DischargeRule : public Invariant {
 public:
  DischargeRule(World& watched, std::string_view ruleName);

  void journalled(const Journal::Entry& entry) final;
  void workPosted(const Lane& from, const Lane& to, std::uint64_t number) override;
  void workBegins(const Lane& lane, std::uint64_t number) override;
  void workEnds(const Lane& lane, std::uint64_t number) override;

 protected:
  /// `begins`: with this entry a discharge has begun. The view has seen it.
  virtual void happened(const Journal::Entry& entry, const Lane& lane, bool begins) = 0;

  DischargeView view;
  Readings readings;
};

}  // namespace virtualmac
