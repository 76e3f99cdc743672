#include "VirtualMac/Server/HelperLink.h"

#include <sys/socket.h>

#include <asio/buffer.hpp>
#include <asio/write.hpp>
#include <utility>

#include "VirtualMac/Remote/DescriptorPassing.h"

namespace virtualmac {

HelperLink::HelperLink(Socket connected, Machine& served, RealTimeDriver& keeper,
                       std::shared_ptr<HelperProcess> helper, Journal& journal, DiskWatch& disk)
    : callWay{std::move(connected)},
      newsWay{Socket(callWay.socket.get_executor())},
      timeDriver(keeper),
      process(std::move(helper)),
      half(served, *process, journal, disk) {
  half.setTimeSource([this] { return timeDriver.time(); });
  half.setPowerHandler([this](const PowerMessage& message) { sendPower(message); });
}

void HelperLink::start(std::function<void(const std::string&)> problem) {
  problemHandler = std::move(problem);
  begin();
}

void HelperLink::close() {
  closed = true;
  std::error_code ignored;
  static_cast<void>(callWay.socket.close(ignored));
  static_cast<void>(newsWay.socket.close(ignored));
}

// A process that wants news sends its end of a socket for them first.
void HelperLink::begin() {
  callWay.socket.async_wait(
      Socket::wait_read, [self = shared_from_this()](const std::error_code& error) {
        if (error) return self->tellEnd();
        if (self->closed) return;
        int descriptor = -1;
        const ssize_t got =
            receiveWithDescriptor(self->callWay.socket.native_handle(), self->chunk, descriptor);
        if (descriptor >= 0) self->newsWay.socket.assign(Socket::protocol_type(), descriptor);
        if (got > 0) self->incoming.append(self->chunk.data(), static_cast<std::size_t>(got));
        self->takeFrames();
        self->readMore();
      });
}

void HelperLink::readMore() {
  if (closed) return;
  callWay.socket.async_read_some(
      asio::buffer(chunk),
      [self = shared_from_this()](const std::error_code& error, std::size_t got) {
        if (error) return self->tellEnd();
        if (self->closed) return;
        self->incoming.append(self->chunk.data(), got);
        self->takeFrames();
        self->readMore();
      });
}

void HelperLink::drain() {
  std::array<char, 4096> rest{};
  for (;;) {
    const ssize_t got =
        ::recv(callWay.socket.native_handle(), rest.data(), rest.size(), MSG_DONTWAIT);
    if (got <= 0) break;
    incoming.append(rest.data(), static_cast<std::size_t>(got));
  }
  takeFrames();
}

void HelperLink::takeFrames() {
  while (!closed) {
    const auto body = takeFrame(incoming);
    if (!body) return cutOff("an oversized frame: " + body.error());
    if (!*body) return;
    takeCall(**body);
  }
}

void HelperLink::takeCall(const std::string& body) {
  WireReader frame(body);
  const auto kind = static_cast<MachineFrame>(frame.u8());
  if (kind == MachineFrame::News) return;
  if (kind != MachineFrame::Call) frame.fail("not a call");
  PendingCall call;
  call.ticket = frame.u32();
  call.number = frame.u16();
  if (frame.failed()) return cutOff(frame.failure());
  if (mayCall && !mayCall(call.number)) {
    return cutOff("call " + std::to_string(call.number) + " is not for this process");
  }
  call.arguments = body.substr(sizeof(std::uint8_t) + sizeof call.ticket + sizeof call.number);
  if (const auto made = MachineHalf::seamCall(call.number, call.arguments)) last = made;
  timeDriver.catchUp();
  const double latency = half.latencySeconds(call.number, call.arguments);
  if (latency > 0)
    delayCall(std::move(call), latency);
  else
    answer(call);
}

void HelperLink::delayCall(PendingCall call, double seconds) {
  const std::uint64_t order = ++delayedCalls;
  if (const auto made = MachineHalf::seamCall(call.number, call.arguments))
    underWay.emplace(order, *made);
  const auto alarm = std::make_shared<asio::steady_timer>(callWay.socket.get_executor(),
                                                          timeDriver.real(fromSeconds(seconds)));
  alarm->async_wait([self = weak_from_this(), alarm, order,
                     late = std::move(call)](const std::error_code& cancelled) {
    const std::shared_ptr<HelperLink> link = self.lock();
    if (cancelled || !link || link->closed) return;
    link->underWay.erase(order);
    link->timeDriver.catchUp();
    link->answer(late);
  });
}

std::vector<SeamCall> HelperLink::callsUnderWay() const {
  std::vector<SeamCall> calls;
  for (const auto& [order, call] : underWay) calls.push_back(call);
  return calls;
}

std::optional<SeamCall> HelperLink::lastCall() const {
  return underWay.empty() ? last : std::optional(underWay.begin()->second);
}

void HelperLink::answer(const PendingCall& call) {
  WireReader arguments(call.arguments);
  WireWriter result;
  result.u8(static_cast<std::uint8_t>(MachineFrame::Answer));
  result.u32(call.ticket);
  result.boolean(half.givingBackTakesTime());
  half.serve(call.number, arguments, result);
  if (arguments.failed())
    return cutOff("call " + std::to_string(call.number) + ": " + arguments.failure());
  if (call.ticket != 0) send(callWay, result.body());
  timeDriver.settle();
}

void HelperLink::sendPower(const PowerMessage& message) {
  WireWriter frame;
  frame.u8(static_cast<std::uint8_t>(MachineFrame::Power));
  frame.u32(message.notifier);
  frame.u32(message.messageType);
  frame.i64(message.notificationID);
  send(newsWay, frame.body());
}

void HelperLink::sendClock(const MachineTime& time) {
  WireWriter frame;
  frame.u8(static_cast<std::uint8_t>(MachineFrame::Clock));
  put(frame, time);
  send(newsWay, frame.body());
}

void HelperLink::send(Way& way, const std::string& frameBody) {
  if (closed || !way.socket.is_open()) return;
  way.outgoing.push_back(frameOf(frameBody));
  if (way.outgoing.size() == 1) writeNext(way);
}

void HelperLink::writeNext(Way& way) {
  asio::async_write(way.socket, asio::buffer(way.outgoing.front()),
                    [self = shared_from_this(), &way](const std::error_code& error, std::size_t) {
                      if (error) return;
                      way.outgoing.pop_front();
                      if (!way.outgoing.empty()) self->writeNext(way);
                    });
}

void HelperLink::cutOff(const std::string& reason) {
  if (closed) return;
  close();
  problemHandler(reason);
  tellEnd();
}

void HelperLink::tellEnd() {
  if (const auto handler = std::exchange(endHandler, nullptr)) handler();
}

}  // namespace virtualmac
