#pragma once

#include <sys/socket.h>

#include <array>
#include <cstddef>

namespace benchmarks {

inline constexpr std::size_t bareCallSize = 64;

/// A call of the other end of a stream socket, which sends the same bytes back. False: it is gone.
inline bool bareCall(int socket) {
  std::array<char, bareCallSize> message{};
  constexpr auto size = static_cast<ssize_t>(message.size());
  return send(socket, message.data(), message.size(), MSG_NOSIGNAL) == size &&
         recv(socket, message.data(), message.size(), MSG_WAITALL) == size;
}

/// Answers one such call. False: the caller is gone.
inline bool answerBareCall(int socket) {
  std::array<char, bareCallSize> message{};
  constexpr auto size = static_cast<ssize_t>(message.size());
  return recv(socket, message.data(), message.size(), MSG_WAITALL) == size &&
         send(socket, message.data(), message.size(), MSG_NOSIGNAL) == size;
}

}  // namespace benchmarks
