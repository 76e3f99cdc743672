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
/// The text as a whole must be JSON in UTF-8. `take` decodes the values that it wants, so any other
/// may be one that the grammar allows and no decoder can express: a number beyond every type, half
/// of a surrogate pair. Nothing recurses: a level of nesting costs one byte of memory, and a text
/// has no more levels than bytes.
///
/// The error says what is wrong and where; members may have been handed out before it was found.
std::expected<void, std::string> forEachJSONMember(std::string_view text,
                                                   const JSONMemberTaker& take);

}  // namespace korvel
