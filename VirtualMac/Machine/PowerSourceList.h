#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "Base/PropertyValue.h"
#include "Platform/PowerSources.h"
#include "VirtualMac/Machine/MachineContext.h"
#include "VirtualMac/Machine/NameTable.h"
#include "VirtualMac/Machine/Profile.h"

namespace virtualmac {

class Battery;
class Adapter;

/// The power sources as the system lists them: other sources that come first, the internal battery,
/// the rest. A snapshot never changes.
///
/// Fault model. No snapshot at all; no list; a list that is not an array; an empty list (also what
/// a power daemon that cannot be reached looks like); a battery without a current capacity, or with
/// one of another type; any description replaced.
class PowerSourceList {
 public:
  using Descriptions = std::shared_ptr<const std::vector<korvel::PropertyValue>>;

  PowerSourceList(const Profile& profile, const Battery& pack, const Adapter& charger,
                  MachineContext& shared);

  /// The present descriptions, made when something changed since the last time.
  [[nodiscard]] const Descriptions& current();

  bool snapshotFails = false;
  bool listFails = false;
  bool listIsNotArray = false;
  bool listEmpty = false;
  /// Puts a value in the place of the battery's "Current Capacity"; an absent one removes it.
  void overrideCurrentCapacity(korvel::PropertyValue value);
  void restoreCurrentCapacity();

 private:
  [[nodiscard]] korvel::PropertyValue batteryDescription() const;

  const Battery& battery;
  const Adapter& adapter;
  MachineContext& context;
  std::vector<OtherPowerSourceProfile> others;
  std::optional<korvel::PropertyValue> capacityOverride;
  Descriptions cached;
  std::uint64_t cachedRevision = 0;
};

/// The seam's power source calls as one process makes them, with its snapshots and lists.
class PowerSourcesClient final : public korvel::PowerSources {
 public:
  explicit PowerSourcesClient(PowerSourceList& list) : sources(list) {}

  korvel::HandleRef copyInfo() override;
  korvel::PowerSourceList copyList(korvel::HandleRef info) override;
  korvel::PropertyValue getDescription(korvel::HandleRef info, korvel::HandleRef source) override;
  void release(korvel::HandleRef object) override;

  [[nodiscard]] std::size_t liveObjects() const { return objects.size(); }
  void dropAll() { objects.clear(); }

 private:
  PowerSourceList& sources;
  NameTable<PowerSourceList::Descriptions> objects{0x0b};
};

}  // namespace virtualmac
