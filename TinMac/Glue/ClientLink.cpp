#include "TinMac/Glue/ClientLink.h"

#include <chrono>
#include <thread>
#include <utility>

#include "Base/Trap.h"
#include "TinMac/Glue/Machine.h"
#include "VirtualMac/Remote/HelperHost.h"
#include "VirtualMac/Remote/HostSystem.h"

using virtualmac::FrameSocket;

TinClient::TinClient(TinPeer wanted, std::string codeRequirement, const TinClientEvents& told)
    : peer(std::move(wanted)), requirement(std::move(codeRequirement)), events(told) {
  if (!peer.connect) over = TinClientInvalid;
}

void TinClient::start() {
  std::thread([this] { run(); }).detach();
}

bool TinClient::send(const virtualmac::XPCCall& call, std::uint32_t unsentTicket) {
  const std::lock_guard oneAtATime(sending);
  const Socket open = connected();
  bool isOpen = open != nullptr;
  if (isOpen) {
    const std::lock_guard lock(mutex);
    isOpen = open == socket;
    // Its reply may come as soon as it is sent. When the peer goes away, whatever is awaited fails.
    if (isOpen && call.ticket != 0) awaited.insert(call.ticket);
  }
  const bool isSent = isOpen && open->sendFrame(encode(call));
  const std::lock_guard lock(mutex);
  if (!isSent && (!isOpen || call.ticket == 0)) unsent.push_back(unsentTicket);
  changed.notify_one();
  return isSent;
}

TinClient::Socket TinClient::connected() {
  {
    const std::lock_guard lock(mutex);
    if (over) return nullptr;
    if (socket != nullptr) return socket;
  }
  auto made = peer.connect();
  const std::lock_guard lock(mutex);
  if (!made) {
    over = TinClientInvalid;
  } else if (!over) {
    socket = std::make_shared<FrameSocket>(*std::move(made));
  }
  return socket;
}

void TinClient::end(TinClientEnd reason) {
  const std::lock_guard lock(mutex);
  if (!over) over = reason;
  if (socket != nullptr) socket->shutDown();
  changed.notify_one();
}

void TinClient::close() {
  const std::lock_guard lock(mutex);
  closing = true;
  if (socket != nullptr) socket->shutDown();
  changed.notify_one();
}

void TinClient::beQuiet() {
  constexpr std::chrono::seconds longest(5);
  // Never unlocked: the process ends.
  static_cast<void>(telling.try_lock_for(longest));
}

bool TinClient::isConnected() {
  const std::lock_guard lock(mutex);
  return socket != nullptr && !over && !closing;
}

template <class Event>
void TinClient::tell(Event event) {
  const std::lock_guard lock(telling);
  event();
}

void TinClient::run() {
  Lock lock(mutex);
  while (!closing) {
    changed.wait(lock, [this] {
      return socket != nullptr || !unsent.empty() || (over && !endIsTold) || closing;
    });
    if (socket != nullptr) serveSocket(lock);
    failUnsent(lock);
    if (over && !endIsTold) tellEnd(lock);
  }
  lock.unlock();
  delete this;
}

void TinClient::serveSocket(Lock& lock) {
  const Socket open = socket;
  lock.unlock();
  readReplies(open);
  lock.lock();
  socket.reset();
  const auto unanswered = std::exchange(awaited, {});
  if (!over && !peer.comesBack) over = TinClientInvalid;
  const TinClientEnd reason = over.value_or(TinClientInterrupted);
  if (closing) return;
  lock.unlock();
  tell([&] {
    for (const std::uint32_t ticket : unanswered) events.failed(events.context, ticket, reason);
    if (reason == TinClientInterrupted) events.ended(events.context, reason);
  });
  lock.lock();
}

void TinClient::failUnsent(Lock& lock) {
  const auto tickets = std::exchange(unsent, {});
  const TinClientEnd reason = over.value_or(TinClientInterrupted);
  lock.unlock();
  tell([&] {
    for (const std::uint32_t ticket : tickets) events.failed(events.context, ticket, reason);
  });
  lock.lock();
}

void TinClient::tellEnd(Lock& lock) {
  endIsTold = true;
  lock.unlock();
  tell([this] { events.ended(events.context, *over); });
  lock.lock();
}

void TinClient::readReplies(const Socket& open) {
  bool isAdmitted = requirement.empty();
  for (;;) {
    const FrameSocket::Received body = open->receiveFrame();
    if (!body) return;
    isAdmitted = isAdmitted || admits(open);
    if (!isAdmitted || !take(*body)) return open->shutDown();
  }
}

bool TinClient::admits(const Socket& open) {
  const std::int32_t process = virtualmac::hostsystem::peerProcess(open->descriptor());
  const bool satisfies =
      tinmac::machineHost().judge(process, requirement) == virtualmac::PeerVerdict::Satisfies;
  if (!satisfies) end(TinClientRefused);
  return satisfies;
}

bool TinClient::take(const std::string& body) {
  auto reply = virtualmac::decodeXPCReply(body);
  if (!reply) return false;
  {
    const std::lock_guard lock(mutex);
    if (awaited.erase(reply->ticket) == 0) return false;
  }
  const TinAnswer answer{std::move(reply->values)};
  tell([&] { events.replied(events.context, reply->ticket, &answer); });
  return true;
}
