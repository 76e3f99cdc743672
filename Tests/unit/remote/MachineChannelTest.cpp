#include "VirtualMac/Remote/MachineChannel.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <future>
#include <thread>

#include "VirtualMac/Remote/MachineTime.h"

namespace virtualmac {
namespace {

/// Connects the helper's channel to a machine whose bytes the test writes by hand.
class MachineChannelTest : public testing::Test {
 protected:
  MachineChannelTest() {
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    channel.emplace(ends[0]);
  }
  void TearDown() override {
    channel.reset();
    ::close(ends[1]);
  }

  void send(const WireWriter& frame) const {
    const std::string bytes = frameOf(frame.body());
    ASSERT_EQ(::send(ends[1], bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  }
  void sendClock() const {
    WireWriter frame;
    frame.u8(static_cast<std::uint8_t>(MachineFrame::Clock));
    put(frame, MachineTime{});
    send(frame);
  }
  /// Answers the first call, which has no arguments and expects a number.
  void answer(std::uint32_t number) const {
    std::array<char, 64> call{};
    ASSERT_GT(::recv(ends[1], call.data(), call.size(), 0), 0);
    WireWriter frame;
    frame.u8(static_cast<std::uint8_t>(MachineFrame::Answer));
    frame.u32(1);
    put(frame, number);
    send(frame);
  }

  std::array<int, 2> ends{};
  std::optional<MachineChannel> channel;
};

}  // namespace

TEST_F(MachineChannelTest, NobodyHearsOnceTheListenerWasLetGoAndCallsAreStillAnswered) {
  std::atomic<int> heard = 0;
  std::promise<void> first;
  channel->start(
      [&](MachineFrame, WireReader& body) {
        MachineTime time;
        get(body, time);
        if (++heard == 1) first.set_value();
      },
      [](const std::string& reason) { ADD_FAILURE() << reason; });
  sendClock();
  first.get_future().wait();
  channel->stopListening();
  // The clock was sent before the answer, so it is read first.
  sendClock();
  sendClock();
  std::thread machine([this] { answer(7); });
  EXPECT_EQ(channel->call<std::uint32_t>(3), 7U);
  machine.join();
  EXPECT_EQ(heard, 1);
}

TEST_F(MachineChannelTest, TheListenerIsNotRunningWhenItWasLetGo) {
  std::promise<void> entered;
  std::promise<void> leave;
  std::atomic<bool> left = false;
  channel->start(
      [&](MachineFrame, WireReader& body) {
        MachineTime time;
        get(body, time);
        entered.set_value();
        leave.get_future().wait();
        left = true;
      },
      [](const std::string& reason) { ADD_FAILURE() << reason; });
  sendClock();
  entered.get_future().wait();
  std::thread later([&leave] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    leave.set_value();
  });
  channel->stopListening();
  EXPECT_TRUE(left);
  later.join();
}

}  // namespace virtualmac
