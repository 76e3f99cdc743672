#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Base/ErrorObject.h"

namespace virtualmac {

// How the journal tells what a client was answered, whichever way the answer went: the operation's
// name, and behind it one of the texts.

/// "setChargeLimit" for "setChargeLimit:reply:", "ping" for "pingWithReply:".
std::string operationName(std::string_view selector);

/// "412"
std::string replyText(std::uint64_t pid);
/// "ok" for bytes, "empty" for none.
std::string replyText(const std::string& data);
/// "ok", `failed 400 "The limit must be between 20 and 100."`, "failed without an error"
std::string replyText(bool success, const std::optional<korvel::ErrorObject>& error);

}  // namespace virtualmac
