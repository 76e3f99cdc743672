#pragma once

#include <expected>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace virtualmac {

/// A phrase cut into words, for reading from left to right. Double quotes keep spaces in one word,
/// also within it: `reason="too warm"`. A reader says with `complain` what it does not understand;
/// the first complaint is kept.
class Phrase {
 public:
  explicit Phrase(std::string_view source);

  [[nodiscard]] bool atEnd() const { return next == words.size(); }
  /// The next word without taking it; empty at the end.
  [[nodiscard]] std::string_view peek() const;
  [[nodiscard]] bool peekIsQuoted() const { return !atEnd() && words[next].quoted; }
  /// Takes the next word; complains that `what` is missing at the end.
  std::string take(std::string_view what);
  /// Takes the next word if it is this one.
  bool takeIf(std::string_view word);
  /// Takes one of some words; its index. Complains about any other, with unknownWord's text.
  std::size_t takeOneOf(std::string_view what, std::initializer_list<std::string_view> choices);
  /// A number within bounds. Complains about anything else, with the text of AllowedValues.
  double takeNumber(std::string_view what, double least, double most);
  /// All words that are left.
  std::vector<std::string> takeRest();
  void takeEnd();  ///< Complains about words that are left.

  void complain(std::string text);
  /// The value that was read from a word; complains with its error.
  template <class Value>
  Value valueOf(std::expected<Value, std::string> read) {
    if (read) return *std::move(read);
    complain(std::move(read.error()));
    return {};
  }
  [[nodiscard]] const std::optional<std::string>& complaint() const { return first; }

 private:
  struct Word {
    std::string text;
    bool quoted = false;  ///< It began with a quote.
  };
  std::vector<Word> words;
  std::size_t next = 0;
  std::optional<std::string> first;
};

/// A moment in seconds from the scenario's start: `00:42`, `00:42:10`, `00:42:10.5`, `1d 02:00:05`
/// (hours up to 23 once days are given). The error says what a moment looks like.
std::expected<double, std::string> momentFrom(std::string_view text);

/// A length of time in seconds: `5s`, `0.5s`, `90m`, `1h30m`, `2d`.
std::expected<double, std::string> durationFrom(std::string_view text);

/// The complaint about a moment or a length of time beyond bounds::longestSeconds.
std::string tooLongText();

/// A whole number or a decimal one, without sign, spaces or exponent; none for anything else.
std::optional<double> numberFrom(std::string_view text);

}  // namespace virtualmac
