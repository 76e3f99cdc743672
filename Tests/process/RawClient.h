#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Tests/process/Mac.h"

namespace processtests {

/// Bytes of a message, written by hand: a second account of the format, so that the helper's own
/// cannot be wrong unnoticed.
class Bytes {
 public:
  Bytes& u8(unsigned value);
  Bytes& u32(std::uint32_t value);
  Bytes& i64(std::int64_t value);
  Bytes& text(const std::string& value);
  Bytes& boolean(bool value) { return u8(1).u8(value ? 1 : 0); }  ///< As a value with its type.
  Bytes& integer(std::int64_t value) { return u8(2).i64(value); }
  Bytes& string(const std::string& value) { return u8(4).text(value); }
  Bytes& add(const Bytes& other) { return raw(other.bytes); }
  Bytes& raw(const std::string& value);
  /// With the length in front.
  [[nodiscard]] std::string frame() const;
  [[nodiscard]] const std::string& body() const { return bytes; }

 private:
  std::string bytes;
};

/// A call's body: `arguments` hold `count` values.
Bytes callBody(std::uint32_t ticket, const std::string& selector, const Bytes& arguments = {},
               unsigned count = 0);

/// A reply: each value as JSON; an error as {"domain", "code", "userInfo"}.
struct RawReply {
  std::uint32_t ticket = 0;
  std::vector<nlohmann::json> values;
};

/// A client of the helper that can also misbehave. Its process is the test's.
class RawClient {
 public:
  /// `identity`: none leaves the process unknown to the machine.
  explicit RawClient(const Mac& mac, const std::optional<std::string>& identity = "app");
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  void send(const std::string& bytes);
  /// Sends what the socket takes without waiting; how many bytes that were.
  std::size_t sendWithoutWaiting(const std::string& bytes);
  /// No more will come from this side.
  void finish();
  std::optional<RawReply> receive(double timeoutSeconds = 20);
  /// The helper closes the connection within the time.
  bool isCutOff(double timeoutSeconds = 20);

  /// One call and its reply; none: the connection ended.
  std::optional<RawReply> call(const std::string& selector, const Bytes& arguments = {},
                               unsigned count = 0);
  std::optional<RawReply> setChargeLimit(int percent);
  std::optional<RawReply> forceDischarge(bool enable);
  std::optional<nlohmann::json> getState();

 private:
  bool fill(double deadline);

  std::unique_ptr<LineSocket> identityHolder;
  int socket;
  std::uint32_t lastTicket = 0;
  std::string input;
};

/// Stops the helper's process (SIGSTOP). Returns the ticket of a call of the client's that waits
/// for the helper to go on.
std::uint32_t stopHelper(const Mac& mac, RawClient& client);

/// True when the reply says (true, no error).
bool succeeded(const std::optional<RawReply>& reply);

}  // namespace processtests
