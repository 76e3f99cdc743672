#pragma once

#include <string_view>
#include <vector>

namespace tinmac {

/// The kinds of an argument beside the scalars, which go by the letter that the compiler gives
/// them.
inline constexpr char objectKind = '@';
inline constexpr char blockKind = '?';

/// An argument of a message or of a reply, as the compiler describes it in a protocol.
struct ArgumentType {
  char kind = 0;
  std::string_view className;  ///< Of an object; empty: any.
  std::string_view block;      ///< The types of a block; empty: not described.
};

struct Signature {
  char result = 0;
  /// Without the receiver and the selector, or without the block itself.
  std::vector<ArgumentType> arguments;

  /// The last argument when that is a block; null otherwise.
  [[nodiscard]] const ArgumentType* replyBlock() const;
};

/// Reads a method's types, such as v28@0:8C16@?<v@?B@"NSError">20. Views point into the text. Traps
/// on a type that no message may have.
Signature methodSignature(std::string_view types);
/// Reads a block's types, such as v@?B@"NSError".
Signature blockSignature(std::string_view types);

}  // namespace tinmac
