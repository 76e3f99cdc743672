#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/ErrorObject.h"
#include "HelperRecords.h"

namespace virtualmac {

class World;

/// One protocol call of a client, and what came back.
struct AppCall {
  std::string selector;
  bool answered = false;  ///< The reply block ran.
  bool failed = false;    ///< It never will: the connection ended or refused the message.
  std::string failure;    ///< Why, for `failed`.
  std::uint64_t pid = 0;  ///< pingWithReply:
  std::string data;       ///< The JSON of getStateWithReply: and capabilitiesWithReply:.
  bool success = false;   ///< The others.
  std::optional<korvel::ErrorObject> error;

  [[nodiscard]] bool over() const { return answered || failed; }
  /// The reply's error code; 0 when there is no error.
  [[nodiscard]] std::int64_t errorCode() const { return error ? error->code : 0; }
};
using AppCallRef = std::shared_ptr<AppCall>;

/// The application, at the other end of one connection. Calls are sent at once and answered while
/// the world runs; `await` runs it until the answer is there. A client whose connection was cut off
/// stays usable: its calls fail.
class AppClient {
 public:
  ~AppClient();  ///< Disconnects.
  AppClient(const AppClient&) = delete;
  AppClient& operator=(const AppClient&) = delete;

  // A function for each operation, named as the helper's is: ping(), setChargeLimit(80),
  // forceDischarge(true). One without a reply is over as soon as it is sent.
#define OPERATION(method, selector, argument, answer, word) \
  AppCallRef method(std::uint8_t value = 0) { return send(selector, value); }
#include "Operations.def"
#undef OPERATION
  /// Any message, also one that no interface may know.
  AppCallRef send(std::string_view selector, std::uint8_t argument = 0);

  /// Runs the world until `call` is over, `limitSeconds` of virtual time at most.
  const AppCall& await(const AppCallRef& call, double limitSeconds = 10);
  /// The helper's state and capabilities, asked for and awaited; none when no answer came or it
  /// does not decode.
  std::optional<korvel::HelperState> state();
  std::optional<korvel::HelperCapabilities> capabilityRecord();

  void disconnect();  ///< Invalidates the connection from this end.
  void kill();        ///< The client's process dies.
  void interrupt();   ///< The connection breaks and may come back.
  [[nodiscard]] bool connected() const;
  [[nodiscard]] std::int32_t pid() const;
  /// Every call this client made, in order.
  [[nodiscard]] const std::vector<AppCallRef>& calls() const { return made; }

 private:
  friend class World;
  struct Link;
  AppClient(World& owner, std::unique_ptr<Link> connection);

  World& world;
  std::unique_ptr<Link> link;
  std::vector<AppCallRef> made;
};

}  // namespace virtualmac
