#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VirtualMac/Schedule/Effect.h"

namespace virtualmac {

/// The ordered record of effects, one line each when written down: `time kind text`, the time in
/// virtual seconds with three decimals, the kind padded to five columns (smc, disk, log, reply,
/// power, app, mac, …). This text is what tests compare and what a run's hash is taken over. One
/// thread at a time.
class Journal {
 public:
  struct Entry {
    Entry(double seconds, Effect happened);
    /// As a journal's file tells it.
    Entry(double seconds, std::string_view kind, std::string_view text);

    double time;
    Effect effect;
    std::string kind, text;  ///< The effect's.

    [[nodiscard]] bool tells(EffectID id) const { return effect.id == id; }
    /// Of a line of the helper's log; empty: it is none.
    [[nodiscard]] std::string_view message() const;
  };
  using Listener = std::function<void(const Entry&)>;

  /// `clock` gives virtual seconds since the machine's start.
  explicit Journal(std::function<double()> clock);

  void record(Effect effect);
  template <EffectID Id, class... Values>
  void record(const Values&... values) {
    record(effect<Id>(values...));
  }
  /// Something that nobody but a reader acts on.
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

/// "12.345"
std::string journalTime(double seconds);
/// `12.345 smc   CHTE <- 01 00 00 00`, without a newline: a control character in the text, which
/// may come from outside, is written as a space, so that one effect stays one line.
std::string journalLine(const Journal::Entry& entry);
/// A line of a journal's file, without its newline; none: not such a line.
std::optional<Journal::Entry> journalEntryFrom(std::string_view line);

}  // namespace virtualmac
