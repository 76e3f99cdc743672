#include "VirtualMac/Remote/FrameSocket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>

#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac {

namespace {

/// A new socket that `act` has bound or connected to the path's address.
template <class Act>
std::expected<FrameSocket, std::error_code> socketAt(const std::string& path, Act act) {
  const auto failed = [](int error) {
    return std::unexpected(std::error_code(error, std::system_category()));
  };
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return failed(ENAMETOOLONG);
  path.copy(address.sun_path, path.size());
  FrameSocket made(hostsystem::unixSocket());
  if (made.descriptor() < 0 ||
      act(made.descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return failed(errno);
  return made;
}

}  // namespace

std::string frameOf(std::string_view body) {
  std::string frame;
  for (std::size_t byte = 0; byte < frameHeaderSize; ++byte)
    frame.push_back(static_cast<char>(body.size() >> (8 * byte)));
  return frame.append(body);
}

std::expected<std::size_t, std::string> frameLength(std::span<const char, frameHeaderSize> header) {
  std::size_t length = 0;
  for (std::size_t byte = 0; byte < frameHeaderSize; ++byte)
    length |= std::size_t{static_cast<std::uint8_t>(header[byte])} << (8 * byte);
  if (length <= frameLimit) return length;
  return std::unexpected(std::to_string(length) + " bytes, more than " +
                         std::to_string(frameLimit));
}

std::expected<std::optional<std::string>, std::string> takeFrame(std::string& input) {
  if (input.size() < frameHeaderSize) return std::nullopt;
  const auto length =
      frameLength(std::span<const char, frameHeaderSize>(input.data(), frameHeaderSize));
  if (!length) return std::unexpected(length.error());
  if (input.size() < frameHeaderSize + *length) return std::nullopt;
  std::string body = input.substr(frameHeaderSize, *length);
  input.erase(0, frameHeaderSize + *length);
  return body;
}

FrameSocket& FrameSocket::operator=(FrameSocket&& other) noexcept {
  std::swap(handle, other.handle);
  std::swap(input, other.input);
  return *this;
}

FrameSocket::~FrameSocket() {
  if (handle >= 0) ::close(handle);
}

std::expected<FrameSocket, std::error_code> FrameSocket::connectTo(const std::string& path) {
  return socketAt(path, ::connect);
}

std::expected<FrameSocket, std::error_code> FrameSocket::listenAt(const std::string& path) {
  return socketAt(path, [&path](int socket, const sockaddr* address, socklen_t size) {
    ::unlink(path.c_str());
    const int bound = ::bind(socket, address, size);
    return bound != 0 ? bound : ::listen(socket, SOMAXCONN);
  });
}

std::string FrameSocket::problemText(const std::string& path, const std::error_code& error) {
  if (error == std::errc::filename_too_long) return "the path " + path + " is too long";
  return path + ": " + error.message();
}

FrameSocket::Deadline FrameSocket::deadlineIn(double seconds) {
  return Clock::now() +
         std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

bool FrameSocket::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(handle, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

FrameSocket::Received FrameSocket::receiveFrame(const Deadline& deadline) {
  for (;;) {
    auto frame = takeFrame(input);
    if (!frame) return std::unexpected(Error{Failure::TooLong, frame.error()});
    if (*frame) return **std::move(frame);
    const Received more = receiveBytes(deadline);
    if (!more) return more;
    input += *more;
  }
}

FrameSocket::Received FrameSocket::receiveLine(const Deadline& deadline) {
  for (;;) {
    if (const std::size_t end = input.find('\n'); end != std::string::npos) {
      std::string line = input.substr(0, end);
      input.erase(0, end + 1);
      return line;
    }
    const Received more = receiveBytes(deadline);
    if (!more) return more;
    input += *more;
  }
}

// It waits in `poll`, not in `recv`: the kernel also wakes a receiver when the peer takes what this
// side has sent.
FrameSocket::Received FrameSocket::receiveBytes(const Deadline& deadline) {
  constexpr std::size_t most = 16384;
  std::string bytes;
  for (;;) {
    if (!isReadableBy(deadline)) return std::unexpected(Error{Failure::Late});
    ssize_t got = 0;
    bytes.resize_and_overwrite(most, [&](char* room, std::size_t size) {
      got = ::recv(handle, room, size, 0);
      return got > 0 ? static_cast<std::size_t>(got) : 0;
    });
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return std::unexpected(Error{Failure::Closed});
    return bytes;
  }
}

bool FrameSocket::isReadableBy(const Deadline& deadline) const {
  for (;;) {
    int most = -1;
    if (deadline) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
      most = left.count() > 0 ? static_cast<int>(left.count()) : 0;
    }
    pollfd watched{.fd = handle, .events = POLLIN, .revents = 0};
    const int ready = ::poll(&watched, 1, most);
    if (ready >= 0) return ready > 0;
    if (errno != EINTR) return true;  // Receiving tells the error.
  }
}

bool FrameSocket::staysOpen(double seconds) const {
  if (!isReadableBy(deadlineIn(seconds))) return true;
  char byte = 0;
  return ::recv(handle, &byte, 1, MSG_PEEK) > 0;
}

void FrameSocket::shutDown() { ::shutdown(handle, SHUT_RDWR); }

}  // namespace virtualmac
