#include "VirtualMac/Machine/Faults.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>

#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Machine/Nearest.h"

namespace virtualmac {

namespace {

/// Null: there is no such fault.
const Fault* faultNamed(std::string_view name) {
  const auto found = std::ranges::find(faultCatalogue(), name, &Fault::name);
  return found == faultCatalogue().end() ? nullptr : &*found;
}

std::string unknownName(std::string_view name) {
  std::vector<std::string_view> names;
  for (const Fault& fault : faultCatalogue()) names.push_back(fault.name);
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

void remember(Machine& machine, const Fault& fault, std::span<const std::string> arguments,
              bool on) {
  const std::string_view name = fault.name;
  const std::string which = rememberedLine(name, arguments, fault.selectors());
  forget(machine, which);
  if (!on) return machine.tell("fault " + which + " off");
  const std::string whole = rememberedLine(name, arguments, arguments.size());
  std::string told = "fault " + whole + " on";
  for (const Fault& other : faultCatalogue()) {
    // Faults with one target replace each other.
    if (fault.target.empty() || other.target != fault.target) continue;
    const std::string_view replaced = other.name;
    if (isOn(machine, replaced)) told += " (in place of " + std::string(replaced) + ")";
    forget(machine, replaced);
  }
  machine.tell(std::move(told));
  if (!fault.momentary) machine.activeFaultLines.push_back(whole);
}

}  // namespace

std::size_t Fault::needed() const {
  return static_cast<std::size_t>(std::ranges::count_if(
      words(arguments), [](const std::string& word) { return !word.starts_with('['); }));
}

std::size_t Fault::accepted() const {
  const bool anyNumber = arguments.find("...") != std::string_view::npos;
  return anyNumber ? SIZE_MAX : words(arguments).size();
}

std::size_t Fault::selectors() const {
  static constexpr std::string_view which[] = {"KEY", "CALL", "NAME"};
  return std::ranges::count(which, arguments.substr(0, arguments.find(' '))) > 0 ? 1 : 0;
}

std::expected<void, std::string> setFault(Machine& machine, std::string_view name,
                                          std::span<const std::string> arguments, bool on) {
  const Fault* found = faultNamed(name);
  if (found == nullptr) return std::unexpected(unknownName(name));
  const std::string usage =
      std::string(name) + " takes " +
      std::string(found->arguments.empty() ? "no arguments" : found->arguments);
  const std::size_t needed = on ? found->needed() : found->selectors();
  if (arguments.size() < needed || arguments.size() > found->accepted()) {
    return std::unexpected(usage);
  }
  // To end what has not begun would undo what is not a fault: a key's value, a missing service.
  if (!on && !isOn(machine, rememberedLine(name, arguments, found->selectors()))) return {};
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
  if (faultNamed(words.front()) == nullptr) return unknownName(words.front());
  return std::nullopt;
}

std::expected<void, std::string> switchFault(Machine& machine, std::span<const std::string> words) {
  if (auto defect = faultDefect(words)) return std::unexpected(*std::move(defect));
  return setFault(machine, words.front(), words.subspan(1, words.size() - 2), words.back() == "on");
}

std::vector<std::string> activeFaults(const Machine& machine) { return machine.activeFaultLines; }

std::string FaultArguments::rest(std::size_t index) const {
  std::string text;
  for (std::size_t i = index; i < words.size(); ++i) text += (text.empty() ? "" : " ") + words[i];
  return text;
}

std::int64_t FaultArguments::integer(std::size_t index, std::int64_t low, std::int64_t high) {
  const std::string& word = words[index];
  const bool hexadecimal = word.starts_with("0x");
  const char* first = word.data() + (hexadecimal ? 2 : 0);
  const char* last = word.data() + word.size();
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(first, last, value, hexadecimal ? 16 : 10);
  if (error != std::errc() || end != last || value < low || value > high) {
    complaint = "\"" + word + "\" is not a whole number from " + std::to_string(low) + " to " +
                std::to_string(high);
    return low;
  }
  return value;
}

std::int32_t FaultArguments::code(std::size_t index, std::int32_t otherwise) {
  if (index >= words.size()) return otherwise;
  // A hexadecimal code is the unsigned form of a signed number.
  return static_cast<std::int32_t>(integer(index, INT32_MIN, UINT32_MAX));
}

double FaultArguments::real(std::size_t index, double low, double high) {
  const std::string& word = words[index];
  char* end = nullptr;
  const double value = std::strtod(word.c_str(), &end);
  // A NaN is within no bounds.
  const bool within = value >= low && value <= high;
  if (word.empty() || *end != '\0' || !within) {
    char bounds[64];
    std::snprintf(bounds, sizeof bounds, "%g to %g", low, high);
    complaint = "\"" + word + "\" is not a number from " + bounds;
    return low;
  }
  return value;
}

}  // namespace virtualmac
