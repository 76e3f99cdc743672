#include "VirtualMac/Machine/FaultNames.h"

#include <algorithm>

#include "VirtualMac/Machine/FaultTableEntries.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Machine/Nearest.h"

namespace virtualmac {

namespace {

/// Null: there is no such fault.
const FaultEntry* entryOf(std::string_view name) {
  const auto entries = faultEntries();
  const auto found = std::ranges::find_if(
      entries, [name](const FaultEntry& entry) { return entry.description.name == name; });
  return found == entries.end() ? nullptr : &*found;
}

std::string unknownName(std::string_view name) {
  std::vector<std::string_view> names;
  for (const FaultDescription& fault : faultCatalogue()) names.push_back(fault.name);
  return unknownWord("fault", name, names);
}

std::vector<std::string> words(std::string_view line) {
  std::vector<std::string> found;
  while (!line.empty()) {
    const std::size_t end = line.find(' ');
    if (end != 0) found.emplace_back(line.substr(0, end));
    line.remove_prefix(end == std::string_view::npos ? line.size() : end + 1);
  }
  return found;
}

/// The line a fault is remembered by; switching it again with other values replaces it.
std::string rememberedLine(std::string_view name, std::span<const std::string> arguments,
                           std::size_t count) {
  std::string line(name);
  for (std::size_t i = 0; i < std::min(count, arguments.size()); ++i) line += " " + arguments[i];
  return line;
}

/// Whether a remembered line is about this fault, or this fault of a key: `which` begins it.
bool isAbout(std::string_view line, std::string_view which) {
  return line.starts_with(which) && (line.size() == which.size() || line[which.size()] == ' ');
}

bool isOn(const Machine& machine, std::string_view which) {
  return std::ranges::any_of(machine.activeFaultLines,
                             [&](const std::string& line) { return isAbout(line, which); });
}

void forget(Machine& machine, std::string_view which) {
  std::erase_if(machine.activeFaultLines,
                [&](const std::string& line) { return isAbout(line, which); });
}

void remember(Machine& machine, const FaultEntry& entry, std::span<const std::string> arguments,
              bool on) {
  const std::string_view name = entry.description.name;
  const std::string which = rememberedLine(name, arguments, entry.selectors);
  forget(machine, which);
  if (!on) return machine.tell("fault " + which + " off");
  const std::string whole = rememberedLine(name, arguments, arguments.size());
  std::string told = "fault " + whole + " on";
  for (const FaultEntry& other : faultEntries()) {
    // Faults with one target replace each other.
    if (entry.target.empty() || other.target != entry.target) continue;
    const std::string_view replaced = other.description.name;
    if (isOn(machine, replaced)) told += " (in place of " + std::string(replaced) + ")";
    forget(machine, replaced);
  }
  machine.tell(std::move(told));
  if (!entry.momentary) machine.activeFaultLines.push_back(whole);
}

}  // namespace

std::span<const FaultDescription> faultCatalogue() {
  static const std::vector<FaultDescription> catalogue = [] {
    std::vector<FaultDescription> made;
    made.reserve(faultEntries().size());
    for (const FaultEntry& entry : faultEntries()) made.push_back(entry.description);
    std::ranges::sort(made, {}, &FaultDescription::name);
    return made;
  }();
  return catalogue;
}

std::expected<void, std::string> setFault(Machine& machine, std::string_view name,
                                          std::span<const std::string> arguments, bool on) {
  const FaultEntry* found = entryOf(name);
  if (found == nullptr) return std::unexpected(unknownName(name));
  const std::string usage =
      std::string(name) + " takes " +
      (found->description.arguments.empty() ? std::string("no arguments")
                                            : std::string(found->description.arguments));
  const std::size_t needed = on ? found->needed : found->selectors;
  if (arguments.size() < needed || (arguments.size() > found->accepted)) {
    return std::unexpected(usage);
  }
  // To end what has not begun would undo what is not a fault: a key's value, a missing service.
  if (!on && !isOn(machine, rememberedLine(name, arguments, found->selectors))) return {};
  FaultArguments given(arguments);
  found->apply(machine, given, on);
  if (given.complaint) return std::unexpected(usage + ": " + *given.complaint);
  remember(machine, *found, arguments, on);
  return {};
}

std::expected<void, std::string> setFault(Machine& machine, std::string_view line, bool on) {
  const std::vector<std::string> all = words(line);
  if (all.empty()) return std::unexpected(unknownName(""));
  return setFault(machine, all.front(), std::span(all).subspan(1), on);
}

std::optional<std::string> faultDefect(std::span<const std::string> words) {
  if (words.size() < 2 || (words.back() != "on" && words.back() != "off"))
    return "fault takes a name, its arguments, and on or off";
  if (entryOf(words.front()) == nullptr) return unknownName(words.front());
  return std::nullopt;
}

std::expected<void, std::string> switchFault(Machine& machine, std::span<const std::string> words) {
  if (auto defect = faultDefect(words)) return std::unexpected(*std::move(defect));
  return setFault(machine, words.front(), words.subspan(1, words.size() - 2), words.back() == "on");
}

std::vector<std::string> activeFaults(const Machine& machine) { return machine.activeFaultLines; }

}  // namespace virtualmac
