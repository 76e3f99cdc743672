#include "VirtualMac/InProcess/Invariants.h"

#include "HelperPersistence.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

namespace {

/// A rule that is broken all the time need not fill the memory.
constexpr std::size_t mostNoted = 20;

}  // namespace

// ---- one rule

void Invariant::violate(std::string_view what) {
  if (noted.size() == mostNoted) return;
  noted.push_back(journalTime(world.now()) + ' ' + std::string(what));
}

bool KeyWrite::isZero() const { return payload.find_first_not_of("0 ") == std::string::npos; }

std::optional<KeyWrite> keyWriteOf(const Journal::Entry& entry) {
  if (entry.kind != "smc" || entry.tells(EffectID::told)) return std::nullopt;
  return KeyWrite{entry.effect.word(0), entry.effect.word(1), entry.tells(EffectID::keyWritten)};
}

std::optional<korvel::HelperState> recordOnDisk(const Machine& machine) {
  const auto file = machine.disk.content(korvel::HelperPersistence::statePath);
  if (!file) return std::nullopt;
  auto record = korvel::decodeStateFile(*file);
  return record ? std::optional(*std::move(record)) : std::nullopt;
}

// ---- all of them

InvariantSet::InvariantSet(World& watched) : world(watched) {
  addHardwareInvariants(rules, world);
  addDischargeInvariants(rules, world);
  addPowerInvariants(rules, world);
  addScheduleInvariants(rules, world);
  addRecordInvariants(rules, world);
  addClientInvariants(rules, world);
  for (const auto& each : rules) {
    world.observers().add(*each);
    world.journal().addListener([rule = each.get(), watching = watch](const Journal::Entry& entry) {
      if (*watching) rule->journalled(entry);
    });
  }
}

InvariantSet::~InvariantSet() {
  *watch = false;
  for (const auto& each : rules) world.observers().remove(*each);
}

void InvariantSet::finish() {
  for (const auto& each : rules) each->finished();
}

std::vector<std::string> InvariantSet::violations() const {
  std::vector<std::string> all;
  for (const auto& each : rules) {
    for (const std::string& line : each->violations()) {
      all.push_back(std::string(each->name()) + ": " + line);
    }
  }
  for (const std::string& line : world.violations()) all.push_back("transport: " + line);
  return all;
}

std::vector<std::string> InvariantSet::names() const {
  std::vector<std::string> all;
  for (const auto& each : rules) all.emplace_back(each->name());
  return all;
}

}  // namespace virtualmac
