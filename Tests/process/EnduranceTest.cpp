#include <gtest/gtest.h>

#include "Endurance.h"

namespace processtests {

TEST(EnduranceTest, TwoHoursChangeNothingButTheBattery) { endure(2); }

}  // namespace processtests
