#include "VirtualMac/Remote/DescriptorPassing.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

namespace virtualmac {
namespace {

/// Two ends of a socket, and a pipe of which one end is passed on.
class DescriptorPassingTest : public testing::Test {
 protected:
  DescriptorPassingTest() {
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    EXPECT_EQ(::pipe(pipe.data()), 0);
  }
  void TearDown() override {
    for (const int each : {ends[0], ends[1], pipe[0], pipe[1], got}) {
      if (each >= 0) ::close(each);
    }
  }
  std::string receive() {
    std::array<char, 16> room{};
    const ssize_t count = receiveWithDescriptor(ends[1], room, got);
    return count < 0 ? "nothing" : std::string(room.data(), static_cast<std::size_t>(count));
  }
  void closeEnd(std::size_t end) {
    ::close(ends.at(end));
    ends.at(end) = -1;
  }

  std::array<int, 2> ends{};
  std::array<int, 2> pipe{};
  int got = -1;
};

TEST_F(DescriptorPassingTest, ADescriptorComesWithItsBytesAndIsAnotherOfTheSameFile) {
  ASSERT_TRUE(sendWithDescriptor(ends[0], "here", pipe[1]));
  EXPECT_EQ(receive(), "here");
  ASSERT_GE(got, 0);
  EXPECT_NE(got, pipe[1]);
  ASSERT_EQ(::write(got, "x", 1), 1);
  char read = 0;
  ASSERT_EQ(::read(pipe[0], &read, 1), 1);
  EXPECT_EQ(read, 'x');
}

TEST_F(DescriptorPassingTest, AProgramThatIsStartedDoesNotInheritIt) {
  ASSERT_TRUE(sendWithDescriptor(ends[0], "here", pipe[1]));
  receive();
  ASSERT_GE(got, 0);
  EXPECT_EQ(::fcntl(got, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(DescriptorPassingTest, BytesAloneBringNone) {
  ASSERT_EQ(::send(ends[0], "alone", 5, 0), 5);
  got = 7777;
  EXPECT_EQ(receive(), "alone");
  EXPECT_EQ(got, -1);
}

TEST_F(DescriptorPassingTest, WhatHasNotComeIsNotWaitedFor) {
  EXPECT_EQ(receive(), "nothing");
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(got, -1);
}

TEST_F(DescriptorPassingTest, AClosedPeerIsAnEndToTheReceiverAndAFailureToTheSender) {
  closeEnd(0);
  EXPECT_EQ(receive(), "");
  EXPECT_EQ(got, -1);
  EXPECT_FALSE(sendWithDescriptor(ends[1], "late", pipe[1]));
}

TEST_F(DescriptorPassingTest, AClosedDescriptorCannotBeSent) {
  EXPECT_FALSE(sendWithDescriptor(ends[0], "here", -1));
  EXPECT_EQ(receive(), "nothing");
}

}  // namespace
}  // namespace virtualmac
