#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "Operations.h"
#include "VirtualMac/Remote/XPCMessages.h"

namespace virtualmac {

/// Makes an object of the helper's answer: `ok`, and the pid, the payload's fields under the
/// operation's word, or the error with its code. A helper that cannot encode its record sends no
/// bytes, and null stands for them.
nlohmann::ordered_json answerJSON(const korvel::Operation& operation,
                                  const std::vector<XPCValue>& values);

/// Makes the object that tells that there was no answer.
nlohmann::ordered_json lostJSON(const std::string& why);

}  // namespace virtualmac
