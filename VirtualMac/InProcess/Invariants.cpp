#include "VirtualMac/InProcess/Invariants.h"

#include <algorithm>
#include <charconv>

#include "HelperPersistence.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

namespace {

/// A rule that is broken all the time need not be told a million times.
constexpr std::size_t mostNoted = 20;

}  // namespace

// ---- one rule

void Invariant::journalled(const Journal::Entry&) {}
void Invariant::finished() {}

void Invariant::violate(std::string_view what) {
  if (noted.size() == mostNoted) return;
  std::string line = journalLine({world.now(), "", std::string(what)});
  // Without the columns of the empty kind.
  const std::size_t timeEnds = line.find(' ');
  line.replace(timeEnds, line.size() - timeEnds, " " + std::string(what));
  noted.push_back(std::move(line));
}

bool JournalledWrite::isZero() const {
  return payload.find_first_not_of("0 ") == std::string::npos;
}

JournalledWrite journalledWrite(std::string_view text) {
  JournalledWrite write;
  const std::size_t arrow = text.find(" <- ");
  if (arrow == std::string_view::npos) return write;
  write.key = text.substr(0, arrow);
  std::string_view rest = text.substr(arrow + 4);
  const std::size_t end = rest.find_first_not_of("0123456789abcdef ");
  std::string_view payload = rest.substr(0, end);
  write.forbidden = contains(rest, "FORBIDDEN");
  write.obeyed = !contains(rest, "refused") && !contains(rest, "ignored") && !write.forbidden;
  // A word after the payload may begin with hexadecimal letters; bytes are two digits each.
  while (!payload.empty() && payload.size() % 3 != 2) payload.remove_suffix(1);
  while (!payload.empty() && payload.back() == ' ') payload.remove_suffix(1);
  write.payload = payload;
  return write;
}

std::optional<std::int64_t> numberAfter(std::string_view text, std::string_view word) {
  const std::size_t found = text.find(word);
  if (found == std::string_view::npos) return std::nullopt;
  const std::string_view digits = text.substr(found + word.size());
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end == digits.data()) return std::nullopt;
  return number;
}

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

std::optional<korvel::HelperState> recordOnDisk(const Machine& machine) {
  const auto file = machine.disk.content(korvel::HelperPersistence::statePath);
  if (!file) return std::nullopt;
  auto record = korvel::decodeStateFile(*file);
  return record ? std::optional(*std::move(record)) : std::nullopt;
}

// ---- all of them

struct InvariantSet::Parts {
  explicit Parts(World& watched) : world(watched) {
    addHardwareInvariants(list, world);
    addDischargeInvariants(list, world);
    addPowerInvariants(list, world);
    addScheduleInvariants(list, world);
    addRecordInvariants(list, world);
    addClientInvariants(list, world);
  }
  World& world;
  InvariantList list;
};

InvariantSet::InvariantSet(World& world) : parts(std::make_unique<Parts>(world)) {
  for (const auto& each : parts->list) {
    world.observers().add(*each);
    world.journal().addListener([rule = each.get(), watching = watch](const Journal::Entry& entry) {
      if (*watching) rule->journalled(entry);
    });
  }
}

InvariantSet::~InvariantSet() {
  *watch = false;
  for (const auto& each : parts->list) parts->world.observers().remove(*each);
}

void InvariantSet::finish() {
  for (const auto& each : parts->list) each->finished();
}

std::vector<std::string> InvariantSet::violations() const {
  std::vector<std::string> all;
  for (const auto& each : parts->list) {
    for (const std::string& line : each->violations()) {
      all.push_back(std::string(each->name()) + ": " + line);
    }
  }
  for (const std::string& line : parts->world.violations()) all.push_back("transport: " + line);
  return all;
}

std::vector<std::string> InvariantSet::names() const {
  std::vector<std::string> all;
  for (const auto& each : parts->list) all.emplace_back(each->name());
  return all;
}

}  // namespace virtualmac
