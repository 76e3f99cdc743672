#include "VirtualMac/Remote/MachineChannel.h"

#include <unistd.h>

#include <asio/buffer.hpp>
#include <utility>

#include "Base/Trap.h"
#include "VirtualMac/Remote/DescriptorPassing.h"
#include "VirtualMac/Remote/EventThread.h"
#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac {

MachineChannel::MachineChannel(int descriptor, EventThread& events)
    : socket(descriptor), news(events.context()) {}

MachineChannel::~MachineChannel() = default;

void MachineChannel::start(Listener heard, EndHandler whenOver) {
  listener = std::move(heard);
  endHandler = std::move(whenOver);
  std::array<int, 2> ends{};
  if (!hostsystem::unixSocketPair(ends)) korvel::trap("no socket for the machine's news");
  news.assign(asio::local::stream_protocol(), ends[0]);
  const char kind = static_cast<char>(MachineFrame::News);
  sendWithDescriptor(socket.descriptor(), frameOf({&kind, 1}), ends[1]);
  ::close(ends[1]);
  readNews();
}

std::string MachineChannel::exchange(CallNumber number, std::string_view arguments) {
  std::uint32_t ticket = 0;
  {
    const std::lock_guard lock(mutex);
    while (ticket == 0 || answers.contains(ticket)) ticket = ++lastTicket;
  }
  send(ticket, number, arguments);
  std::unique_lock lock(mutex);
  for (;;) {
    if (const auto answer = answers.extract(ticket)) return std::move(answer.mapped());
    if (reading || over) {
      changed.wait(lock);
      continue;
    }
    reading = true;
    lock.unlock();
    const FrameSocket::Received frame = socket.receiveFrame();
    lock.lock();
    reading = false;
    takeAnswer(frame, lock);
    changed.notify_all();
  }
}

void MachineChannel::send(std::uint32_t ticket, CallNumber number, std::string_view arguments) {
  WireWriter whole;
  whole.u8(static_cast<std::uint8_t>(MachineFrame::Call));
  whole.u32(ticket);
  whole.u16(number);
  const std::string body = whole.body() + std::string(arguments);
  const std::lock_guard lock(sendMutex);
  socket.sendFrame(body);  // A machine that is gone is noticed and told where frames are read.
}

void MachineChannel::checkAnswer(CallNumber number, WireReader& answer) {
  if (!answer.finish())
    korvel::trap("the machine's answer to call " + std::to_string(number) +
                 " makes no sense: " + answer.failure());
}

// The lock is held before and after; the end handler, which may take any lock, runs without it.
void MachineChannel::takeAnswer(const FrameSocket::Received& frame,
                                std::unique_lock<std::mutex>& lock) {
  std::string problem = "a frame from the machine that makes no sense";
  if (frame) {
    WireReader reader(*frame);
    const auto kind = static_cast<MachineFrame>(reader.u8());
    const std::uint32_t ticket = reader.u32();
    const bool slow = reader.boolean();
    if (kind == MachineFrame::Answer && !reader.failed()) {
      givingBackTakesTime = slow;
      constexpr std::size_t head = sizeof(std::uint8_t) + sizeof ticket + sizeof(std::uint8_t);
      answers.insert_or_assign(ticket, frame->substr(head));
      return;
    }
  } else {
    problem = frame.error().kind == FrameSocket::Failure::TooLong
                  ? "an oversized frame from the machine: " + frame.error().text
                  : "the machine is gone";
  }
  lock.unlock();
  end(problem);
  lock.lock();
}

void MachineChannel::readNews() {
  news.async_read_some(asio::buffer(chunk), [this](const std::error_code& error, std::size_t got) {
    if (error == asio::error::operation_aborted) return;
    if (error) return end("the machine is gone");
    incomingNews.append(chunk.data(), got);
    for (;;) {
      const auto frame = takeFrame(incomingNews);
      if (!frame) return end("an oversized frame from the machine: " + frame.error());
      if (!*frame) break;
      if (!takeNews(**frame)) return end("a frame from the machine that makes no sense");
    }
    readNews();
  });
}

bool MachineChannel::takeNews(const std::string& frame) {
  WireReader body(frame);
  const auto kind = static_cast<MachineFrame>(body.u8());
  if (kind != MachineFrame::Power && kind != MachineFrame::Clock) return false;
  listener(kind, body);
  return body.finish();
}

void MachineChannel::end(const std::string& reason) {
  if (!over.exchange(true)) endHandler(reason);
}

}  // namespace virtualmac
