#include <algorithm>
#include <cctype>
#include <regex>
#include <string>

#include "Tests/fuzz/targets/Slow.h"

namespace korvel::fuzz::slow {

namespace {

using virtualmac::SigningIdentity;

struct Token {
  std::string text;
  bool quoted = false;
};

bool isSpace(char each) { return each == ' ' || (each >= '\t' && each <= '\r'); }
bool isWordly(char each) {
  return std::isalnum(static_cast<unsigned char>(each)) != 0 || each == '.' || each == '-' ||
         each == '_';
}

/// Words, quoted texts and single characters. Empty text: a quote that is not closed.
std::vector<Token> tokensOf(std::string_view text) {
  std::vector<Token> tokens;
  for (std::size_t at = 0; at < text.size();) {
    if (isSpace(text[at])) {
      ++at;
    } else if (text[at] == '"') {
      Token token{"", true};
      for (++at; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\\' && at + 1 < text.size()) ++at;
        token.text += text[at];
      }
      if (at == text.size()) token = {"\"", false};
      tokens.push_back(token);
      ++at;
    } else {
      const bool word = std::isalpha(static_cast<unsigned char>(text[at])) != 0;
      Token token;
      do token.text += text[at++];
      while (word && at < text.size() && isWordly(text[at]));
      tokens.push_back(token);
    }
  }
  return tokens;
}

class Evaluator {
 public:
  Evaluator(std::string_view text, const SigningIdentity& code)
      : tokens(tokensOf(text)), identity(code) {}

  std::optional<bool> value() {
    const bool met = any(0);
    return wrong || at < tokens.size() ? std::nullopt : std::optional(met);
  }

 private:
  bool next(std::string_view text) {
    if (at == tokens.size() || tokens[at].quoted || tokens[at].text != text) return false;
    ++at;
    return true;
  }
  void need(std::string_view text) { wrong = !next(text) || wrong; }
  std::string valueHere() {
    const bool fits =
        at < tokens.size() &&
        (tokens[at].quoted || std::isalpha(static_cast<unsigned char>(tokens[at].text[0])) != 0);
    if (!fits) wrong = true;
    return fits ? tokens[at++].text : std::string();
  }

  bool any(int depth) {
    bool met = all(depth);
    while (!wrong && next("or")) met = all(depth) || met;
    return met;
  }
  bool all(int depth) {
    bool met = term(depth);
    while (!wrong && next("and")) met = term(depth) && met;
    return met;
  }
  bool term(int depth) {
    if (depth == 200) return fail();
    if (next("!")) return !term(depth + 1);
    if (next("(")) {
      const bool met = any(depth + 1);
      need(")");
      return met;
    }
    return clause();
  }
  bool clause() {
    if (next("always")) return true;
    if (next("never")) return false;
    if (next("identifier")) {
      next("=");
      return valueHere() == identity.identifier && identity.isSigned;
    }
    if (next("anchor")) {
      need("apple");
      const bool generic = !wrong && next("generic");
      return identity.isSigned &&
             (identity.anchorApple || (generic && identity.anchorAppleGeneric));
    }
    if (!next("certificate") && !next("cert")) return fail();
    need("leaf");
    need("[");
    const std::string field = at < tokens.size() && !tokens[at].quoted ? tokens[at++].text : "";
    need("]");
    static const std::regex extension("field\\.[0-9]+(\\.[0-9]+)*");
    if (field == "subject.OU" && next("=")) {
      const std::string wanted = valueHere();
      return identity.isSigned && !identity.team.empty() && identity.team == wanted;
    }
    need("exists");
    if (field == "subject.OU") return identity.isSigned && !identity.team.empty();
    if (!std::regex_match(field, extension)) return fail();
    const auto& known = identity.leafExtensions;
    return identity.isSigned && std::ranges::count(known, field.substr(6)) > 0;
  }
  bool fail() {
    wrong = true;
    return false;
  }

  std::vector<Token> tokens;
  const SigningIdentity& identity;
  std::size_t at = 0;
  bool wrong = false;
};

}  // namespace

std::optional<bool> satisfies(std::string_view requirement, const SigningIdentity& code) {
  return Evaluator(requirement, code).value();
}

}  // namespace korvel::fuzz::slow
