#include <gtest/gtest.h>

#include "Endurance.h"

namespace processtests {

TEST(LongEnduranceTest, ADayChangesNothingButTheBattery) { endure(24); }

}  // namespace processtests
