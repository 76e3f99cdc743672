#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Base/ErrorObject.h"
#include "Base/Reply.h"
#include "Platform/XPCConnection.h"

namespace korvel {

/// The Mach service that the listener publishes.
inline constexpr std::string_view KorvelHelperMachServiceName = "com.korvel.app.helper";
/// The helper's own bundle identifier: also the logging subsystem and the state directory's name.
inline constexpr std::string_view KorvelHelperBundleIdentifier = "com.korvel.app.helper";
/// The signing identifier that a client must carry.
inline constexpr std::string_view KorvelAppBundleIdentifier = "com.korvel.app";

/// The domain and the codes of every error that the helper returns. Clients know these numbers.
namespace KorvelHelperError {
inline constexpr std::string_view domain = "KorvelHelperError";
inline constexpr std::int64_t codeOutOfRange = 400;
inline constexpr std::int64_t codeSMCWriteFailed = 500;
inline constexpr std::int64_t codePMAssertionFailed = 501;
inline constexpr std::int64_t codePersistenceFailed = 502;  ///< Known to clients, never returned.
inline constexpr std::int64_t codeUnsupportedCapability = 503;
}  // namespace KorvelHelperError

/// The eleven operations, in their published order. Any thread may call any of them, several at a
/// time. Every reply is called exactly once.
class KorvelHelperProtocol {
 public:
  virtual ~KorvelHelperProtocol() = default;
  /// Replies with the helper's process id.
  virtual void ping(PidReply reply) = 0;
  /// Replies with the JSON of a HelperCapabilities.
  virtual void capabilities(DataReply reply) = 0;
  /// Sets and enforces a charge limit, 20 to 100 percent.
  virtual void setChargeLimit(std::uint8_t limit, Reply reply) = 0;
  /// Stops enforcing, returns charging to the system; the saved limit stays.
  virtual void clearChargeLimit(Reply reply) = 0;
  /// Starts or stops draining the battery down to the limit on mains power.
  virtual void forceDischarge(bool enable, Reply reply) = 0;
  /// Arms or disarms keeping the Mac awake with the lid closed.
  virtual void setClamshellKeepAwake(bool enabled, Reply reply) = 0;
  /// Charges once to 100 percent, then restores the limit.
  virtual void releaseLimitUntilFullThenRestore(Reply reply) = 0;
  /// Gives up a running top-off and enforces the limit again.
  virtual void cancelTopUp(Reply reply) = 0;
  /// Replies with the JSON of a HelperState, dates as seconds since 2001.
  virtual void getState(DataReply reply) = 0;
  /// Puts every charging key back to the system's default.
  virtual void resetAllSMCKeys(Reply reply) = 0;
  /// Shuts the helper down gracefully. One-way.
  virtual void quit() = 0;
};

/// The selectors of the eleven operations.
namespace KorvelHelperSelector {
#define OPERATION(method, selector, argument, answer, word) \
  inline constexpr std::string_view method = selector;
#include "Operations.def"
#undef OPERATION
}  // namespace KorvelHelperSelector

/// An interface for KorvelHelperProtocol without reply-class settings.
XPCInterface makeHelperInterface();

/// The eight reply-class settings, in their order. setClamshellKeepAwake:reply: keeps the defaults
/// on purpose.
void applyTypedReplyClasses(XPCInterface& interface);

/// An error of the helper's domain with `message` as its description; an entry of `userInfo` wins
/// over one of the same key.
ErrorObject makeError(std::int64_t code, const std::string& message,
                      const PropertyValue::Dictionary& userInfo = {});

}  // namespace korvel
