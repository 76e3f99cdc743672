#pragma once

#include <cstdint>

namespace korvel {

/// A kernel call's return code; 0 is success, the rest is printed as a signed decimal.
using KernReturn = std::int32_t;
/// A name for a kernel object that must be released with objectRelease; 0 is none.
using ObjectRef = std::uint32_t;
/// A name for an open user-client connection; 0 is none.
using ConnectionRef = std::uint32_t;
/// A platform object by address; 0 is none.
using HandleRef = std::uintptr_t;

inline constexpr KernReturn kernSuccess = 0;
inline constexpr KernReturn ioReturnError = static_cast<KernReturn>(0xE00002BCU);
inline constexpr KernReturn ioReturnNoDevice = static_cast<KernReturn>(0xE00002C0U);
inline constexpr KernReturn ioReturnNotPrivileged = static_cast<KernReturn>(0xE00002C1U);
inline constexpr KernReturn ioReturnBadArgument = static_cast<KernReturn>(0xE00002C2U);
inline constexpr KernReturn ioReturnNotOpen = static_cast<KernReturn>(0xE00002CDU);

inline constexpr std::uint32_t ioMessageCanSystemSleep = 0xE0000270U;
inline constexpr std::uint32_t ioMessageSystemWillSleep = 0xE0000280U;
inline constexpr std::uint32_t ioMessageSystemWillNotSleep = 0xE0000290U;
inline constexpr std::uint32_t ioMessageSystemHasPoweredOn = 0xE0000300U;
inline constexpr std::uint32_t ioMessageSystemWillPowerOn = 0xE0000320U;

}  // namespace korvel
