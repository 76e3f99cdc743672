#pragma once

#include <expected>
#include <functional>
#include <string>
#include <string_view>

namespace korvel {

/// Gets a member of an object as it is written: the name with its quotes, and the value.
using JSONMemberTaker = std::function<void(std::string_view name, std::string_view value)>;

/// Hands out the members of the object that `text` is, in order, and decodes none of them.
///
/// The text as a whole must be JSON in UTF-8, and whoever takes a member decides what to make of
/// it. So a value that nobody wants can be anything that the grammar knows, also what no decoder
/// has a value for: a number beyond every type, half of a surrogate pair. Nothing recurses: a level
/// of nesting costs one byte of memory, and there are no more levels than bytes in the text.
///
/// The error says what is wrong and where; members may have been handed out before it was found.
std::expected<void, std::string> forEachJSONMember(std::string_view text,
                                                   const JSONMemberTaker& take);

}  // namespace korvel
