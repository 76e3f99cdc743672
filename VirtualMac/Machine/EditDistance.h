#pragma once

#include <cstddef>
#include <string_view>

namespace virtualmac {

/// Inserted, dropped and changed letters that lead from one word to the other.
std::size_t editDistance(std::string_view left, std::string_view right);

}  // namespace virtualmac
