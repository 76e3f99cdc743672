#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Tests/process/Mac.h"

namespace processtests {

/// Writes the bytes of a message by hand, as a second account of the format: a mistake in the
/// helper's own codec cannot go unnoticed.
class Bytes {
 public:
  Bytes& u8(unsigned value);
  Bytes& u32(std::uint32_t value);
  Bytes& i64(std::int64_t value);
  Bytes& text(const std::string& value);
  Bytes& boolean(bool value) { return u8(1).u8(value ? 1 : 0); }  ///< A value with its type.
  Bytes& integer(std::int64_t value) { return u8(2).i64(value); }
  Bytes& string(const std::string& value) { return u8(4).text(value); }
  Bytes& add(const Bytes& other) { return raw(other.bytes); }
  Bytes& raw(const std::string& value);
  /// Puts the length in front.
  [[nodiscard]] std::string frame() const;
  [[nodiscard]] const std::string& body() const { return bytes; }

 private:
  std::string bytes;
};

/// Writes a call's body; `arguments` holds `count` values.
Bytes callBody(std::uint32_t ticket, const std::string& selector, const Bytes& arguments = {},
               unsigned count = 0);

/// A reply: each value as JSON, an error as {"domain", "code", "userInfo"}.
struct RawReply {
  std::uint32_t ticket = 0;
  std::vector<nlohmann::json> values;
};

/// A client of the helper that can also misbehave, in the test's own process.
class RawClient {
 public:
  /// Without an `identity` the machine does not know the process.
  explicit RawClient(const Mac& mac, const std::optional<std::string>& identity = "app");
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  void send(const std::string& bytes);
  /// Sends as much as the socket takes without waiting; returns how many bytes that was.
  std::size_t sendWithoutWaiting(const std::string& bytes);
  /// Closes this side for writing.
  void finish();
  std::optional<RawReply> receive(double timeoutSeconds = 20);
  /// Expects the helper to close the connection within the time.
  bool isCutOff(double timeoutSeconds = 20);

  /// Makes one call and returns its reply; none: the connection ended.
  std::optional<RawReply> call(const std::string& selector, const Bytes& arguments = {},
                               unsigned count = 0);
  std::optional<RawReply> setChargeLimit(int percent);
  std::optional<RawReply> forceDischarge(bool enable);
  std::optional<nlohmann::json> getState();

 private:
  std::unique_ptr<LineSocket> identityHolder;
  int socket;
  std::uint32_t lastTicket = 0;
  std::string input;
};

/// Stops the helper's process (SIGSTOP) and returns the ticket of one of the client's calls that
/// waits until it continues.
std::uint32_t stopHelper(const Mac& mac, RawClient& client);

/// Returns true when the reply says (true, no error).
bool succeeded(const std::optional<RawReply>& reply);

}  // namespace processtests
