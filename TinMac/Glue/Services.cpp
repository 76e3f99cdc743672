// Code objects, wall clock, main bundle and PowerUI: each function is one call of the machine's.

#include "Platform/CodeSigning.h"
#include "Platform/Process.h"
#include "Platform/SmartChargeRuntime.h"
#include "Platform/WallClock.h"
#include "TinMac/Frameworks/Below.h"
#include "TinMac/Frameworks/BelowServices.h"
#include "TinMac/Glue/Machine.h"
#include "TinMac/Glue/Outgoing.h"
#include "TinMac/System/Trap.h"

using korvel::PropertyValue;
using tinmac::machine;

namespace {

tinmac::ValueHearer& outgoing() {
  static thread_local tinmac::ValueHearer hearer;
  return hearer;
}

void fill(TinErrorSlot slot, void* context, const korvel::ErrorSlot& error) {
  if (error) slot(context, error->data(), error->size());
}

}  // namespace

namespace tinmac {

PropertyValue takeOutgoingValue() {
  std::vector<HeardValue> values = outgoing().take();
  if (values.size() != 1 || !std::holds_alternative<PropertyValue>(values.front()))
    trap("a call takes one value, and was told another number", std::to_string(values.size()));
  return std::get<PropertyValue>(values.front());
}

}  // namespace tinmac

extern "C" {

const TinValueSink* tinOutgoingValue() { return &outgoing().sink(); }

std::int32_t tinStaticCodeWithPath(const char* path, std::uint64_t* code) {
  return machine().codeSigning.staticCodeCreateWithPath(path, *code);
}

std::int32_t tinGuestWithPid(std::int32_t pid, std::uint64_t* code) {
  return machine().codeSigning.copyGuestWithPid(pid, *code);
}

std::int32_t tinStaticCodeOf(std::uint64_t code, std::uint64_t* staticCode) {
  return machine().codeSigning.copyStaticCode(code, *staticCode);
}

std::int32_t tinSigningInformation(std::uint64_t staticCode, std::uint32_t flags,
                                   const TinValueSink* sink) {
  PropertyValue information;
  const korvel::SecurityStatus status =
      machine().codeSigning.copySigningInformation(staticCode, flags, information);
  tinmac::tell(information, *sink);
  return status;
}

void tinCodeRelease(std::uint64_t code) { machine().codeSigning.release(code); }

double tinSecondsSince2001() { return machine().clock.now().secondsSinceReference; }

void tinBundleExecutablePath(const TinValueSink* sink) {
  tinmac::tell(machine().process.bundleExecutablePath(), *sink);
}

void tinBundleInfo(const char* key, const TinValueSink* sink) {
  tinmac::tell(machine().process.bundleInfo(key), *sink);
}

std::uint64_t tinPowerUILoad(const char* path, std::int32_t mode) {
  return machine().smartCharge.dlopen(path, mode);
}

std::uint64_t tinPowerUIClass(const char* name) {
  return machine().smartCharge.classFromString(name);
}

std::uint32_t tinPowerUIIsClass(std::uint64_t object) {
  return machine().smartCharge.isClass(object) ? 1 : 0;
}

std::uint64_t tinPowerUIClassMethod(std::uint64_t cls, const char* selector) {
  return machine().smartCharge.getClassMethod(cls, selector);
}

std::uint64_t tinPowerUIInstanceMethod(std::uint64_t cls, const char* selector) {
  return machine().smartCharge.getInstanceMethod(cls, selector);
}

std::uint64_t tinPowerUIAlloc(std::uint64_t method, std::uint64_t cls) {
  return machine().smartCharge.callAlloc(method, cls);
}

std::uint64_t tinPowerUIInit(std::uint64_t method, std::uint64_t object, const char* clientName) {
  return machine().smartCharge.callInit(method, object, clientName);
}

std::uint32_t tinPowerUIResponds(std::uint64_t object, const char* selector) {
  return machine().smartCharge.respondsToSelector(object, selector) ? 1 : 0;
}

std::uint32_t tinPowerUIBoolean(std::uint64_t object, const char* selector) {
  return machine().smartCharge.callBoolean(object, selector) ? 1 : 0;
}

std::int32_t tinPowerUIInt32(std::uint64_t object, const char* selector, TinErrorSlot slot,
                             void* context) {
  korvel::ErrorSlot error;
  const std::int32_t result = machine().smartCharge.callInt32(object, selector, error);
  fill(slot, context, error);
  return result;
}

void tinPowerUIObject(std::uint64_t object, const char* selector, const TinValueSink* sink,
                      TinErrorSlot slot, void* context) {
  korvel::ErrorSlot error;
  tinmac::tell(machine().smartCharge.callObject(object, selector, error), *sink);
  fill(slot, context, error);
}

std::uint32_t tinPowerUISetUInt8(std::uint64_t object, const char* selector, std::uint32_t value,
                                 TinErrorSlot slot, void* context) {
  korvel::ErrorSlot error;
  const bool done =
      machine().smartCharge.callSetUInt8(object, selector, static_cast<std::uint8_t>(value), error);
  fill(slot, context, error);
  return done ? 1 : 0;
}

void tinPowerUIRelease(std::uint64_t object) { machine().smartCharge.release(object); }

}  // extern "C"
