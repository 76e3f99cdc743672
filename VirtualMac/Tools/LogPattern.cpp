#include "VirtualMac/Tools/LogPattern.h"

#include <algorithm>

namespace virtualmac {

namespace {

constexpr std::string_view digits = "0123456789";
constexpr std::string_view numberConversions = "diu";

/// The length of a conversion that begins with '%': its annotations, length and letter.
std::size_t conversionLength(std::string_view format) {
  std::size_t at = 1;
  if (format.substr(at).starts_with('{')) at = std::min(format.find('}'), format.size() - 1) + 1;
  while (at < format.size() && std::string_view("hlzjtq").contains(format[at])) ++at;
  return std::min(at + 1, format.size());
}

}  // namespace

LogPattern::LogPattern(std::string_view format) {
  while (!format.empty()) {
    const std::size_t percent = std::min(format.find('%'), format.size());
    addLiteral(format.substr(0, percent));
    format.remove_prefix(percent);
    if (format.empty()) break;
    if (format.starts_with("%%")) {
      addLiteral("%");
      format.remove_prefix(2);
      continue;
    }
    const std::size_t length = conversionLength(format);
    addHole(format.substr(0, length));
    format.remove_prefix(length);
  }
}

void LogPattern::addLiteral(std::string_view text) {
  if (text.empty()) return;
  if (pieces.empty() || pieces.back().kind != Piece::Kind::Literal) {
    pieces.push_back({Piece::Kind::Literal});
  }
  pieces.back().literal += text;
  literals += text.size();
  shown += text;
}

void LogPattern::addHole(std::string_view conversion) {
  const bool isNumber = numberConversions.contains(conversion.back());
  pieces.push_back({isNumber ? Piece::Kind::Number : Piece::Kind::Text});
  shown += "…";
}

/// Tries the pieces one after the other; a text is first as short as it can be.
class LogPattern::Matcher {
 public:
  Matcher(const std::vector<Piece>& wanted, std::string_view rendered, bool cut)
      : pieces(wanted), text(rendered), wasCut(cut) {}

  bool fits(std::size_t piece, std::size_t at) {
    if (piece == pieces.size()) return at == text.size();
    if (wasCut && piece > 0 && at == text.size()) return true;
    switch (pieces[piece].kind) {
      case Piece::Kind::Literal:
        return fitsLiteral(piece, at);
      case Piece::Kind::Number:
        return fitsNumber(piece, at);
      case Piece::Kind::Text:
        break;
    }
    for (std::size_t end = at; end <= text.size(); ++end) {
      if (take(piece, at, end)) return true;
    }
    return false;
  }

  std::vector<Value> values;

 private:
  bool fitsLiteral(std::size_t piece, std::size_t at) {
    const std::string& literal = pieces[piece].literal;
    const std::string_view rest = text.substr(at);
    if (rest.starts_with(literal)) return fits(piece + 1, at + literal.size());
    return wasCut && (piece > 0 || !rest.empty()) && literal.starts_with(rest);
  }

  bool fitsNumber(std::size_t piece, std::size_t at) {
    const std::size_t first = at + (text.substr(at).starts_with('-') ? 1 : 0);
    const std::size_t end = std::min(text.find_first_not_of(digits, first), text.size());
    return end > first && take(piece, at, end);
  }

  bool take(std::size_t piece, std::size_t at, std::size_t end) {
    std::string_view before = text.substr(0, at);
    while (before.ends_with(' ')) before.remove_suffix(1);
    values.push_back({std::string(text.substr(at, end - at)), std::string(before),
                      pieces[piece].kind == Piece::Kind::Number});
    if (fits(piece + 1, end)) return true;
    values.pop_back();
    return false;
  }

  const std::vector<Piece>& pieces;
  std::string_view text;
  bool wasCut;
};

std::optional<std::vector<LogPattern::Value>> LogPattern::match(std::string_view text,
                                                                bool wasCut) const {
  Matcher matcher(pieces, text, wasCut);
  if (!matcher.fits(0, 0)) return std::nullopt;
  return std::move(matcher.values);
}

}  // namespace virtualmac
