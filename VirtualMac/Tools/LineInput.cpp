#include "VirtualMac/Tools/LineInput.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <utility>

namespace virtualmac {

std::optional<std::string> LineInput::take() {
  const std::size_t end = text.find('\n');
  if (end == std::string::npos) {
    if (!over || text.empty()) return std::nullopt;
    return std::exchange(text, {});
  }
  std::string line = text.substr(0, end);
  text.erase(0, end + 1);
  return line;
}

void LineInput::wait(int other, double seconds) {
  std::array<pollfd, 2> watched{pollfd{.fd = handle, .events = POLLIN, .revents = 0},
                                pollfd{.fd = other, .events = POLLIN, .revents = 0}};
  const int milliseconds = seconds < 0 ? -1 : static_cast<int>(std::ceil(seconds * 1000));
  if (::poll(watched.data(), watched.size(), milliseconds) <= 0) return;
  if (watched[0].revents == 0) return;
  std::array<char, 4096> chunk{};
  const ssize_t got = ::read(handle, chunk.data(), chunk.size());
  if (got > 0) text.append(chunk.data(), static_cast<std::size_t>(got));
  if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) over = true;
}

}  // namespace virtualmac
