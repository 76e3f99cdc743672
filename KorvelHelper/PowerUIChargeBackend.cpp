#include "PowerUIChargeBackend.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "Base/ByteList.h"
#include "Base/Scoped.h"

namespace korvel {

namespace {

constexpr std::string_view frameworkPath =
    "/System/Library/PrivateFrameworks/PowerUI.framework/PowerUI";
constexpr std::string_view className = "PowerUISmartChargeClient";
constexpr std::string_view clientName = "Korvel";

constexpr std::string_view isSupported = "isMCLSupported";
constexpr std::string_view getLimit = "getMCLLimitWithError:";
constexpr std::string_view availableLimits = "availableChargeLimitsWithError:";
constexpr std::string_view setLimitSelector = "setMCLLimit:error:";
// In the order of the check. The second is never called: it tells the interface's generation.
constexpr std::array<std::string_view, 5> requiredSelectors = {
    isSupported, "isMCLCurrentlyEnabled:", getLimit, availableLimits, setLimitSelector};

constexpr std::int64_t lowestLimit = 1;
constexpr std::int64_t fullCharge = 100;  // no limit, for which the framework has 0

using OwnedObject = Scoped<SmartChargeRuntime, HandleRef, &SmartChargeRuntime::release>;

/// A new client of the framework, owned by the caller; 0 when a class or method is missing.
HandleRef makeClient(SmartChargeRuntime& runtime) {
  if (runtime.dlopen(frameworkPath, dlopenNow) == 0) return 0;
  const HandleRef cls = runtime.classFromString(className);
  if (cls == 0 || !runtime.isClass(cls)) return 0;
  const HandleRef alloc = runtime.getClassMethod(cls, "alloc");
  if (alloc == 0) return 0;
  OwnedObject allocated(runtime, runtime.callAlloc(alloc, cls));
  const HandleRef init = runtime.getInstanceMethod(cls, "initWithClientName:");
  if (init == 0 || allocated.get() == 0) return 0;
  return runtime.callInit(init, allocated.take(), clientName);
}

bool isUsable(SmartChargeRuntime& runtime, HandleRef client) {
  for (const std::string_view selector : requiredSelectors) {
    if (!runtime.respondsToSelector(client, selector)) return false;
  }
  return runtime.callBoolean(client, isSupported);
}

/// The number as an integer, 0 for one that no limit can have; none for anything but a number.
std::optional<std::int64_t> limitOf(const PropertyValue& value) {
  if (const auto whole = value.integer()) return whole;
  const auto real = value.real();
  if (!real) return std::nullopt;
  const bool sane =
      *real >= static_cast<double>(lowestLimit) && *real < static_cast<double>(fullCharge + 1);
  return sane ? static_cast<std::int64_t>(*real) : 0;
}

/// The limits on offer, ascending; empty when there is no usable list.
std::vector<std::int64_t> offeredBy(SmartChargeRuntime& runtime, HandleRef client) {
  ErrorSlot error;
  const PropertyValue answer = runtime.callObject(client, availableLimits, error);
  const PropertyValue::Array* elements = answer.array();
  if (error || elements == nullptr) return {};
  std::vector<std::int64_t> limits;
  for (const PropertyValue& element : *elements) {
    const std::optional<std::int64_t> limit = limitOf(element);
    if (!limit) return {};
    if (*limit >= lowestLimit && *limit <= fullCharge) limits.push_back(*limit);
  }
  std::ranges::sort(limits);
  return limits;
}

}  // namespace

std::string PowerUIChargeBackend::BackendError::description() const {
  if (const auto* rejected = std::get_if<Rejected>(&kind)) {
    return "PowerUI rejected charge limit " + std::to_string(rejected->limit);
  }
  return "PowerUI call failed: " + std::get<ObjcCallFailed>(kind).text;
}

std::unique_ptr<PowerUIChargeBackend> PowerUIChargeBackend::make(SmartChargeRuntime& objectRuntime,
                                                                 Logger logger) {
  OwnedObject smartCharge(objectRuntime, makeClient(objectRuntime));
  if (smartCharge.get() == 0 || !isUsable(objectRuntime, smartCharge.get())) return nullptr;
  std::vector<std::int64_t> offered = offeredBy(objectRuntime, smartCharge.get());
  if (!std::ranges::binary_search(offered, fullCharge)) return nullptr;
  return std::unique_ptr<PowerUIChargeBackend>(
      new PowerUIChargeBackend(objectRuntime, logger, smartCharge.take(), std::move(offered)));
}

PowerUIChargeBackend::PowerUIChargeBackend(SmartChargeRuntime& objectRuntime, Logger logger,
                                           HandleRef smartCharge, std::vector<std::int64_t> offered)
    : runtime(objectRuntime), log(logger), client(smartCharge), limits(std::move(offered)) {
  log.log("PowerUI native charge backend ready — limits=%{public}s",
          decimalList(std::span<const std::int64_t>(limits)).c_str());
}

PowerUIChargeBackend::~PowerUIChargeBackend() { runtime.release(client); }

std::int64_t PowerUIChargeBackend::snapped(std::int64_t requested) const {
  return std::min(std::max(requested, limits.front()), fullCharge);
}

std::expected<bool, PowerUIChargeBackend::BackendError> PowerUIChargeBackend::setLimit(
    std::int64_t requested) {
  const std::int64_t target = snapped(requested);
  const auto raw = static_cast<std::uint8_t>(target == fullCharge ? 0 : target);
  ErrorSlot error;
  const bool accepted = runtime.callSetUInt8(client, setLimitSelector, raw, error);
  if (error) return std::unexpected(BackendError(BackendError::ObjcCallFailed{*error}));
  if (!accepted) return std::unexpected(BackendError(BackendError::Rejected{target}));
  const auto readback = readLimit();
  if (!readback) return std::unexpected(readback.error());
  log.log(
      "PowerUI setLimit(%{public}ld) → snapped %{public}ld (raw=%{public}hhu, "
      "readback=%{public}ld)",
      static_cast<long>(requested), static_cast<long>(target), raw, static_cast<long>(*readback));
  return *readback == target;
}

std::expected<std::int64_t, PowerUIChargeBackend::BackendError> PowerUIChargeBackend::readLimit() {
  ErrorSlot error;
  const std::int32_t limit = runtime.callInt32(client, getLimit, error);
  if (error) return std::unexpected(BackendError(BackendError::ObjcCallFailed{*error}));
  return limit == 0 ? fullCharge : std::int64_t{limit};
}

}  // namespace korvel
