#pragma once

#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace virtualmac {

class Machine;

/// One of the words that something takes, or a number.
struct GivenValue {
  std::string word;   ///< As it was said.
  double number = 0;  ///< 0 for a word.
};

/// The values that something takes: some words, a range of numbers, or both.
struct AllowedValues {
  std::vector<std::string> words = {};
  double low = 0;
  double high = -1;  ///< Below `low`: no number is taken.
  bool whole = false;

  [[nodiscard]] bool takesNumbers() const { return high >= low; }
  /// The value that `word` stands for. The error names `what` it is for, and what is allowed.
  [[nodiscard]] std::expected<GivenValue, std::string> read(std::string_view what,
                                                            const std::string& word) const;
  /// "on, off, renegotiate", "free, -40 to 120", "whole numbers from 0 to 1440"
  [[nodiscard]] std::string text() const;
};

inline const AllowedValues onOrOff{.words = {"on", "off"}};

/// One thing that a person or the hardware does to a machine.
struct Deed {
  std::string_view name;
  std::optional<AllowedValues> values;  ///< None: it takes no value.
  void (*apply)(Machine& machine, const GivenValue& value);
  /// Why a Mac that lacks something cannot do it; null: this one can. No function: every Mac can.
  const char* (*needs)(const Machine& machine, const GivenValue& value) = nullptr;

  /// Does it, or says why this Mac cannot; empty: done.
  std::string perform(Machine& machine, const GivenValue& value) const;
};

/// Every deed. `virtual-mac set NAME VALUE`, and `virtual-mac NAME` for one without a value, are
/// made from this catalogue; so are the actions of a story, and its start.
std::span<const Deed> deedCatalogue();

/// Null: there is no such deed.
const Deed* deedNamed(std::string_view name);

/// The names of the deeds that take a value, or of those that take none.
std::vector<std::string_view> deedNames(bool withValue);

}  // namespace virtualmac
