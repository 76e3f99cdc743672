#include "Base/Trap.h"

#include <gtest/gtest.h>

namespace korvel {

TEST(TrapDeathTest, TellsItsTextAsAFatalError) {
  EXPECT_DEATH(trap("a text of its own"), "^Fatal error: a text of its own\n$");
}

}  // namespace korvel
