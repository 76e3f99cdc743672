#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Platform/PowerSources.h"
#include "Platform/RootPowerDomain.h"
#include "Platform/UnifiedLog.h"
#include "VirtualMac/Remote/HelperHost.h"
#include "VirtualMac/Remote/Wire.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

/// These functions carry each type that a platform call takes or gives. The rules look at nothing
/// but the call's declaration:
///   an argument by value or by const reference goes to the machine;
///   an argument by reference goes there as it is and comes back as the call left it;
///   callbacks and their context stay at home: the other side sees a null pointer.
/// So a call that is added to the seam needs only its line in the table, unless it brings a new
/// type.

inline void put(WireWriter& to, bool value) { to.boolean(value); }
inline void put(WireWriter& to, double value) { to.real(value); }
template <std::integral Number>
void put(WireWriter& to, Number value) {
  to.i64(static_cast<std::int64_t>(value));
}
inline void put(WireWriter& to, korvel::LogLevel value) { to.u8(static_cast<std::uint8_t>(value)); }
inline void put(WireWriter& to, SeamCall value) { to.u8(static_cast<std::uint8_t>(value)); }
inline void put(WireWriter& to, PeerVerdict value) { to.u8(static_cast<std::uint8_t>(value)); }
inline void put(WireWriter& to, ConnectionBreak value) { to.u8(static_cast<std::uint8_t>(value)); }
inline void put(WireWriter& to, std::string_view value) { to.text(value); }
inline void put(WireWriter& to, const std::string& value) { to.text(value); }
inline void put(WireWriter& to, const korvel::PropertyValue& value) { to.property(value); }
inline void put(WireWriter& to, korvel::Date value) { to.real(value.secondsSinceReference); }
template <std::size_t Size>
void put(WireWriter& to, std::span<std::uint8_t, Size> value) {
  to.raw(value);
}
template <std::size_t Size>
void put(WireWriter& to, std::span<const std::uint8_t, Size> value) {
  to.raw(value);
}
inline void put(WireWriter&, void*) {}
inline void put(WireWriter&, korvel::InterestCallback) {}
void put(WireWriter& to, const korvel::PowerSourceList& value);
void put(WireWriter& to, const InjectedFault& value);
void put(WireWriter& to, const FileVerdict& value);
void put(WireWriter& to, const MachineTime& value);
void put(WireWriter& to, const Effect& value);
template <class Value>
void put(WireWriter& to, const std::optional<Value>& value) {
  to.boolean(value.has_value());
  if (value) put(to, *value);
}

inline void get(WireReader& from, bool& value) { value = from.boolean(); }
inline void get(WireReader& from, double& value) { value = from.real(); }
template <std::integral Number>
void get(WireReader& from, Number& value) {
  const std::int64_t whole = from.i64();
  value = static_cast<Number>(whole);
  if (static_cast<std::int64_t>(value) != whole) from.fail("a number that its type cannot hold");
}
void get(WireReader& from, korvel::LogLevel& value);
void get(WireReader& from, SeamCall& value);
void get(WireReader& from, PeerVerdict& value);
void get(WireReader& from, ConnectionBreak& value);
inline void get(WireReader& from, std::string& value) { value = from.text(); }
inline void get(WireReader& from, korvel::PropertyValue& value) { value = from.property(); }
inline void get(WireReader& from, korvel::Date& value) {
  value.secondsSinceReference = from.real();
}
template <std::size_t Size>
void get(WireReader& from, std::array<std::uint8_t, Size>& value) {
  from.raw(value);
}
inline void get(WireReader&, void*& value) { value = nullptr; }
inline void get(WireReader&, korvel::InterestCallback& value) { value = nullptr; }
void get(WireReader& from, korvel::PowerSourceList& value);
void get(WireReader& from, InjectedFault& value);
void get(WireReader& from, FileVerdict& value);
void get(WireReader& from, MachineTime& value);
void get(WireReader& from, Effect& value);
template <class Value>
void get(WireReader& from, std::optional<Value>& value) {
  value.reset();
  if (from.boolean()) get(from, value.emplace());
}

}  // namespace virtualmac
