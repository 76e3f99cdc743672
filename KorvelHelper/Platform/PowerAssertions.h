#pragma once

#include <cstdint>

#include "Base/PropertyValue.h"
#include "Platform/KernelTypes.h"

namespace korvel {

/// IOPM power assertions, call for call. Any thread. The system drops those of a dead process.
class PowerAssertions {
 public:
  virtual ~PowerAssertions() = default;
  /// IOPMAssertionCreateWithProperties(properties, &id). `id` is written on success.
  virtual KernReturn createWithProperties(const PropertyValue& properties, std::uint32_t& id) = 0;
  /// IOPMAssertionRelease(id).
  virtual KernReturn release(std::uint32_t id) = 0;
};

}  // namespace korvel
