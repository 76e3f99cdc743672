#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace virtualmac {

/// The ordered record of effects, one line each: `time kind text`, the time in virtual seconds with
/// three decimals, the kind padded to five columns (smc, disk, log, reply, power, app, mac, …).
/// This text is what tests compare and what a run's hash is taken over. One thread at a time.
class Journal {
 public:
  struct Entry {
    double time = 0;
    std::string kind;
    std::string text;
  };
  using Listener = std::function<void(const Entry&)>;

  /// `clock` gives virtual seconds since the machine's start.
  explicit Journal(std::function<double()> clock);

  void record(std::string_view kind, std::string text);
  /// Called with every entry, before record returns.
  void addListener(Listener listener);

  [[nodiscard]] const std::vector<Entry>& entries() const { return kept; }
  /// All lines, each ended by a newline.
  [[nodiscard]] std::string text() const;
  /// The lines of some kinds only (space-separated: "smc disk").
  [[nodiscard]] std::string text(std::string_view kinds) const;
  /// FNV-1a over every line so far, dropped ones included.
  [[nodiscard]] std::uint64_t hash() const { return running; }
  /// Forgets the entries; the hash goes on.
  void clear() { kept.clear(); }
  /// With false, entries are hashed and passed to listeners but not kept (long runs).
  void keepEntries(bool keep) { keeping = keep; }

 private:
  std::function<double()> clock;
  std::vector<Entry> kept;
  std::vector<Listener> listeners;
  std::uint64_t running = 14695981039346656037ULL;
  bool keeping = true;
};

/// `12.345 smc   CHTE <- 01 00 00 00`, without a newline: a control character in the text, which
/// may come from outside, is written as a space, so that one effect stays one line.
std::string journalLine(const Journal::Entry& entry);

}  // namespace virtualmac
