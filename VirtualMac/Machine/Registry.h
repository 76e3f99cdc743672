#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/PropertyValue.h"
#include "Platform/IORegistry.h"
#include "VirtualMac/Machine/MachineContext.h"
#include "VirtualMac/Machine/NameTable.h"

namespace virtualmac {

class Battery;
class Adapter;
class Lid;
class SMC;

/// The I/O registry as far as the helper looks: AppleSMC, AppleSmartBattery with its pack and bank
/// entries, IOPMrootDomain. Properties are made from the other parts on demand and kept until
/// something changes.
///
/// Fault model. A service can be missing; its properties can be unreadable; any property can be
/// missing or hold a value of any type; iterating the children can fail. Not modelled: services
/// that come and go while an iterator stands on them.
class Registry {
 public:
  using EntryID = std::uint32_t;
  static constexpr EntryID noEntry = 0;

  Registry(const Battery& pack, const Adapter& charger, const Lid& cover, const SMC& controller,
           MachineContext& shared);

  /// The first service of a class; noEntry: none.
  [[nodiscard]] EntryID matching(std::string_view className) const;
  [[nodiscard]] bool conforms(EntryID entry, std::string_view className) const;
  /// The entries below, in registry order: all of them, or the direct children only.
  [[nodiscard]] std::vector<EntryID> below(EntryID entry, bool recursively) const;
  /// An entry's properties, overrides applied.
  [[nodiscard]] const korvel::PropertyValue& properties(EntryID entry);
  /// One property, without making the whole dictionary where that is cheaper.
  [[nodiscard]] korvel::PropertyValue property(EntryID entry, std::string_view key);

  /// Puts `value` in the place of a property of every entry of a class; an absent value removes the
  /// property.
  void overrideProperty(std::string_view className, std::string_view key,
                        korvel::PropertyValue value);
  void restoreProperty(std::string_view className, std::string_view key);
  /// Hides the services of a class, or shows them again.
  void hideService(std::string_view className, bool hidden);
  bool propertiesUnreadable = false;
  bool iterationFails = false;
  /// The adapter reads as disconnected while its inflow is inhibited, as some machines report it.
  void setInhibitHidesAdapter(bool hides);

 private:
  struct Cached {
    std::uint64_t revision = 0;
    std::int64_t temperature = 0;
    korvel::PropertyValue value;
  };
  [[nodiscard]] korvel::PropertyValue::Dictionary build(EntryID entry) const;
  [[nodiscard]] korvel::PropertyValue::Dictionary buildBatteryService() const;
  [[nodiscard]] korvel::PropertyValue::Dictionary buildPackData() const;
  [[nodiscard]] bool externalConnected() const;
  [[nodiscard]] bool isHidden(std::string_view className) const;
  [[nodiscard]] const korvel::PropertyValue* overriding(EntryID entry, std::string_view key) const;
  [[nodiscard]] static std::string_view className(EntryID entry);

  const Battery& battery;
  const Adapter& adapter;
  const Lid& lid;
  const SMC& smc;
  MachineContext& context;
  std::map<std::pair<std::string, std::string>, korvel::PropertyValue> overrides;
  std::vector<std::string> hiddenServices;
  bool inhibitHidesAdapter = false;
  std::map<EntryID, Cached> cache;
};

/// The seam's registry calls as one process makes them, with its names.
class RegistryClient final : public korvel::IORegistry {
 public:
  explicit RegistryClient(Registry& tree) : registry(tree) {}

  korvel::ObjectRef getMatchingService(std::string_view className) override;
  korvel::PropertyValue createProperty(korvel::ObjectRef entry, std::string_view key) override;
  korvel::KernReturn createProperties(korvel::ObjectRef entry,
                                      korvel::PropertyValue& properties) override;
  korvel::KernReturn createIterator(korvel::ObjectRef entry, std::string_view plane,
                                    std::uint32_t options, korvel::ObjectRef& iterator) override;
  korvel::ObjectRef iteratorNext(korvel::ObjectRef iterator) override;
  bool conformsTo(korvel::ObjectRef object, std::string_view className) override;
  korvel::KernReturn objectRelease(korvel::ObjectRef object) override;

  /// Names held. A helper that gave everything back and still holds one has leaked it.
  [[nodiscard]] std::size_t liveObjects() const { return objects.size(); }
  /// The entry behind a name; Registry::noEntry for iterators and unknown names.
  [[nodiscard]] Registry::EntryID entry(korvel::ObjectRef object);
  void dropAll() { objects.clear(); }

 private:
  struct Object {
    Registry::EntryID entry = Registry::noEntry;
    std::vector<Registry::EntryID> remaining;  ///< An iterator's, last first.
  };
  Registry& registry;
  NameTable<Object> objects{0x03};
};

}  // namespace virtualmac
