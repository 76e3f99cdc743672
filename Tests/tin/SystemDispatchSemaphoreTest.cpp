#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <thread>

#include "SystemDispatch.h"
#include "TinMac/Frameworks/Below.h"

namespace tinmac::test {

namespace {

constexpr std::int64_t second = 1'000'000'000;

class SystemDispatchSemaphore : public testing::Test {
 public:
  ~SystemDispatchSemaphore() override { tinSemaphoreFree(semaphore); }

 protected:
  [[nodiscard]] bool wait(std::uint64_t until) { return tinSemaphoreWait(semaphore, until) != 0; }

  TestHost host;
  void* semaphore = tinSemaphoreMake(0);
};

TEST_F(SystemDispatchSemaphore, EverySignalLetsOneWaiterGo) {
  EXPECT_EQ(tinSemaphoreSignal(semaphore), 0U);
  EXPECT_EQ(tinSemaphoreSignal(semaphore), 0U);
  EXPECT_TRUE(wait(forever));
  EXPECT_TRUE(wait(after(0, second)));
  EXPECT_FALSE(wait(0)) << "both are used up, and the moment is here already";
  EXPECT_EQ(host.alarmCount(), 0U);
}

TEST_F(SystemDispatchSemaphore, ASignalWakesAThreadThatWaits) {
  std::atomic<bool> woke = false;
  std::thread waiting([&] { woke = wait(after(0, 3600 * second)); });
  // Before that its wait may not have begun, and the signal would say that nobody waits.
  std::uint32_t waited = 0;
  EXPECT_TRUE(eventually([&] { return host.alarmCount() == 1; }));
  waited = tinSemaphoreSignal(semaphore);
  waiting.join();
  EXPECT_TRUE(woke);
  EXPECT_LE(waited, 1U);
  EXPECT_EQ(host.alarmCount(), 0U);
}

TEST_F(SystemDispatchSemaphore, AWaitEndsWhenItsMomentComes) {
  std::atomic<bool> isOver = false;
  std::atomic<bool> wasSignalled = true;
  std::thread waiting([&] {
    wasSignalled = wait(after(0, 5 * second));
    isOver = true;
  });
  EXPECT_TRUE(eventually([&] { return host.alarmCount() == 1; }));
  host.advance(4 * second);
  EXPECT_FALSE(isOver);
  host.advance(second);
  waiting.join();
  EXPECT_FALSE(wasSignalled);
}

TEST_F(SystemDispatchSemaphore, APauseLastsAsLongAsTheMachinesClockSays) {
  std::atomic<bool> isOver = false;
  std::thread pausing([&] {
    tinPause(2.5);
    isOver = true;
  });
  EXPECT_TRUE(eventually([&] { return host.alarmCount() == 1; }));
  host.advance(2 * second);
  EXPECT_FALSE(isOver);
  host.advance(second);
  pausing.join();
  EXPECT_TRUE(isOver);
}

TEST_F(SystemDispatchSemaphore, TheProcessWritesToItsOwnDescriptors) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const std::array<std::uint8_t, 2> bytes{'h', 'i'};
  EXPECT_EQ(tinWriteOut(ends[1], bytes.data(), bytes.size()), 0);
  std::array<char, 8> read{};
  EXPECT_EQ(::read(ends[0], read.data(), read.size()), 2);
  EXPECT_STREQ(read.data(), "hi");
  ::close(ends[0]);
  ::close(ends[1]);
  EXPECT_EQ(tinWriteOut(ends[1], bytes.data(), bytes.size()), EBADF);
}

}  // namespace

}  // namespace tinmac::test
