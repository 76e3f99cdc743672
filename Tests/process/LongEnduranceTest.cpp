#include <gtest/gtest.h>

#include "Tests/process/Endurance.h"

namespace processtests {

TEST(LongEnduranceTest, ADayChangesNothingButTheBattery) { endure(24); }

}  // namespace processtests
