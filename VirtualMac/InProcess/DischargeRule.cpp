#include "VirtualMac/InProcess/DischargeRule.h"

#include <algorithm>

#include "MachineReadings.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {

namespace {

constexpr std::int64_t limitOfEmptyRecord = 80;

bool isDischargeKey(std::string_view key) {
  return key == "CHIE" || key == "CH0I" || key == "CH0J";
}

}  // namespace

// ---- readings

std::optional<std::int64_t> Readings::capacity() {
  return korvel::MachineReadings::batteryCapacityPercent(eye.powerSources);
}

bool Readings::lidClosed() { return korvel::MachineReadings::clamshellClosed(eye.registry); }

std::optional<std::int64_t> Readings::celsius() {
  return korvel::MachineReadings::batteryTemperatureCelsius(eye.registry);
}

// ---- rule

DischargeRule::DischargeRule(World& watched, std::string_view ruleName)
    : Invariant(watched, ruleName), readings(watched.machine()), machine(watched.machine()) {}

void DischargeRule::journalled(const Journal::Entry& entry) {
  const Lane& lane = world.scheduler().current();
  happened(entry, lane, see(entry, lane));
}

bool DischargeRule::see(const Journal::Entry& entry, const Lane& lane) {
  if (entry.kind == "proc" && !entry.tells(EffectID::signalSent)) forget();
  seeLog(entry.message(), lane);
  if (entry.effect.field("forceDischargeActive") == "false") active = false;
  const std::optional<KeyWrite> write = keyWriteOf(entry);
  if (!write || !isDischargeKey(write->key)) return false;
  if (write->isZero()) {
    active = false;
    return false;
  }
  const bool begins = !active && write->obeyed;
  if (begins) active = true;
  return begins;
}

void DischargeRule::forget() {
  active = false;
  armed = false;
  inMemory.reset();
  setLast.reset();
  recordUnreadable = false;
  audited.clear();
  posted.clear();
}

void DischargeRule::seeLog(std::string_view text, const Lane& lane) {
  if (contains(text, "clamshell keep-awake ARMED")) armed = true;
  if (contains(text, "clamshell keep-awake DISARMED")) armed = false;
  if (contains(text, "clamshell keep-awake NOT active")) armed = false;
  if (contains(text, "force-discharge auto-stopped")) active = false;
  if (contains(text, "all clients gone — suspending enforcement")) active = false;
  if (text.starts_with("HelperImpl boot ")) inMemory = numberAfter(text, "limit=");
  if (text.starts_with("state.json ")) recordUnreadable = true;
  if (contains(text, "persistence.write failed")) recordUnreadable = false;
  if (contains(text, "reverted in-memory state")) {
    const auto record = recordUnreadable ? std::nullopt : recordOnDisk(machine);
    inMemory = record ? record->chargeLimit : limitOfEmptyRecord;
    if (!record || !record->forceDischargeActive) active = false;
  }
  seeAudit(text, lane);
}

void DischargeRule::seeAudit(std::string_view text, const Lane& lane) {
  // A limit that is refused on the spot posts no work.
  const bool isLimit = text.starts_with("setChargeLimit(");
  const auto asked = isLimit ? numberAfter(text, "(") : std::nullopt;
  if (asked && *asked >= 20 && *asked <= 100) {
    audited.insert_or_assign(&lane, Command{asked, false});
  }
  for (const std::string_view ending :
       {"forceDischarge(0)", "clearChargeLimit pid", "releaseLimitUntilFullThenRestore pid",
        "resetAllSMCKeys pid"}) {
    if (text.starts_with(ending)) audited.insert_or_assign(&lane, Command{std::nullopt, true});
  }
}

void DischargeRule::workPosted(const Lane& from, const Lane& to, std::uint64_t number) {
  const auto found = audited.find(&from);
  if (found == audited.end()) return;
  posted.insert_or_assign({&to, number}, found->second);
  audited.erase(found);
}

void DischargeRule::workBegins(const Lane& lane, std::uint64_t number) {
  const auto found = posted.find({&lane, number});
  if (found == posted.end() || !found->second.limit) return;
  inMemory = found->second.limit;
  setLast = found->second.limit;
}

void DischargeRule::workEnds(const Lane& lane, std::uint64_t number) {
  const auto found = posted.find({&lane, number});
  if (found == posted.end()) return;
  // Even if its key writes failed, the discharge is over for the helper and its rules.
  if (found->second.endsDischarge) active = false;
  posted.erase(found);
}

std::int64_t DischargeRule::limit() const {
  if (inMemory) return *inMemory;
  const auto record = recordOnDisk(machine);
  return record ? record->chargeLimit : 0;
}

std::int64_t DischargeRule::lowestTarget() const {
  return std::min(limit(), setLast.value_or(limit()));
}

}  // namespace virtualmac
