#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "Platform/KernelTypes.h"

namespace korvel {

/// The size of the block that goes in and comes out of every SMC call.
inline constexpr std::size_t smcBlockSize = 80;
using SMCBlockView = std::span<const std::uint8_t, smcBlockSize>;
using SMCBlockSpan = std::span<std::uint8_t, smcBlockSize>;

/// The AppleSMC user client, call for call.
/// Implementations translate and nothing else: no retry, no cache, no logging.
/// One caller at a time; the helper calls it on smcQueue, and before that queue has work.
class SMCUserClient {
 public:
  virtual ~SMCUserClient() = default;
  /// IOServiceGetMatchingService(kIOMainPortDefault, IOServiceMatching("AppleSMC")). 0: no such
  /// service. The caller releases the result with objectRelease.
  virtual ObjectRef matchAppleSMC() = 0;
  /// IOServiceOpen(service, mach_task_self(), 0, &connection). `connection` is written on success.
  virtual KernReturn open(ObjectRef service, ConnectionRef& connection) = 0;
  /// IOConnectCallStructMethod(connection, 2, input, 80, output, &size) with size set to 80 before.
  /// A failed call may leave `output` as it was.
  virtual KernReturn callStruct(ConnectionRef connection, SMCBlockView input,
                                SMCBlockSpan output) = 0;
  /// IOServiceClose(connection).
  virtual KernReturn close(ConnectionRef connection) = 0;
  /// IOObjectRelease(service).
  virtual KernReturn objectRelease(ObjectRef service) = 0;
};

}  // namespace korvel
