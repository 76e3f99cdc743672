#include "VirtualMac/Machine/Requirement.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <utility>
#include <vector>

#include "VirtualMac/Machine/Bounds.h"

namespace virtualmac {

namespace {

using Test = Requirement::Test;

bool isLetter(char character) { return std::isalpha(static_cast<unsigned char>(character)) != 0; }
bool isDigit(char character) { return std::isdigit(static_cast<unsigned char>(character)) != 0; }
bool isWordCharacter(char character) {
  return isLetter(character) || isDigit(character) || character == '.' || character == '-' ||
         character == '_';
}

/// Unsigned code passes none of these.
Test ifSigned(Test test) {
  return
      [test = std::move(test)](const SigningIdentity& code) { return code.isSigned && test(code); };
}

/// Recursive descent over the text; the first error wins and ends everything. Each part of the
/// text becomes a test; an empty one stands for an error.
class Parser {
 public:
  explicit Parser(std::string_view source) : text(source) {}

  std::expected<Test, RequirementError> parseAll() {
    Test whole = parseAlternatives();
    skipSpace();
    if (!error && at < text.size()) fail("unexpected text after the requirement");
    if (error) return std::unexpected(*error);
    return whole;
  }

 private:
  void skipSpace() {
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])) != 0) ++at;
  }

  Test fail(std::string message) {
    if (!error) error = RequirementError{at, std::move(message)};
    return nullptr;
  }

  bool accept(char character) {
    skipSpace();
    if (at >= text.size() || text[at] != character) return false;
    ++at;
    return true;
  }

  /// The word at this place, without taking it.
  std::string_view peekWord() {
    skipSpace();
    std::size_t end = at;
    if (end < text.size() && isLetter(text[end])) {
      while (end < text.size() && isWordCharacter(text[end])) ++end;
    }
    return text.substr(at, end - at);
  }

  bool acceptWord(std::string_view word) {
    if (peekWord() != word) return false;
    at += word.size();
    return true;
  }

  std::optional<std::string> parseValue() {
    skipSpace();
    if (at < text.size() && text[at] == '"') return parseQuoted();
    const std::string_view word = peekWord();
    if (word.empty()) {
      fail("expected a value: quoted text, or a word that starts with a letter");
      return std::nullopt;
    }
    at += word.size();
    return std::string(word);
  }

  std::optional<std::string> parseQuoted() {
    const std::size_t opening = at++;
    std::string value;
    while (at < text.size() && text[at] != '"') {
      if (text[at] == '\\' && at + 1 < text.size()) ++at;
      value += text[at++];
    }
    if (at == text.size()) {
      at = opening;
      fail("quoted text is not closed");
      return std::nullopt;
    }
    ++at;
    return value;
  }

  Test parseList(std::string_view joiner, bool oneSuffices, Test (Parser::*parsePart)()) {
    std::vector<Test> parts;
    parts.push_back((this->*parsePart)());
    while (!error && acceptWord(joiner)) parts.push_back((this->*parsePart)());
    if (error) return nullptr;
    if (parts.size() == 1) return std::move(parts.front());
    return [parts = std::move(parts), oneSuffices](const SigningIdentity& code) {
      const auto holds = [&code](const Test& each) { return each(code); };
      return oneSuffices ? std::ranges::any_of(parts, holds) : std::ranges::all_of(parts, holds);
    };
  }

  Test parseAlternatives() { return parseList("or", true, &Parser::parseConjunction); }
  Test parseConjunction() { return parseList("and", false, &Parser::parseTerm); }

  Test parseTerm() {
    if (++depth > bounds::deepestRequirement)
      return fail("nested more than " + std::to_string(bounds::deepestRequirement) + " deep");
    Test term = parseTermInside();
    --depth;
    return term;
  }

  Test parseTermInside() {
    if (accept('!')) {
      Test inner = parseTerm();
      if (error) return nullptr;
      return [inner = std::move(inner)](const SigningIdentity& code) { return !inner(code); };
    }
    if (accept('(')) {
      Test inner = parseAlternatives();
      if (!error && !accept(')')) return fail("expected ')'");
      return inner;
    }
    if (acceptWord("always")) return [](const SigningIdentity&) { return true; };
    if (acceptWord("never")) return [](const SigningIdentity&) { return false; };
    if (acceptWord("anchor")) return parseAnchor();
    if (acceptWord("identifier")) {
      accept('=');
      const std::optional<std::string> value = parseValue();
      if (!value) return nullptr;
      return ifSigned([value](const auto& code) { return code.identifier == *value; });
    }
    if (acceptWord("certificate") || acceptWord("cert")) return parseCertificate();
    return fail("expected anchor, identifier, certificate, '!' or '('");
  }

  Test parseAnchor() {
    if (!acceptWord("apple")) return fail("expected apple after anchor");
    return ifSigned([generic = acceptWord("generic")](const auto& code) {
      return code.anchorApple || (generic && code.anchorAppleGeneric);
    });
  }

  Test parseCertificate() {
    if (!acceptWord("leaf")) return fail("expected leaf after certificate");
    if (!accept('[')) return fail("expected '[' after leaf");
    skipSpace();
    const std::size_t start = at;
    const std::string field(peekWord());
    at += field.size();
    if (!accept(']')) return fail("expected ']' after the certificate's field");
    if (field == "subject.OU") return parseTeamMatch();
    if (!isExtension(field)) {
      at = start;
      return fail("expected subject.OU or field. with an object identifier");
    }
    if (!acceptWord("exists")) return fail("expected exists after the certificate's field");
    return ifSigned([extension = field.substr(extensionPrefix.size())](const auto& code) {
      return std::ranges::find(code.leafExtensions, extension) != code.leafExtensions.end();
    });
  }

  Test parseTeamMatch() {
    if (acceptWord("exists")) return ifSigned([](const auto& code) { return !code.team.empty(); });
    if (!accept('=')) return fail("expected = or exists after the certificate's field");
    const std::optional<std::string> value = parseValue();
    if (!value) return nullptr;
    return ifSigned(
        [value](const auto& code) { return !code.team.empty() && code.team == *value; });
  }

  static bool isExtension(std::string_view field) {
    if (!field.starts_with(extensionPrefix)) return false;
    field.remove_prefix(extensionPrefix.size());
    bool digitBefore = false;
    for (const char character : field) {
      if (!isDigit(character) && (character != '.' || !digitBefore)) return false;
      digitBefore = isDigit(character);
    }
    return digitBefore;
  }

  static constexpr std::string_view extensionPrefix = "field.";

  std::string_view text;
  std::size_t at = 0;
  std::size_t depth = 0;
  std::optional<RequirementError> error;
};

}  // namespace

Requirement::Requirement(Test parsed) : test(std::move(parsed)) {}

std::expected<Requirement, RequirementError> Requirement::parse(std::string_view text) {
  std::expected<Test, RequirementError> parsed = Parser(text).parseAll();
  if (!parsed) return std::unexpected(parsed.error());
  return Requirement(std::move(*parsed));
}

bool Requirement::satisfiedBy(const SigningIdentity& code) const { return test(code); }

}  // namespace virtualmac
