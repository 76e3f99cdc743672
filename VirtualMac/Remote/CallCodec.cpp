#include "VirtualMac/Remote/CallCodec.h"

#include <limits>

#include "VirtualMac/Machine/Bounds.h"

namespace virtualmac {

using korvel::HandleRef;
using korvel::LogLevel;

namespace {

/// Beyond it, no later moment would fit.
constexpr std::int64_t latestMoment = std::numeric_limits<std::int64_t>::max() / 2;

}  // namespace

void put(WireWriter& to, const korvel::PowerSourceList& value) {
  put(to, value.handle);
  put(to, value.isArray);
  to.u32(static_cast<std::uint32_t>(value.elements.size()));
  for (const HandleRef element : value.elements) put(to, element);
}

void get(WireReader& from, korvel::PowerSourceList& value) {
  get(from, value.handle);
  get(from, value.isArray);
  value.elements.clear();
  for (std::uint32_t count = from.u32(); count > 0 && !from.failed(); --count)
    get(from, value.elements.emplace_back());
}

void put(WireWriter& to, const InjectedFault& value) {
  to.i64(value.code);
  to.text(value.text);
}

void get(WireReader& from, InjectedFault& value) {
  value.code = from.i64();
  value.text = from.text();
}

void put(WireWriter& to, const FileVerdict& value) {
  put(to, value.fault);
  to.i64(value.changeRefusal);
  to.u64(value.writeLimit);
}

void get(WireReader& from, FileVerdict& value) {
  get(from, value.fault);
  value.changeRefusal = from.i64();
  value.writeLimit = from.u64();
}

void put(WireWriter& to, const MachineTime& value) {
  to.i64(value.steadyNanoseconds);
  to.i64(value.uptime);
  to.real(value.speed);
  to.boolean(value.frozen);
}

void get(WireReader& from, MachineTime& value) {
  value.steadyNanoseconds = from.i64();
  value.uptime = from.i64();
  value.speed = from.real();
  value.frozen = from.boolean();
  // Moments are computed from these, in 64 bits.
  const auto isMoment = [](std::int64_t nanoseconds) {
    return nanoseconds >= 0 && nanoseconds <= latestMoment;
  };
  const bool isSpeed = value.speed >= bounds::slowest && value.speed <= bounds::fastest;
  if (!isSpeed) from.fail("a speed that no machine has");
  if (!isMoment(value.steadyNanoseconds) || !isMoment(value.uptime))
    from.fail("a moment that no clock tells");
}

void put(WireWriter& to, const Effect& value) {
  to.u8(static_cast<std::uint8_t>(value.id));
  to.u32(static_cast<std::uint32_t>(value.values.size()));
  for (const std::string& each : value.values) to.text(each);
}

void get(WireReader& from, Effect& value) {
  value.id = static_cast<EffectID>(from.u8());
  value.values.clear();
  for (std::uint32_t count = from.u32(); count > 0 && !from.failed(); --count) {
    value.values.push_back(from.text());
  }
  if (!isWhole(value)) from.fail("an effect with another number of values than its pattern");
}

void get(WireReader& from, LogLevel& value) {
  switch (const auto level = static_cast<LogLevel>(from.u8())) {
    case LogLevel::Default:
    case LogLevel::Error:
    case LogLevel::Fault:
      value = level;
      return;
  }
  from.fail("an unknown log level");
}

void get(WireReader& from, SeamCall& value) {
  const std::uint8_t number = from.u8();
  if (number >= seamCallCount)
    from.fail("an unknown platform call");
  else
    value = static_cast<SeamCall>(number);
}

void get(WireReader& from, PeerVerdict& value) {
  switch (const auto verdict = static_cast<PeerVerdict>(from.u8())) {
    case PeerVerdict::Unknown:
    case PeerVerdict::Fails:
    case PeerVerdict::Satisfies:
      value = verdict;
      return;
  }
  from.fail("an unknown verdict");
}

void get(WireReader& from, ConnectionBreak& value) {
  switch (const auto moment = static_cast<ConnectionBreak>(from.u8())) {
    case ConnectionBreak::AtHandler:
    case ConnectionBreak::InResume:
    case ConnectionBreak::AfterResume:
      value = moment;
      return;
  }
  from.fail("an unknown moment");
}

}  // namespace virtualmac
