#include "Tests/sweeps/Checks.h"

#include <algorithm>

#include "HelperPersistence.h"

namespace sweeps {

bool Findings::expect(bool holds, std::string_view what) {
  if (!holds) noted.emplace_back(what);
  return holds;
}

std::string Findings::text() const {
  std::string all;
  for (const std::string& each : noted) all += "  " + each + '\n';
  return all;
}

std::optional<std::string> stateFile(const virtualmac::Machine& mac) {
  return mac.disk.content(korvel::HelperPersistence::statePath);
}

Leftovers leftoversOn(virtualmac::World& world) {
  virtualmac::Machine& mac = world.machine();
  Leftovers left;
  left.file = stateFile(mac);
  left.record = recordOnDisk(mac);
  left.chargingPaused = chargingPaused(mac);
  left.inflowInhibited = mac.smc.inflowInhibited();
  left.sleepDisabled = mac.power.sleepDisabled();
  return left;
}

namespace {

/// Without a charging key the helper sets the system's own limit, never below the lowest that the
/// system offers.
bool usesNativeLimit(virtualmac::Machine& mac) {
  const korvel::HelperCapabilities caps = trueCapabilities(mac);
  return caps.nativeCharging && !caps.tahoeCharging && !caps.preTahoeCharging;
}

std::int64_t lowestNativeLimit(const virtualmac::Machine& mac) {
  std::int64_t lowest = 100;
  const korvel::PropertyValue& offered = mac.profile().powerUI.offeredLimits;
  if (offered.array() == nullptr) return lowest;
  for (const korvel::PropertyValue& each : *offered.array()) {
    const std::int64_t limit = each.integer().value_or(0);
    if (limit >= 1) lowest = std::min(lowest, limit);
  }
  return lowest;
}

/// Returns whether the gate holds charging back for an enforced limit.
bool heldBackFor(virtualmac::Machine& mac, std::int64_t limit) {
  if (!usesNativeLimit(mac)) return mac.smc.chargingInhibited();
  return mac.powerUI.currentLimit() == std::max(limit, lowestNativeLimit(mac));
}

}  // namespace

bool chargingPaused(virtualmac::Machine& mac) {
  return mac.smc.chargingInhibited() || mac.powerUI.currentLimit() != 0;
}

bool gateIsRight(virtualmac::Machine& mac, std::int64_t limit, std::int64_t band) {
  const std::int64_t charge = mac.battery.percent();
  if (limit == 100) return !chargingPaused(mac);
  if (!mac.adapter.isConnected()) return true;
  if (charge >= limit) return heldBackFor(mac, limit);
  const std::int64_t effective = std::min(std::clamp<std::int64_t>(band, 1, 20), limit - 1);
  return charge >= limit - effective || !chargingPaused(mac);
}

void healMachine(virtualmac::Machine& mac) {
  mac.powerSources.snapshotFails = false;
  mac.battery.overrideTemperatureCelsius(std::nullopt);
  mac.adapter.connect();
  mac.lid.open();
  mac.power.wake();
}

korvel::HelperCapabilities trueCapabilities(virtualmac::Machine& mac) {
  const auto has = [&mac](std::string_view key) { return mac.smc.value(key).has_value(); };
  korvel::HelperCapabilities caps;
  caps.tahoeCharging = has("CHTE");
  caps.preTahoeCharging = !caps.tahoeCharging && has("CH0B") && has("CH0C");
  caps.tahoeDischarge = has("CHIE");
  caps.preTahoeDischarge = !caps.tahoeDischarge && has("CH0I");
  caps.nativeCharging = mac.profile().powerUI.present && mac.profile().powerUI.supported;
  return caps;
}

void checkStateFile(Findings& findings, const virtualmac::Machine& mac) {
  const auto directory = mac.disk.facts(korvel::HelperPersistence::directory);
  const auto file = mac.disk.facts(korvel::HelperPersistence::statePath);
  if (!file) return;
  findings.expect(recordOnDisk(mac).has_value(), "state.json holds no complete record");
  findings.expect(file->mode == 0600, "state.json has another mode than 0600");
  findings.expect(directory && directory->mode == 0700, "its directory has another mode than 0700");
}

void checkAssertions(Findings& findings, virtualmac::World& world) {
  for (const virtualmac::Assertion& each : world.machine().power.assertions()) {
    findings.expect(world.machine().process(each.owner) != nullptr,
                    "assertion " + std::to_string(each.id) + " outlives its process");
  }
}

void checkIdleProcess(Findings& findings, virtualmac::World& world, bool descriptorsToo) {
  const auto process = world.machine().process(world.helperPid().value_or(0));
  if (!findings.expect(process != nullptr, "the helper has no process")) return;
  if (descriptorsToo) {
    findings.expect(process->files.openDescriptors() == 0, "descriptors are left open");
  }
  findings.expect(process->files.currentUmask() == 022, "the umask was not restored");
  findings.expect(process->registry.liveObjects() == 0, "registry objects were not released");
  findings.expect(process->powerSources.liveObjects() == 0, "power sources were not released");
  findings.expect(process->codeSigning.liveObjects() == 0, "code objects were not released");
  findings.expect(process->smc.openConnections() <= 1, "a connection to the SMC was left open");
}

void checkConduct(Findings& findings, virtualmac::World& world,
                  const virtualmac::InvariantSet& invariants) {
  for (const std::string& each : invariants.violations()) findings.note("rule broken: " + each);
  findings.expect(world.machine().smc.forbiddenWrites() == 0, "a forbidden key was written");
}

bool gateSettles(virtualmac::World& world, const std::vector<std::int64_t>& limits) {
  virtualmac::Machine& mac = world.machine();
  const auto right = [&] {
    return std::any_of(limits.begin(), limits.end(),
                       [&mac](std::int64_t limit) { return gateIsRight(mac, limit); });
  };
  world.runFor(5.1);
  const int before = mac.battery.percent();
  world.runFor(4.9);
  if (right()) return true;
  if (mac.battery.percent() == before) return false;
  world.runFor(5.1);
  return right();
}

}  // namespace sweeps
