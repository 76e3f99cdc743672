#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "HelperRecords.h"
#include "VirtualMac/Schedule/Journal.h"
#include "VirtualMac/Schedule/LogText.h"
#include "VirtualMac/Schedule/Observer.h"

namespace virtualmac {

class Machine;
class World;

/// One rule that holds in every run of a correct helper, whatever fails around it. Watches a world
/// from the beginning and writes down each time that the rule is broken.
class Invariant : public ScheduleObserver {
 public:
  Invariant(World& watched, std::string_view ruleName) : world(watched), label(ruleName) {}
  ~Invariant() override = default;

  [[nodiscard]] std::string_view name() const { return label; }
  /// The first few, each as "12.345 what happened".
  [[nodiscard]] const std::vector<std::string>& violations() const { return noted; }

  virtual void journalled(const Journal::Entry& /*entry*/) {}
  /// Called when the run is over and every request had time to finish.
  virtual void finished() {}

 protected:
  void violate(std::string_view what);

  World& world;

 private:
  std::string_view label;
  std::vector<std::string> noted;
};

/// A write to a key of the SMC.
struct KeyWrite {
  std::string_view key;
  std::string_view payload;  ///< "01 00 00 00"
  bool obeyed = false;

  [[nodiscard]] bool isZero() const;
};
/// None: the entry tells of no write to the SMC.
std::optional<KeyWrite> keyWriteOf(const Journal::Entry& entry);

/// The helper's record as it stands on the machine's disk; none when there is no complete one.
std::optional<korvel::HelperState> recordOnDisk(const Machine& machine);

}  // namespace virtualmac
