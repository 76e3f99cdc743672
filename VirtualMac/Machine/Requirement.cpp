#include "VirtualMac/Machine/Requirement.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <utility>
#include <vector>

#include "VirtualMac/Machine/Bounds.h"

namespace virtualmac {

/// One node of the tree. A leaf looks at one property of the code; the others combine.
struct Requirement::Node {
  enum class Kind {
    Always,
    Never,
    AnchorApple,
    AnchorAppleGeneric,
    Identifier,
    LeafTeam,
    LeafTeamExists,
    LeafExtension,
    Not,
    And,
    Or
  };
  Kind kind = Kind::Never;
  std::string value;
  std::vector<std::shared_ptr<const Node>> parts;
};

namespace {

using Node = Requirement::Node;
using NodeRef = std::shared_ptr<const Node>;
using Kind = Node::Kind;

bool isLetter(char character) { return std::isalpha(static_cast<unsigned char>(character)) != 0; }
bool isDigit(char character) { return std::isdigit(static_cast<unsigned char>(character)) != 0; }
bool isWordCharacter(char character) {
  return isLetter(character) || isDigit(character) || character == '.' || character == '-' ||
         character == '_';
}

NodeRef leaf(Kind kind, std::string value = {}) {
  return std::make_shared<const Node>(Node{kind, std::move(value), {}});
}

/// Recursive descent over the text; the first error wins and ends everything.
class Parser {
 public:
  explicit Parser(std::string_view source) : text(source) {}

  std::expected<NodeRef, RequirementError> parseAll() {
    NodeRef whole = parseAlternatives();
    skipSpace();
    if (!error && at < text.size()) fail("unexpected text after the requirement");
    if (error) return std::unexpected(*error);
    return whole;
  }

 private:
  void skipSpace() {
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])) != 0) ++at;
  }

  NodeRef fail(std::string message) {
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

  NodeRef parseList(Kind kind, std::string_view joiner, NodeRef (Parser::*parsePart)()) {
    std::vector<NodeRef> parts{(this->*parsePart)()};
    while (!error && acceptWord(joiner)) parts.push_back((this->*parsePart)());
    if (error) return nullptr;
    if (parts.size() == 1) return parts.front();
    return std::make_shared<const Node>(Node{kind, {}, std::move(parts)});
  }

  NodeRef parseAlternatives() { return parseList(Kind::Or, "or", &Parser::parseConjunction); }
  NodeRef parseConjunction() { return parseList(Kind::And, "and", &Parser::parseTerm); }

  NodeRef parseTerm() {
    if (++depth > bounds::deepestRequirement)
      return fail("nested more than " + std::to_string(bounds::deepestRequirement) + " deep");
    NodeRef term = parseTermInside();
    --depth;
    return term;
  }

  NodeRef parseTermInside() {
    if (accept('!')) {
      NodeRef inner = parseTerm();
      if (error) return nullptr;
      return std::make_shared<const Node>(Node{Kind::Not, {}, {std::move(inner)}});
    }
    if (accept('(')) {
      NodeRef inner = parseAlternatives();
      if (!error && !accept(')')) return fail("expected ')'");
      return inner;
    }
    if (acceptWord("always")) return leaf(Kind::Always);
    if (acceptWord("never")) return leaf(Kind::Never);
    if (acceptWord("anchor")) return parseAnchor();
    if (acceptWord("identifier")) {
      accept('=');
      std::optional<std::string> value = parseValue();
      return value ? leaf(Kind::Identifier, std::move(*value)) : nullptr;
    }
    if (acceptWord("certificate") || acceptWord("cert")) return parseCertificate();
    return fail("expected anchor, identifier, certificate, '!' or '('");
  }

  NodeRef parseAnchor() {
    if (!acceptWord("apple")) return fail("expected apple after anchor");
    return leaf(acceptWord("generic") ? Kind::AnchorAppleGeneric : Kind::AnchorApple);
  }

  NodeRef parseCertificate() {
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
    return leaf(Kind::LeafExtension, field.substr(extensionPrefix.size()));
  }

  NodeRef parseTeamMatch() {
    if (acceptWord("exists")) return leaf(Kind::LeafTeamExists);
    if (!accept('=')) return fail("expected = or exists after the certificate's field");
    std::optional<std::string> value = parseValue();
    return value ? leaf(Kind::LeafTeam, std::move(*value)) : nullptr;
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

bool holds(const Node& node, const SigningIdentity& code) {
  const auto part = [&code](const NodeRef& each) { return holds(*each, code); };
  switch (node.kind) {
    case Kind::Always:
      return true;
    case Kind::Never:
      return false;
    case Kind::AnchorApple:
      return code.isSigned && code.anchorApple;
    case Kind::AnchorAppleGeneric:
      return code.isSigned && (code.anchorAppleGeneric || code.anchorApple);
    case Kind::Identifier:
      return code.isSigned && code.identifier == node.value;
    case Kind::LeafTeam:
      return code.isSigned && !code.team.empty() && code.team == node.value;
    case Kind::LeafTeamExists:
      return code.isSigned && !code.team.empty();
    case Kind::LeafExtension:
      return code.isSigned &&
             std::ranges::find(code.leafExtensions, node.value) != code.leafExtensions.end();
    case Kind::Not:
      return !holds(*node.parts.front(), code);
    case Kind::And:
      return std::ranges::all_of(node.parts, part);
    case Kind::Or:
      return std::ranges::any_of(node.parts, part);
  }
  return false;
}

}  // namespace

Requirement::Requirement(std::shared_ptr<const Node> parsed) : root(std::move(parsed)) {}

std::expected<Requirement, RequirementError> Requirement::parse(std::string_view text) {
  std::expected<NodeRef, RequirementError> parsed = Parser(text).parseAll();
  if (!parsed) return std::unexpected(parsed.error());
  return Requirement(std::move(*parsed));
}

bool Requirement::satisfiedBy(const SigningIdentity& code) const { return holds(*root, code); }

}  // namespace virtualmac
