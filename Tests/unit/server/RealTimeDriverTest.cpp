#include "VirtualMac/Server/RealTimeDriver.h"

#include <gtest/gtest.h>

#include <vector>

namespace virtualmac {
namespace {

class RealTimeDriverTest : public testing::Test {
 protected:
  asio::io_context context{1};
  Journal journal{[this] { return machine.totalSeconds(); }};
  Machine machine{loadProfile("newer-keys").value(), journal};
  RealTimeDriver keeper{context, machine, 1e6};
};

}  // namespace

TEST_F(RealTimeDriverTest, TheMachineCatchesUpWithRealTime) {
  const Nanoseconds before = machine.totalNanoseconds();
  keeper.catchUp();
  EXPECT_GT(machine.totalNanoseconds(), before);
}

// A reported time is the moment to which the machine has caught up.
TEST_F(RealTimeDriverTest, TheTimeThatIsToldIsTheMachines) {
  keeper.catchUp();
  const MachineTime time = keeper.time();
  EXPECT_EQ(time.uptime, machine.uptimeNanoseconds());
  EXPECT_EQ(uptimeAt(time, time.steadyNanoseconds), machine.uptimeNanoseconds());
  EXPECT_LE(time.steadyNanoseconds, steadyNow());
  EXPECT_EQ(time.speed, 1e6);
}

TEST_F(RealTimeDriverTest, FallingAsleepAndWakingAreTold) {
  std::vector<bool> frozen;
  keeper.setClockHandler([&](const MachineTime& time) { frozen.push_back(time.frozen); });
  machine.power.requestSleep();
  keeper.settle();
  machine.power.wake();
  keeper.settle();
  EXPECT_EQ(frozen, (std::vector<bool>{true, false}));
}

TEST_F(RealTimeDriverTest, AnotherSpeedIsToldAndTimeDoesNotJump) {
  std::vector<double> speeds;
  keeper.setClockHandler([&](const MachineTime& time) { speeds.push_back(time.speed); });
  keeper.setSpeed(0.01);
  EXPECT_EQ(speeds, std::vector<double>{0.01});
  const Nanoseconds before = machine.totalNanoseconds();
  keeper.catchUp();
  EXPECT_LT(machine.totalNanoseconds() - before, nanosecondsPerSecond);
}

// The machine's own next event wakes the driver, without any request.
TEST_F(RealTimeDriverTest, EventsHappenByThemselves) {
  const int before = machine.battery.percent();
  bool changed = false;
  keeper.setSettledHandler([&] {
    changed = machine.battery.percent() != before;
    if (changed) context.stop();
  });
  keeper.settle();
  context.run();
  EXPECT_TRUE(changed);
}

}  // namespace virtualmac
