#include "TinMac/Frameworks/XPCTypes.h"

#include <string>

#import "TinMac/Frameworks/Objects.h"

namespace tinmac {

namespace {

constexpr std::string_view qualifiers = "rnNoORV";
constexpr std::string_view scalars = "cislqCISLQfdBv:#*";

/// Reads one type after the other.
class TypeReader {
 public:
  explicit TypeReader(std::string_view types) : all(types), rest(types) {}

  [[nodiscard]] bool atEnd() const { return rest.empty(); }

  ArgumentType next() {
    skip(qualifiers);
    ArgumentType type{.kind = take(), .className = {}, .block = {}};
    if (type.kind == objectKind) {
      readObject(type);
    } else if (!scalars.contains(type.kind)) {
      refuse();
    }
    skip("-0123456789");  // The place on the stack.
    return type;
  }

 private:
  [[noreturn]] void refuse() const { trap("a message has a type that is not built", all); }

  char take() {
    if (rest.empty()) refuse();
    const char first = rest.front();
    rest.remove_prefix(1);
    return first;
  }

  void skip(std::string_view letters) {
    while (!rest.empty() && letters.contains(rest.front())) rest.remove_prefix(1);
  }

  void readObject(ArgumentType& type) {
    if (rest.starts_with('?')) {
      take();
      type.kind = blockKind;
      if (rest.starts_with('<')) type.block = takeBracketed();
    } else if (rest.starts_with('"')) {
      take();
      const std::size_t length = rest.find('"');
      if (length == std::string_view::npos) refuse();
      const std::string_view quoted = rest.substr(0, length);
      type.className = quoted.substr(0, quoted.find('<'));  // Protocols stand behind the class.
      rest.remove_prefix(length + 1);
    }
  }

  std::string_view takeBracketed() {
    std::size_t depth = 0;
    for (std::size_t index = 0; index < rest.size(); ++index) {
      if (rest[index] == '<') ++depth;
      if (rest[index] != '>' || --depth != 0) continue;
      const std::string_view inside = rest.substr(1, index - 1);
      rest.remove_prefix(index + 1);
      return inside;
    }
    refuse();
  }

  std::string_view all;
  std::string_view rest;
};

/// `implied`: how many arguments every such function has.
Signature read(std::string_view types, std::size_t implied) {
  TypeReader reader(types);
  Signature signature;
  signature.result = reader.next().kind;
  for (std::size_t index = 0; index < implied; ++index) reader.next();
  while (!reader.atEnd()) signature.arguments.push_back(reader.next());
  return signature;
}

}  // namespace

const ArgumentType* Signature::replyBlock() const {
  return !arguments.empty() && arguments.back().kind == blockKind ? &arguments.back() : nullptr;
}

Signature methodSignature(std::string_view types) { return read(types, 2); }
Signature blockSignature(std::string_view types) { return read(types, 1); }

}  // namespace tinmac
