#include "VirtualMac/Schedule/Journal.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

namespace virtualmac {

namespace {

constexpr std::uint64_t fnvPrime = 1099511628211ULL;
constexpr std::size_t kindColumns = 5;
constexpr unsigned char firstPrintable = 0x20;
/// A double tells all milliseconds up to here apart.
constexpr std::uint64_t latestSecond = (std::uint64_t{1} << 53U) / 1000 - 1;

std::optional<std::uint64_t> wholeNumber(std::string_view digits) {
  std::uint64_t number = 0;
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (failure != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return number;
}

/// A journal line's time: seconds with three decimals.
std::optional<double> timeFrom(std::string_view text) {
  const std::size_t point = text.find('.');
  if (point == std::string_view::npos || text.size() - point != 4) return std::nullopt;
  const std::optional<std::uint64_t> whole = wholeNumber(text.substr(0, point));
  const std::optional<std::uint64_t> thousandths = wholeNumber(text.substr(point + 1));
  if (!whole || !thousandths || *whole > latestSecond) return std::nullopt;
  // One rounding, so that it prints with the same three decimals again.
  return static_cast<double>(*whole * 1000 + *thousandths) / 1000.0;
}

std::uint64_t foldInto(std::uint64_t hash, std::string_view bytes) {
  for (const char byte : bytes) {
    hash ^= static_cast<unsigned char>(byte);
    hash *= fnvPrime;
  }
  return hash;
}

bool lists(std::string_view kinds, std::string_view kind) {
  while (!kinds.empty()) {
    const std::size_t end = kinds.find(' ');
    if (kinds.substr(0, end) == kind) return true;
    if (end == std::string_view::npos) break;
    kinds.remove_prefix(end + 1);
  }
  return false;
}

}  // namespace

Journal::Journal(std::function<double()> timeSource) : clock(std::move(timeSource)) {}

Journal::Entry::Entry(double seconds, Effect happened)
    : time(seconds), effect(std::move(happened)), kind(effect.kind()), text(effect.text()) {}

Journal::Entry::Entry(double seconds, std::string_view toldKind, std::string_view toldText)
    : Entry(seconds, effectFrom(toldKind, toldText)) {}

std::string_view Journal::Entry::message() const {
  return tells(EffectID::logged) ? std::string_view(effect.word(2)) : std::string_view();
}

void Journal::record(std::string_view kind, std::string text) {
  record(Effect{EffectID::told, {std::string(kind), std::move(text)}});
}

void Journal::record(Effect effect) {
  Entry entry{clock(), std::move(effect)};
  running = foldInto(foldInto(running, journalLine(entry)), "\n");
  for (const Listener& listener : listeners) listener(entry);
  if (keeping) kept.push_back(std::move(entry));
}

void Journal::addListener(Listener listener) { listeners.push_back(std::move(listener)); }

std::string Journal::text() const {
  std::string result;
  for (const Entry& entry : kept) result += journalLine(entry) + '\n';
  return result;
}

std::string Journal::text(std::string_view kinds) const {
  std::string result;
  for (const Entry& entry : kept) {
    if (lists(kinds, entry.kind)) result += journalLine(entry) + '\n';
  }
  return result;
}

std::string journalTime(double seconds) {
  // Rounded to whole milliseconds first, so that the text is the same on every C library.
  const auto milliseconds = static_cast<long long>(std::llround(seconds * 1000.0));
  const std::string beyond = std::to_string(milliseconds % 1000);
  return std::to_string(milliseconds / 1000) + '.' + std::string(3 - beyond.size(), '0') + beyond;
}

std::string journalLine(const Journal::Entry& entry) {
  std::string line = journalTime(entry.time) + ' ' + entry.kind;
  if (entry.kind.size() < kindColumns) line.append(kindColumns - entry.kind.size(), ' ');
  line += ' ';
  for (const char byte : entry.text)
    line += static_cast<unsigned char>(byte) < firstPrintable ? ' ' : byte;
  return line;
}

std::optional<Journal::Entry> journalEntryFrom(std::string_view line) {
  const std::size_t afterTime = line.find(' ');
  if (afterTime == std::string_view::npos) return std::nullopt;
  const std::optional<double> time = timeFrom(line.substr(0, afterTime));
  if (!time) return std::nullopt;
  line.remove_prefix(afterTime + 1);
  const std::size_t afterKind = line.find(' ');
  if (afterKind == std::string_view::npos) return std::nullopt;
  const std::string_view kind = line.substr(0, afterKind);
  // Spaces beyond the kind's column are the text's own.
  const std::size_t column = std::max(kindColumns, kind.size()) + 1;
  line.remove_prefix(std::min({line.find_first_not_of(' ', afterKind), column, line.size()}));
  return Journal::Entry{*time, kind, line};
}

}  // namespace virtualmac
