#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

#include "SystemHost.h"

namespace tinmac::test {

namespace {

void lock(std::uint32_t& word) { bound<void(std::uint32_t*)>("_os_unfair_lock_lock")(&word); }
void unlock(std::uint32_t& word) { bound<void(std::uint32_t*)>("_os_unfair_lock_unlock")(&word); }

TEST(SystemUnfairLock, KeepsThreadsApart) {
  std::uint32_t word = 0;
  int count = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int turn = 0; turn < 2000; ++turn) {
        lock(word);
        ++count;
        unlock(word);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, 8000);
  EXPECT_EQ(word, 0U);
}

TEST(SystemUnfairLockDeathTest, LockingTwiceTraps) {
  std::uint32_t word = 0;
  lock(word);
  EXPECT_DEATH(lock(word), "tin-mac: os_unfair_lock_lock: the thread owns the lock already");
}

TEST(SystemUnfairLockDeathTest, UnlockingAnUnlockedLockTraps) {
  std::uint32_t word = 0;
  EXPECT_DEATH(unlock(word), "tin-mac: os_unfair_lock_unlock: the lock is not locked");
}

TEST(SystemUnfairLockDeathTest, UnlockingAnotherThreadsLockTraps) {
  std::uint32_t word = 0;
  std::thread([&] { lock(word); }).join();
  EXPECT_DEATH(unlock(word), "tin-mac: os_unfair_lock_unlock: another thread owns the lock");
}

}  // namespace

}  // namespace tinmac::test
