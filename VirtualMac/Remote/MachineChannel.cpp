#include "VirtualMac/Remote/MachineChannel.h"

#include <utility>

#include "Base/Trap.h"

namespace virtualmac {

MachineChannel::MachineChannel(int descriptor) : socket(descriptor) {}

MachineChannel::~MachineChannel() {
  closing = true;
  socket.shutDown();
  if (readingThread.joinable()) readingThread.join();
}

void MachineChannel::start(Listener heard, EndHandler whenOver) {
  listener = std::move(heard);
  endHandler = std::move(whenOver);
  readingThread = std::thread([this] { readLoop(); });
}

void MachineChannel::stopListening() {
  const std::lock_guard lock(listenerMutex);
  listener = nullptr;
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
    arrived.wait(lock);
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

void MachineChannel::readLoop() {
  const std::string reason = readFrames();
  if (!closing) endHandler(reason);
}

std::string MachineChannel::readFrames() {
  for (;;) {
    const auto body = socket.receiveFrame();
    if (!body && body.error().kind == FrameSocket::Failure::TooLong)
      return "an oversized frame from the machine: " + body.error().text;
    if (!body) return "the machine is gone";
    if (!takeFrame(*body)) return "a frame from the machine that makes no sense";
  }
}

bool MachineChannel::takeFrame(const std::string& body) {
  WireReader frame(body);
  const auto kind = static_cast<MachineFrame>(frame.u8());
  if (kind == MachineFrame::Answer) {
    const std::uint32_t ticket = frame.u32();
    if (frame.failed()) return false;
    const std::lock_guard lock(mutex);
    answers.insert_or_assign(ticket, body.substr(sizeof(std::uint8_t) + sizeof ticket));
    arrived.notify_all();
    return true;
  }
  if (kind != MachineFrame::Power && kind != MachineFrame::Clock) return false;
  const std::lock_guard lock(listenerMutex);
  if (!listener) return true;
  listener(kind, frame);
  return frame.finish();
}

}  // namespace virtualmac
