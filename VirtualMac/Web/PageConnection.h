#pragma once

#include <httplib.h>

#include <array>
#include <chrono>

#include "VirtualMac/Web/Descriptor.h"

namespace virtualmac {

/// A browser's connection. A request that is too long, or too long on its way, does not come to its
/// end; a browser that does not read is let go (Bounds.h).
class PageConnection final : public httplib::Stream {
 public:
  explicit PageConnection(Descriptor accepted);

  /// Waits for the first byte of a request. False: none came in time, or the browser has gone.
  bool awaitRequest();

  /// Ends what is sent, and takes what is still on its way for a moment: a connection that is
  /// closed with something unread takes its last answer with it.
  void finish();

  [[nodiscard]] bool is_readable() const override;
  /// False: the browser has gone, or was let go.
  [[nodiscard]] bool is_writable() const override;
  ssize_t read(char* bytes, std::size_t size) override;
  ssize_t write(const char* bytes, std::size_t size) override;
  void get_remote_ip_and_port(std::string& address, int& port) const override;
  void get_local_ip_and_port(std::string& address, int& port) const override;
  [[nodiscard]] socket_t socket() const override { return handle.get(); }

 private:
  using Clock = std::chrono::steady_clock;

  [[nodiscard]] bool hasGone() const;
  /// Drops what the browser does not take, when the connection is closed.
  void letGo();
  ssize_t fill();

  Descriptor handle;
  std::array<char, 4096> chunk{};
  std::size_t taken = 0;   ///< Of the chunk.
  std::size_t filled = 0;  ///< Of the chunk.
  std::size_t left = 0;    ///< Bytes that this request may still have.
  Clock::time_point due;   ///< When this request must have come.
  bool isLetGo = false;
};

}  // namespace virtualmac
