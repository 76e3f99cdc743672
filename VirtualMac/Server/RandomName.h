#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace virtualmac {

/// A name that nobody can guess, of two hexadecimal digits a byte. None: the system gives no random
/// bytes.
std::optional<std::string> randomName(std::size_t bytes);

}  // namespace virtualmac
