#include "IOPMAssertionManager.h"

#include <algorithm>
#include <string_view>

namespace korvel {

namespace {

constexpr double timeoutSeconds = 14400.0;
constexpr std::int64_t levelOn = 255;

PropertyValue::Dictionary assertionProperties(std::string_view type, const std::string& reason) {
  return {{"AssertType", std::string(type)},
          {"AssertLevel", levelOn},
          {"AssertName", reason},
          {"TimeoutSeconds", timeoutSeconds},
          {"TimeoutAction", "TimeoutActionRelease"}};
}

}  // namespace

IOPMAssertionManager::IOPMAssertionManager(PowerAssertions& powerAssertions, Dispatch& dispatch,
                                           UnifiedLog& unifiedLog)
    : assertions(powerAssertions),
      log(unifiedLog, "IOPMAssertion"),
      queue(dispatch.makeSerialQueue("com.korvel.app.helper.iopm")) {}

std::optional<IOPMAssertionID> IOPMAssertionManager::acquire(const std::string& reason) {
  PropertyValue::Dictionary properties = assertionProperties("PreventUserIdleSystemSleep", reason);
  properties.emplace("Details", "Korvel is force-discharging the battery to a target SoC.");
  IOPMAssertionID primary = 0;
  KernReturn code = assertions.createWithProperties(std::move(properties), primary);
  if (code != kernSuccess) {
    log.fault("IOPMAssertionCreateWithProperties (UserIdleSystemSleep) failed: %d", code);
    return std::nullopt;
  }
  queue.sync([this, primary] {
    queue.assertCurrent();
    outstanding.push_back(primary);
  });
  log.log("acquired IOPMAssertion id=%{public}u type=PreventUserIdleSystemSleep reason=%{public}s",
          primary, reason.c_str());

  IOPMAssertionID secondary = 0;
  code =
      assertions.createWithProperties(assertionProperties("PreventSystemSleep", reason), secondary);
  if (code != kernSuccess) {
    log.error(
        "secondary PreventSystemSleep assertion failed: %d — proceeding with idle assertion only",
        code);
    return primary;
  }
  queue.sync([this, primary, secondary] {
    queue.assertCurrent();
    outstanding.push_back(secondary);
    pairedSecondary.insert_or_assign(primary, secondary);
  });
  log.log(
      "acquired secondary IOPMAssertion id=%{public}u type=PreventSystemSleep paired=%{public}u",
      secondary, primary);
  return primary;
}

void IOPMAssertionManager::release(IOPMAssertionID id) {
  std::optional<IOPMAssertionID> secondary;
  queue.sync([this, id, &secondary] {
    queue.assertCurrent();
    if (const auto pair = pairedSecondary.extract(id)) secondary = pair.mapped();
    std::erase_if(outstanding,
                  [&](IOPMAssertionID held) { return held == id || held == secondary; });
  });
  const KernReturn code = assertions.release(id);
  if (code != kernSuccess) log.error("IOPMAssertionRelease(%u) failed: %d", id, code);
  if (!secondary) return;
  const KernReturn secondaryCode = assertions.release(*secondary);
  if (secondaryCode == kernSuccess) {
    log.log("released paired secondary IOPMAssertion id=%{public}u", *secondary);
  } else {
    log.error("IOPMAssertionRelease(secondary %u) failed: %d", *secondary, secondaryCode);
  }
}

void IOPMAssertionManager::releaseAll() {
  for (const IOPMAssertionID id : held()) assertions.release(id);
  queue.sync([this] {
    queue.assertCurrent();
    outstanding.clear();
    pairedSecondary.clear();
  });
}

std::vector<IOPMAssertionID> IOPMAssertionManager::held() {
  std::vector<IOPMAssertionID> copy;
  queue.sync([this, &copy] {
    queue.assertCurrent();
    copy = outstanding;
  });
  return copy;
}

}  // namespace korvel
