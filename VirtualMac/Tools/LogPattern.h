#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace virtualmac {

/// A text in the unified log's format language, to find the rendered texts that it can have made.
class LogPattern {
 public:
  /// An argument as it was rendered.
  struct Value {
    std::string text;
    std::string before;  ///< The text up to it, without the spaces at its end.
    bool isNumber = false;
  };

  explicit LogPattern(std::string_view format);

  /// The arguments of a rendered text; none: it is another's. A text that was cut fits as far as it
  /// goes.
  [[nodiscard]] std::optional<std::vector<Value>> match(std::string_view text,
                                                        bool wasCut = false) const;

  /// The rendered text's fixed bytes: of two patterns that fit, the one with more says more.
  [[nodiscard]] std::size_t fixedBytes() const { return literals; }
  /// The fixed words, with an ellipsis for each argument.
  [[nodiscard]] const std::string& plain() const { return shown; }

 private:
  struct Piece {
    enum class Kind : unsigned char { Literal, Text, Number } kind;
    std::string literal = {};
  };
  class Matcher;

  void addLiteral(std::string_view text);
  void addHole(std::string_view conversion);

  std::vector<Piece> pieces;
  std::size_t literals = 0;
  std::string shown;
};

}  // namespace virtualmac
