#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "Tests/seam/contract/SeamContract.h"
#include "VirtualMac/Remote/FrameSocket.h"

namespace virtualmac {

struct XPCReply;

/// A client of a service's socket that sends without waiting. It reads replies only when it is
/// pumped, on the test's own thread.
class RemoteClient final : public RigClient {
 public:
  explicit RemoteClient(const std::string& path);
  ~RemoteClient() override;
  RemoteClient(const RemoteClient&) = delete;
  RemoteClient& operator=(const RemoteClient&) = delete;

  AppCallRef call(std::string_view selector, std::uint8_t argument) override;
  void disconnect() override;
  [[nodiscard]] std::int32_t pid() const override;

  /// Reads everything that has arrived.
  void pump();

 private:
  void take(const XPCReply& reply);
  void failAll(const std::string& reason);

  FrameSocket socket;
  std::uint32_t lastTicket = 0;
  std::map<std::uint32_t, AppCallRef> waiting;
};

}  // namespace virtualmac
