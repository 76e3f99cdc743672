#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace korvel {

class KorvelHelperProtocol;

/// The classes that may be named for a reply argument.
enum class ReplyClass : unsigned char { Data, Error, String, Number, Dictionary };

/// One setClasses:forSelector:argumentIndex:ofReply: with ofReply = YES.
struct ReplyClassSetting {
  std::string_view selector;
  unsigned argumentIndex = 0;
  std::vector<ReplyClass> classes;
};

/// An NSXPCInterface: the protocol's name and the settings made on it, in order.
struct XPCInterface {
  std::string_view protocolName;
  std::vector<ReplyClassSetting> replyClasses;
};

/// One new connection, suspended until it is resumed. Handlers run on the connection's own threads.
class XPCConnection {
 public:
  virtual ~XPCConnection() = default;
  virtual void setExportedInterface(const XPCInterface& interface) = 0;
  virtual void setExportedObject(std::shared_ptr<KorvelHelperProtocol> object) = 0;
  /// setCodeSigningRequirement:. False: the text does not parse. A peer that does not satisfy it is
  /// cut off at its first message, before that is delivered.
  virtual bool setCodeSigningRequirement(const std::string& requirement) = 0;
  /// Runs once, when the connection is over for good.
  virtual void setInvalidationHandler(std::function<void()> handler) = 0;
  /// Runs whenever the connection breaks but may come back.
  virtual void setInterruptionHandler(std::function<void()> handler) = 0;
  virtual void resume() = 0;
};

}  // namespace korvel
