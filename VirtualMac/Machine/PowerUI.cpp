#include "VirtualMac/Machine/PowerUI.h"

#include <algorithm>
#include <span>
#include <string>

namespace virtualmac {

namespace {

using korvel::ErrorSlot;
using korvel::HandleRef;
using korvel::PropertyValue;

constexpr std::string_view frameworkPath =
    "/System/Library/PrivateFrameworks/PowerUI.framework/PowerUI";
constexpr std::string_view className = "PowerUISmartChargeClient";

/// Handles of the objects that a process has once.
constexpr HandleRef frameworkHandle = 0x2b;
constexpr HandleRef classHandle = 0x2f;
constexpr HandleRef allocMethod = 0x33;
constexpr HandleRef initMethod = 0x37;

constexpr std::string_view allocSelector = smartChargeMethods[0];
constexpr std::string_view initSelector = smartChargeMethods[1];
constexpr auto clientSelectors = std::span(smartChargeMethods).subspan<2>();

std::string limitText(std::uint8_t percent) {
  return percent == 0 ? "none" : std::to_string(percent);
}

}  // namespace

PowerUI::PowerUI(const PowerUIProfile& profile, MachineContext& shared)
    : frameworkPresent(profile.present),
      classPresent(profile.present),
      supported(profile.supported),
      offeredLimits(profile.offeredLimits),
      context(shared),
      limit(profile.currentLimit) {}

void PowerUI::setLimitByUser(std::uint8_t percent) {
  limit = percent;
  context.noteChange();
  context.journal.record<EffectID::nativeLimitByUser>(limitText(percent));
}

bool PowerUI::setLimit(std::int32_t pid, std::uint8_t percent) {
  if (refuses || setError) {
    context.journal.record<EffectID::nativeLimitRefused>(limitText(percent), pid);
    return false;
  }
  if (keepsOldLimit) {
    context.journal.record<EffectID::nativeLimitIgnored>(limitText(percent), pid);
    return true;
  }
  context.journal.record<EffectID::nativeLimitSet>(limitText(percent), pid);
  limit = percent;
  context.noteChange();
  return true;
}

HandleRef SmartChargeClient::dlopen(std::string_view path, int mode) {
  if (path != frameworkPath || mode == 0 || !powerUI.frameworkPresent) return 0;
  loaded = true;
  return frameworkHandle;
}

HandleRef SmartChargeClient::classFromString(std::string_view name) {
  return loaded && powerUI.classPresent && name == className ? classHandle : 0;
}

bool SmartChargeClient::isClass(HandleRef object) {
  return object == classHandle && !powerUI.classIsNotAClass;
}

bool SmartChargeClient::offers(std::string_view selector) const {
  return !powerUI.missingMethods.contains(selector);
}

HandleRef SmartChargeClient::getClassMethod(HandleRef cls, std::string_view selector) {
  return cls == classHandle && selector == allocSelector && offers(selector) ? allocMethod : 0;
}

HandleRef SmartChargeClient::getInstanceMethod(HandleRef cls, std::string_view selector) {
  return cls == classHandle && selector == initSelector && offers(selector) ? initMethod : 0;
}

HandleRef SmartChargeClient::callAlloc(HandleRef method, HandleRef cls) {
  if (method != allocMethod || cls != classHandle) return 0;
  return objects.insert(Object{});
}

HandleRef SmartChargeClient::callInit(HandleRef method, HandleRef object, std::string_view) {
  if (method != initMethod || !objects.erase(object)) return 0;
  if (powerUI.initGivesNothing) return 0;
  // An initialiser may return another object than the one it was given, and this one does.
  return objects.insert(Object{true});
}

bool SmartChargeClient::isClient(HandleRef object) {
  const Object* found = objects.find(object);
  return found != nullptr && found->initialised;
}

bool SmartChargeClient::respondsToSelector(HandleRef object, std::string_view selector) {
  return isClient(object) && offers(selector) &&
         std::ranges::find(clientSelectors, selector) != clientSelectors.end();
}

bool SmartChargeClient::callBoolean(HandleRef object, std::string_view selector) {
  return respondsToSelector(object, selector) && selector == "isMCLSupported" && powerUI.supported;
}

std::int32_t SmartChargeClient::callInt32(HandleRef object, std::string_view selector,
                                          ErrorSlot& error) {
  if (!respondsToSelector(object, selector) || selector != "getMCLLimitWithError:") return 0;
  if (powerUI.getError) error = *powerUI.getError;
  return powerUI.getError ? 0 : powerUI.limit;
}

PropertyValue SmartChargeClient::callObject(HandleRef object, std::string_view selector,
                                            ErrorSlot& error) {
  if (!respondsToSelector(object, selector)) return {};
  if (selector != "availableChargeLimitsWithError:") return {};
  if (powerUI.offeredError) error = *powerUI.offeredError;
  return powerUI.offeredLimits;
}

bool SmartChargeClient::callSetUInt8(HandleRef object, std::string_view selector,
                                     std::uint8_t value, ErrorSlot& error) {
  if (!respondsToSelector(object, selector) || selector != "setMCLLimit:error:") return false;
  if (powerUI.setError) error = *powerUI.setError;
  return powerUI.setLimit(pid, value);
}

void SmartChargeClient::release(HandleRef object) { objects.erase(object); }

}  // namespace virtualmac
