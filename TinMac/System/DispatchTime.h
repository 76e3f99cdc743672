#pragma once

#include <cstdint>

namespace tinmac {

/// A moment on the machine's clock without its sleep, in nanoseconds; or one of the two below.
using DispatchTime = std::uint64_t;
inline constexpr DispatchTime timeNow = 0;
inline constexpr DispatchTime timeForever = ~std::uint64_t{0};

/// dispatch_time(): `nanoseconds` after `when`. Never before the clock's start; forever stays
/// forever. A wall clock's moment traps.
DispatchTime timeAfter(DispatchTime when, std::int64_t nanoseconds);
/// The uptime of a moment that is not forever.
std::int64_t uptimeOf(DispatchTime time);

}  // namespace tinmac
