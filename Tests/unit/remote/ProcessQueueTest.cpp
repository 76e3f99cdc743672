#include "VirtualMac/Remote/ProcessQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac {

TEST(ProcessQueueTest, WorkThatIsWaitedForRunsWhereItIsWaitedFor) {
  ProcessQueue queue("q");
  const std::size_t threads = hostsystem::threadCount();
  std::thread::id ran;
  bool current = false;
  queue.sync([&] {
    ran = std::this_thread::get_id();
    current = queue.isCurrent();
  });
  EXPECT_EQ(ran, std::this_thread::get_id());
  EXPECT_TRUE(current);
  EXPECT_FALSE(queue.isCurrent());
  EXPECT_EQ(hostsystem::threadCount(), threads) << "nothing was posted";
}

TEST(ProcessQueueTest, WorkThatIsWaitedForComesAfterWhatWasPosted) {
  ProcessQueue queue("q");
  std::vector<int> order;
  std::promise<void> go;
  queue.async([&, begun = go.get_future().share()] {
    begun.wait();
    order.push_back(1);
  });
  queue.async([&order] { order.push_back(2); });
  go.set_value();
  queue.sync([&order] { order.push_back(3); });
  EXPECT_EQ(order, (std::vector{1, 2, 3}));
}

TEST(ProcessQueueTest, WhatIsPostedMeanwhileWaitsForWorkThatIsWaitedFor) {
  ProcessQueue queue("q");
  bool over = false;
  std::promise<bool> posted;
  queue.sync([&] {
    queue.async([&] { posted.set_value(over); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    over = true;
  });
  EXPECT_TRUE(posted.get_future().get());
}

TEST(ProcessQueueTest, OnePieceOfWorkRunsAtATimeWhoeverWaits) {
  ProcessQueue queue("q");
  int count = 0;
  std::atomic<int> inside = 0;
  const auto work = [&] {
    EXPECT_EQ(++inside, 1);
    ++count;
    --inside;
  };
  std::vector<std::thread> threads;
  for (int each = 0; each < 4; ++each) {
    threads.emplace_back([&] {
      for (int time = 0; time < 250; ++time) {
        queue.async(work);
        queue.sync(work);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, 2000);
}

TEST(ProcessQueueTest, PostedWorkRunsThoughItsQueueIsGone) {
  std::promise<int> ran;
  std::promise<void> go;
  {
    ProcessQueue queue("q");
    queue.async([begun = go.get_future().share()] { begun.wait(); });
    queue.async([&ran] { ran.set_value(1); });
  }
  go.set_value();
  EXPECT_EQ(ran.get_future().get(), 1);
}

TEST(ProcessQueueDeathTest, AQueueDoesNotWaitForItself) {
  EXPECT_DEATH(
      {
        ProcessQueue queue("q");
        queue.sync([&queue] { queue.sync([] {}); });
      },
      "a queue's own work waits for the queue");
}

}  // namespace virtualmac
