#include <gtest/gtest.h>

#include "Tests/process/Endurance.h"

namespace processtests {

TEST(EnduranceTest, TwoHoursChangeNothingButTheBattery) { endure(2); }

}  // namespace processtests
