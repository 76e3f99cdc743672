#pragma once

#include <memory>
#include <string>
#include <vector>

#include "VirtualMac/InProcess/Invariant.h"

namespace virtualmac {

using InvariantList = std::vector<std::unique_ptr<Invariant>>;

/// All named rules, watching one world. Make it right after the world; destroy it before the world.
class InvariantSet {
 public:
  explicit InvariantSet(World& watched);
  ~InvariantSet();
  InvariantSet(const InvariantSet&) = delete;
  InvariantSet& operator=(const InvariantSet&) = delete;

  /// Lets every rule judge the end of the run. Call it once, with the world at rest.
  void finish();
  /// "rule: 12.345 what happened", the transport's own findings included.
  [[nodiscard]] std::vector<std::string> violations() const;
  [[nodiscard]] std::vector<std::string> names() const;

 private:
  World& world;
  InvariantList rules;
  /// False once this set is gone: a journal never drops its listeners.
  std::shared_ptr<bool> watch = std::make_shared<bool>(true);
};

void addClientInvariants(InvariantList& list, World& world);
void addHardwareInvariants(InvariantList& list, World& world);
void addDischargeInvariants(InvariantList& list, World& world);
void addPowerInvariants(InvariantList& list, World& world);
void addScheduleInvariants(InvariantList& list, World& world);
void addRecordInvariants(InvariantList& list, World& world);

}  // namespace virtualmac
