#pragma once

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

/// Each target gives one reader of foreign bytes an input and judges what becomes of it. An input
/// may be refused; it must not end the program, and readers must agree on it.
namespace korvel::fuzz {

/// Thrown for an input of which the program has made something wrong.
class Misbehaviour : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline void require(bool holds, const std::string& otherwise) {
  if (!holds) throw Misbehaviour(otherwise);
}

#define FUZZ_TARGET(function, name) void function(std::string_view input);
#include "Tests/fuzz/Targets.def"
#undef FUZZ_TARGET

struct Target {
  std::string_view name;
  void (*run)(std::string_view input);
};

inline constexpr Target targets[] = {
#define FUZZ_TARGET(function, name) {name, &function},
#include "Tests/fuzz/Targets.def"
#undef FUZZ_TARGET
};

/// Null: there is no such target.
constexpr const Target* targetNamed(std::string_view name) {
  const auto* found = std::ranges::find(targets, name, &Target::name);
  return found == std::end(targets) ? nullptr : found;
}

}  // namespace korvel::fuzz
