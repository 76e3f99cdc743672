#pragma once

#include <optional>
#include <vector>

#include "Base/PropertyValue.h"
#include "Base/Scoped.h"
#include "Platform/IORegistry.h"

namespace korvel {

/// Reads the battery service's properties and fills in what is missing from its pack and bank
/// children, so that readings see one flat dictionary whatever the machine's layout. Stateless.
namespace BatteryRegistryReader {

/// The merged dictionary; none when the service's own properties cannot be read.
std::optional<PropertyValue::Dictionary> properties(IORegistry& registry, ObjectRef service);

/// The merge step: the root's dictionary, the pack's "BatteryData", the banks' "BatteryData" in
/// registry order.
PropertyValue::Dictionary merged(const PropertyValue::Dictionary& root,
                                 const PropertyValue::Dictionary& pack,
                                 const std::vector<PropertyValue::Dictionary>& banks);

}  // namespace BatteryRegistryReader

using ScopedRegistryObject = Scoped<IORegistry, ObjectRef, &IORegistry::objectRelease>;

}  // namespace korvel
