#include "VirtualMac/Schedule/Journal.h"

#include <cmath>
#include <cstdio>
#include <utility>

namespace virtualmac {

namespace {

constexpr std::uint64_t fnvPrime = 1099511628211ULL;
constexpr std::size_t kindColumns = 5;
constexpr unsigned char firstPrintable = 0x20;

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

void Journal::record(std::string_view kind, std::string text) {
  Entry entry{clock(), std::string(kind), std::move(text)};
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

std::string journalLine(const Journal::Entry& entry) {
  // Rounded to whole milliseconds first, so that the text is the same on every C library.
  const auto milliseconds = static_cast<long long>(std::llround(entry.time * 1000.0));
  char time[40];
  std::snprintf(time, sizeof time, "%lld.%03lld ", milliseconds / 1000, milliseconds % 1000);
  std::string line = time;
  line += entry.kind;
  if (entry.kind.size() < kindColumns) line.append(kindColumns - entry.kind.size(), ' ');
  line += ' ';
  for (const char byte : entry.text)
    line += static_cast<unsigned char>(byte) < firstPrintable ? ' ' : byte;
  return line;
}

}  // namespace virtualmac
