#include "VirtualMac/Machine/Requirement.h"

#include <string>

#include "Tests/fuzz/Target.h"
#include "Tests/fuzz/targets/Slow.h"

namespace korvel::fuzz {

namespace {

const std::vector<virtualmac::SigningIdentity>& identities() {
  static const std::vector<virtualmac::SigningIdentity> list = {
      {.name = "unsigned", .isSigned = false, .anchorApple = true, .identifier = "a"},
      {.name = "apple", .anchorApple = true, .identifier = "com.apple.a"},
      {.name = "developer",
       .anchorAppleGeneric = true,
       .identifier = "com.korvel.app",
       .team = "TEAM",
       .leafExtensions = {"1.2.840.113635.100.6.1.13", "1"}},
      {.name = "nameless", .anchorAppleGeneric = true, .team = "a"}};
  return list;
}

}  // namespace

/// The input is a requirement's text.
void requirement(std::string_view input) {
  const auto parsed = virtualmac::Requirement::parse(input);
  if (!parsed) {
    require(parsed.error().position <= input.size(), "the error is beyond the text");
    require(!parsed.error().message.empty(), "a refusal says nothing");
  }
  for (const virtualmac::SigningIdentity& code : identities()) {
    const auto slow = slow::satisfies(input, code);
    require(slow.has_value() == parsed.has_value(),
            "the two readers disagree whether it is a requirement");
    if (parsed) require(parsed->satisfiedBy(code) == *slow, "the two disagree about " + code.name);
  }
}

}  // namespace korvel::fuzz
