#include "JSONMembers.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace korvel {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view whitespace = " \t\n\r";
constexpr std::string_view decimalDigits = "0123456789";
constexpr std::string_view hexDigits = "0123456789abcdefABCDEF";

/// The length of the character at the front of `text`; 0 when none is there, when it is a control
/// character, or when its bytes are not UTF-8.
std::size_t characterSize(std::string_view text) {
  const auto byteAt = [text](std::size_t index) {
    return index < text.size() ? static_cast<std::uint8_t>(text[index]) : std::uint8_t{0};
  };
  // The smallest code point for each number of bytes: UTF-8 forbids a smaller one in that many.
  constexpr std::array<std::uint32_t, 5> smallest = {0, 0x20, 0x80, 0x800, 0x10000};
  const std::uint8_t lead = byteAt(0);
  const auto leadingOnes = static_cast<std::size_t>(std::countl_one(lead));
  if (leadingOnes == 1 || leadingOnes >= smallest.size()) return 0;
  const std::size_t size = leadingOnes == 0 ? 1 : leadingOnes;
  std::uint32_t point = lead & (0xFFU >> leadingOnes);
  for (std::size_t index = 1; index < size; ++index) {
    const std::uint8_t tail = byteAt(index);
    if ((tail & 0xC0U) != 0x80U) return 0;
    point = (point << 6U) | (tail & 0x3FU);
  }
  const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
  return point < smallest[size] || point > 0x10FFFF || surrogate ? 0 : size;
}

/// Moves over a text by the rules of JSON's grammar, and stops where the text breaks one.
class Walker {
 public:
  explicit Walker(std::string_view json) : text(json) {
    passWord(byteOrderMark);
    passSpace();
  }

  [[nodiscard]] std::size_t position() const { return at; }
  bool passObjectStart() { return pass('{'); }
  [[nodiscard]] bool passEnd() {
    passSpace();
    return at == text.size();
  }

  /// The rest of an object, behind its brace.
  bool passMembers(const JSONMemberTaker& take) {
    passSpace();
    if (pass('}')) return true;
    do {
      if (!passName()) return false;
      const std::string_view name = lastName;
      passSpace();
      const std::size_t start = at;
      if (!passValue()) return false;
      take(name, text.substr(start, at - start));
      passSpace();
    } while (pass(','));
    return pass('}');
  }

  bool passValue() {
    std::string closers;  // one for each open array or object, the innermost last
    while (true) {
      passSpace();
      if (const bool object = pass('{'); object || pass('[')) {
        closers += object ? '}' : ']';
        passSpace();
        if (next() != closers.back()) {
          if (object && !passName()) return false;
          continue;
        }
      } else if (!passScalar()) {
        return false;
      }
      // A value has ended here; the arrays and objects around it may end with it.
      while (!closers.empty()) {
        passSpace();
        if (!pass(closers.back())) break;
        closers.pop_back();
      }
      if (closers.empty()) return true;
      if (!pass(',')) return false;
      if (closers.back() == '}' && !passName()) return false;
    }
  }

 private:
  /// The next byte. NUL stands for the end: JSON itself has none.
  [[nodiscard]] char next() const { return at < text.size() ? text[at] : '\0'; }
  bool passAny(std::string_view set) {
    if (at == text.size() || set.find(text[at]) == std::string_view::npos) return false;
    ++at;
    return true;
  }
  bool pass(char wanted) { return passAny({&wanted, 1}); }
  bool passWord(std::string_view word) {
    if (!text.substr(at).starts_with(word)) return false;
    at += word.size();
    return true;
  }
  bool passAll(std::string_view set) {
    const std::size_t start = at;
    at = std::min(text.find_first_not_of(set, at), text.size());
    return at > start;
  }
  void passSpace() { passAll(whitespace); }

  bool passName() {
    passSpace();
    const std::size_t start = at;
    if (!passString()) return false;
    lastName = text.substr(start, at - start);
    passSpace();
    return pass(':');
  }
  bool passScalar() {
    if (next() == '"') return passString();
    return passWord("true") || passWord("false") || passWord("null") || passNumber();
  }
  bool passString() {
    if (!pass('"')) return false;
    while (!pass('"')) {
      if (!(pass('\\') ? passEscape() : passCharacter())) return false;
    }
    return true;
  }
  bool passEscape() {
    if (!pass('u')) return passAny("\"\\/bfnrt");
    return passAny(hexDigits) && passAny(hexDigits) && passAny(hexDigits) && passAny(hexDigits);
  }
  bool passCharacter() {
    const std::size_t size = characterSize(text.substr(at));
    at += size;
    return size != 0;
  }
  bool passNumber() {
    pass('-');
    if (!pass('0') && !passAll(decimalDigits)) return false;
    if (pass('.') && !passAll(decimalDigits)) return false;
    if (!passAny("eE")) return true;
    passAny("+-");
    return passAll(decimalDigits);
  }

  std::string_view text;
  std::size_t at = 0;
  std::string_view lastName;
};

}  // namespace

std::expected<void, std::string> forEachJSONMember(std::string_view text,
                                                   const JSONMemberTaker& take) {
  Walker walker(text);
  const bool object = walker.passObjectStart();
  const bool fits = object ? walker.passMembers(take) : walker.passValue();
  if (!fits || !walker.passEnd()) {
    return std::unexpected("not valid JSON at byte " + std::to_string(walker.position() + 1));
  }
  if (!object) return std::unexpected("the top level is not an object");
  return {};
}

}  // namespace korvel
