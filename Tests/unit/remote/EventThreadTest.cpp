#include "VirtualMac/Remote/EventThread.h"

#include <gtest/gtest.h>

#include <asio/post.hpp>
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

namespace virtualmac {
namespace {

TEST(EventThreadTest, RunsEverythingOnOneThreadThatIsNotTheCallers) {
  EventThread events;
  std::promise<std::thread::id> first;
  std::promise<std::thread::id> second;
  asio::post(events.context(), [&] { first.set_value(std::this_thread::get_id()); });
  asio::post(events.context(), [&] { second.set_value(std::this_thread::get_id()); });
  const std::thread::id its = first.get_future().get();
  EXPECT_EQ(second.get_future().get(), its);
  EXPECT_NE(its, std::this_thread::get_id());
}

TEST(EventThreadTest, WaitsForWorkThoughThereWasNone) {
  EventThread events;
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::promise<void> ran;
  asio::post(events.context(), [&] { ran.set_value(); });
  EXPECT_EQ(ran.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST(EventThreadTest, StopReturnsWhenTheCurrentWorkIsDoneAndNoOtherBegins) {
  EventThread events;
  std::promise<void> begun;
  std::atomic<bool> done = false;
  std::atomic<bool> other = false;
  asio::post(events.context(), [&] {
    begun.set_value();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    done = true;
  });
  asio::post(events.context(), [&] { other = true; });
  begun.get_future().wait();
  events.stop();
  EXPECT_TRUE(done);
  EXPECT_FALSE(other);
}

TEST(EventThreadTest, StopsTwiceWithoutHarm) {
  EventThread events;
  events.stop();
  events.stop();
  EXPECT_TRUE(events.context().stopped());
}

}  // namespace
}  // namespace virtualmac
