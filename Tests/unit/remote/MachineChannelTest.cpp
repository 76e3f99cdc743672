#include "VirtualMac/Remote/MachineChannel.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <future>
#include <thread>
#include <utility>
#include <vector>

#include "VirtualMac/Remote/DescriptorPassing.h"
#include "VirtualMac/Remote/EventThread.h"
#include "VirtualMac/Remote/MachineTime.h"

namespace virtualmac {
namespace {

/// Connects the helper's channel to a machine whose bytes the test writes by hand.
class MachineChannelTest : public testing::Test {
 protected:
  MachineChannelTest() {
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    channel.emplace(ends[0], events);
  }
  void TearDown() override {
    events.stop();
    channel.reset();
    ::close(ends[1]);
    if (news >= 0) ::close(news);
  }

  /// Starts the channel and takes what it sends first.
  void start(MachineChannel::Listener listener, MachineChannel::EndHandler end) {
    channel->start(std::move(listener), std::move(end));
    std::array<char, 64> first{};
    const ssize_t got = receiveWithDescriptor(ends[1], first, news);
    ASSERT_EQ(std::string(first.data(), static_cast<std::size_t>(got)), frameOf("\x04"));
    ASSERT_GE(news, 0);
  }
  static void send(int socket, const std::string& bytes) {
    ASSERT_EQ(::send(socket, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  }
  static std::string clockFrame() {
    WireWriter frame;
    frame.u8(static_cast<std::uint8_t>(MachineFrame::Clock));
    put(frame, MachineTime{});
    return frameOf(frame.body());
  }
  /// The next `count` calls, which have no arguments; each expects a number.
  void takeCalls(int count) const {
    constexpr std::size_t callSize = frameHeaderSize + 7;
    std::array<char, callSize> call{};
    for (int each = 0; each < count; ++each)
      ASSERT_EQ(::recv(ends[1], call.data(), call.size(), MSG_WAITALL), callSize);
  }
  void answer(std::uint32_t ticket, std::uint32_t number, bool givingBackTakesTime = false) const {
    WireWriter frame;
    frame.u8(static_cast<std::uint8_t>(MachineFrame::Answer));
    frame.u32(ticket);
    frame.boolean(givingBackTakesTime);
    put(frame, number);
    send(ends[1], frameOf(frame.body()));
  }

  std::array<int, 2> ends{};
  int news = -1;
  EventThread events;
  std::optional<MachineChannel> channel;
};

void ignoreNews(MachineFrame, WireReader&) {}
void failAtEnd(const std::string& reason) { ADD_FAILURE() << reason; }

}  // namespace

TEST_F(MachineChannelTest, NewsAreHeardInTheirOrderWhileACallWaits) {
  std::promise<std::thread::id> heard;
  std::atomic<int> count = 0;
  start(
      [&](MachineFrame, WireReader& body) {
        MachineTime time;
        get(body, time);
        if (++count == 2) heard.set_value(std::this_thread::get_id());
      },
      failAtEnd);
  std::thread machine([this, &heard] {
    takeCalls(1);
    const std::string clocks = clockFrame() + clockFrame();
    // In two pieces, of which the first ends inside a frame.
    send(news, clocks.substr(0, 9));
    send(news, clocks.substr(9));
    EXPECT_NE(heard.get_future().get(), std::this_thread::get_id());
    answer(1, 7);
  });
  EXPECT_EQ(channel->call<std::uint32_t>(3), 7U);
  machine.join();
}

// One of the callers reads for all: whichever it is, each gets its own answer.
TEST_F(MachineChannelTest, CallsOfSeveralThreadsAreAnsweredInAnyOrder) {
  start(ignoreNews, failAtEnd);
  constexpr std::uint32_t callers = 3;
  std::thread machine([this] {
    takeCalls(callers);
    for (const std::uint32_t ticket : {2U, 3U, 1U}) answer(ticket, ticket);
  });
  std::atomic<std::uint32_t> sum = 0;
  std::vector<std::thread> threads;
  for (std::uint32_t each = 0; each < callers; ++each)
    threads.emplace_back([&] { sum += channel->call<std::uint32_t>(3); });
  for (std::thread& thread : threads) thread.join();
  machine.join();
  EXPECT_EQ(sum, 1U + 2U + 3U);
}

TEST_F(MachineChannelTest, WhatIsGivenBackIsAwaitedOnlyWhileTheMachineSaysThatItTakesTime) {
  start(ignoreNews, failAtEnd);
  std::atomic<bool> answered = false;
  std::thread machine([this, &answered] {
    takeCalls(2);
    answer(1, 7, true);
    takeCalls(1);
    answered = true;
    answer(2, 7);
    takeCalls(1);
  });
  channel->giveBack(4);
  EXPECT_EQ(channel->call<std::uint32_t>(3), 7U);
  channel->giveBack(4);
  EXPECT_TRUE(answered);
  channel->giveBack(4);
  machine.join();
}

TEST_F(MachineChannelTest, AMachineThatGoesAwayIsNoticedWithoutACall) {
  std::promise<std::string> end;
  start(ignoreNews, [&end](const std::string& reason) { end.set_value(reason); });
  ::close(std::exchange(news, -1));
  EXPECT_EQ(end.get_future().get(), "the machine is gone");
}

TEST_F(MachineChannelTest, NewsThatMakeNoSenseEndTheChannel) {
  std::promise<std::string> end;
  start(ignoreNews, [&end](const std::string& reason) { end.set_value(reason); });
  send(news, frameOf("?"));
  EXPECT_EQ(end.get_future().get(), "a frame from the machine that makes no sense");
}

}  // namespace virtualmac
