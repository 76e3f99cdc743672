#include "VirtualMac/Web/PageConnection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "VirtualMac/Machine/Bounds.h"

namespace virtualmac {

namespace {

/// The system keeps so many bytes for a browser that does not read.
constexpr int sendBuffer = 64 * 1024;

bool becomes(int socket, short event, double seconds) {
  pollfd one{socket, event, 0};
  const auto milliseconds = static_cast<int>(std::max(0.0, seconds) * 1000);
  int ready = ::poll(&one, 1, milliseconds);
  while (ready < 0 && errno == EINTR) ready = ::poll(&one, 1, milliseconds);
  return ready > 0;
}

}  // namespace

PageConnection::PageConnection(Descriptor accepted) : handle(std::move(accepted)) {
  ::setsockopt(handle.get(), SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
}

bool PageConnection::awaitRequest() {
  left = bounds::longestPageRequest;
  due = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                           std::chrono::duration<double>(bounds::longestPageArrival));
  return taken < filled || fill() > 0;
}

void PageConnection::letGo() {
  const linger atOnce{1, 0};
  ::setsockopt(socket(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  isLetGo = true;
}

void PageConnection::finish() {
  constexpr double patience = 0.5;
  if (isLetGo) return;
  ::shutdown(socket(), SHUT_WR);
  for (std::size_t dropped = 0; dropped < bounds::longestPageRequest; dropped += filled) {
    left = chunk.size();
    due = Clock::now();
    if (!becomes(socket(), POLLIN, patience) || fill() <= 0) return;
  }
}

bool PageConnection::is_readable() const { return taken < filled || becomes(socket(), POLLIN, 0); }

bool PageConnection::hasGone() const {
  char byte = 0;
  return becomes(socket(), POLLIN, 0) && ::recv(socket(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) <= 0;
}

bool PageConnection::is_writable() const { return !hasGone() && !isLetGo; }

ssize_t PageConnection::fill() {
  const std::chrono::duration<double> patience = due - Clock::now();
  if (left == 0 || !becomes(socket(), POLLIN, patience.count())) return -1;
  const ssize_t got = ::recv(socket(), chunk.data(), std::min(chunk.size(), left), MSG_DONTWAIT);
  taken = 0;
  filled = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
  left -= filled;
  return got;
}

ssize_t PageConnection::read(char* bytes, std::size_t size) {
  if (taken == filled) {
    const ssize_t got = fill();
    if (got <= 0) return got;
  }
  const std::size_t count = std::min(size, filled - taken);
  std::copy_n(chunk.data() + taken, count, bytes);
  taken += count;
  return static_cast<ssize_t>(count);
}

ssize_t PageConnection::write(const char* bytes, std::size_t size) {
  for (;;) {
    if (!becomes(socket(), POLLOUT, bounds::longestPageStall)) {
      letGo();
      return -1;
    }
    const ssize_t sent = ::send(socket(), bytes, size, MSG_DONTWAIT);
    if (sent >= 0 || (errno != EAGAIN && errno != EINTR)) return sent;
  }
}

// Nobody asks who a browser is: it is on this computer.
void PageConnection::get_remote_ip_and_port(std::string& address, int& port) const {
  address.clear();
  port = 0;
}

void PageConnection::get_local_ip_and_port(std::string& address, int& port) const {
  address.clear();
  port = 0;
}

}  // namespace virtualmac
