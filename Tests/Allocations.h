#pragma once

#include <cstdint>

/// Counts what a whole test program allocates. Linking it is enough to have it count. Any thread.
namespace korvel::test::allocations {

/// How often memory was asked for since the program's start.
std::int64_t made();
/// How much more often it was asked for than given back.
std::int64_t live();

}  // namespace korvel::test::allocations
