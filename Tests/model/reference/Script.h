#pragma once

#include <cstdint>
#include <string>

#include "Tests/model/reference/Trace.h"

namespace model {

/// The first point where model and program part.
struct Difference {
  std::uint64_t order = 0;
  std::int64_t at = 0;
  std::string expected;
  std::string happened;
};

/// The program ended here: the model goes no further either.
struct CutOff {};

/// Follows one item's events: each expected effect is compared with the next one, its moment too.
class Script {
 public:
  void begin(const Item& begun);
  /// Returns the answer of the next event, which must be this one, without time before it.
  /// `open`: the rest of its text is free.
  const Answer& expect(const std::string& effect, bool open = false);
  /// The same for an event that itself takes a time which the model knows.
  const Answer& expectUntil(const std::string& effect, std::int64_t moment);
  /// Time passes until this moment.
  void pass(std::int64_t until) { moment = until; }
  /// Nothing more may happen.
  void finish() const;

  /// Whether the item goes on; where the program may choose, the model asks.
  [[nodiscard]] bool more() const { return position < current->events.size(); }
  /// The next event; null: none comes.
  [[nodiscard]] const Event* upcoming() const {
    return more() ? &current->events[position] : nullptr;
  }
  [[nodiscard]] const Item& item() const { return *current; }
  [[nodiscard]] std::int64_t now() const { return moment; }
  [[nodiscard]] std::uint64_t order() const { return place; }

 private:
  const Item* current = nullptr;
  std::size_t position = 0;
  std::int64_t moment = 0;
  std::uint64_t place = 0;
};

}  // namespace model
