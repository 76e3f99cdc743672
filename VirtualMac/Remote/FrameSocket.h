#pragma once

#include <chrono>
#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace virtualmac {

/// The largest body of one frame. A longer one is an attack or a defect.
inline constexpr std::size_t frameLimit = std::size_t{256} * 1024;
/// The bytes before a body: its length, little-endian.
inline constexpr std::size_t frameHeaderSize = 4;

/// A body with its length in front, ready to send.
std::string frameOf(std::string_view body);
/// The body's length from a frame's first bytes. Error: it is above the limit, for a person.
std::expected<std::size_t, std::string> frameLength(std::span<const char, frameHeaderSize> header);
/// Takes the first frame off `input` and returns its body; none: it has not come whole. Errors are
/// those of its length.
std::expected<std::optional<std::string>, std::string> takeFrame(std::string& input);

/// One end of a Unix stream socket, for threads that wait: frames or lines go over it. One thread
/// receives; others may send meanwhile, one at a time. No child inherits the socket.
class FrameSocket {
 public:
  using Clock = std::chrono::steady_clock;
  /// When a wait ends; none: never.
  using Deadline = std::optional<Clock::time_point>;
  enum class Failure : std::uint8_t { Late, Closed, TooLong };
  struct Error {
    Failure kind{};
    std::string text = {};  ///< Of TooLong: both lengths, for a person.
  };
  using Received = std::expected<std::string, Error>;

  /// Takes over a descriptor; -1: none.
  explicit FrameSocket(int owned = -1) : handle(owned) {}
  FrameSocket(FrameSocket&& other) noexcept { *this = std::move(other); }
  FrameSocket& operator=(FrameSocket&& other) noexcept;
  ~FrameSocket();

  static std::expected<FrameSocket, std::error_code> connectTo(const std::string& path);
  /// Takes the place of a socket that is left at the path.
  static std::expected<FrameSocket, std::error_code> listenAt(const std::string& path);
  /// Why neither was possible, for a person.
  static std::string problemText(const std::string& path, const std::error_code& error);
  static Deadline deadlineIn(double seconds);

  [[nodiscard]] int descriptor() const { return handle; }
  int release() { return std::exchange(handle, -1); }
  /// Sends everything. False: the peer is gone.
  bool send(std::string_view bytes);
  bool sendFrame(std::string_view body) { return send(frameOf(body)); }
  /// The next frame's body.
  Received receiveFrame(const Deadline& deadline = {});
  /// The next line, without its end.
  Received receiveLine(const Deadline& deadline = {});
  /// The bytes that arrive first.
  Received receiveBytes(const Deadline& deadline = {});
  /// Waits so long. True: the peer is still there.
  [[nodiscard]] bool staysOpen(double seconds) const;
  /// Ends the connection for both sides, and a wait of another thread with it.
  void shutDown();

 private:
  [[nodiscard]] bool isReadableBy(const Deadline& deadline) const;

  int handle = -1;
  std::string input;
};

}  // namespace virtualmac
