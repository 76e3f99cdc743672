#include "Base/Trap.h"

#include <cstdio>
#include <cstdlib>

namespace korvel {

void trap(std::string_view text) {
  std::fprintf(stderr, "Fatal error: %.*s\n", static_cast<int>(text.size()), text.data());
  std::abort();
}

}  // namespace korvel
