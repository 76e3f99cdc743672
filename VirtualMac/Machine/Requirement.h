#pragma once

#include <cstddef>
#include <expected>
#include <functional>
#include <string>
#include <string_view>

#include "VirtualMac/Machine/Profile.h"

namespace virtualmac {

/// Why a requirement text does not parse.
struct RequirementError {
  std::size_t position = 0;  ///< The offending byte, from 0.
  std::string message;
};

/// A code requirement, in the subset of the requirement language that admits connections.
///
///   requirement := conjunction { "or" conjunction }
///   conjunction := term { "and" term }
///   term        := "!" term | "(" requirement ")" | clause
///   clause      := "always" | "never" | "identifier" [ "=" ] value
///                | "anchor" "apple" [ "generic" ]
///                | ( "certificate" | "cert" ) "leaf" "[" field
///   field       := "subject.OU" "]" ( "=" value | "exists" )
///                | "field." digits { "." digits } "]" "exists"
///   value       := quoted text | a word that starts with a letter
///
/// Fault model: every text gives a requirement or an error with its position, never both.
class Requirement {
 public:
  static std::expected<Requirement, RequirementError> parse(std::string_view text);

  /// Whether code signed like this satisfies the requirement.
  [[nodiscard]] bool satisfiedBy(const SigningIdentity& code) const;

  using Test = std::function<bool(const SigningIdentity& code)>;

 private:
  explicit Requirement(Test parsed);
  Test test;
};

}  // namespace virtualmac
