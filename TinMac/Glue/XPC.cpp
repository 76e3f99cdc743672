// The helper's service: the frameworks' listener and connections over those of the machine.

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "Platform/XPCListener.h"
#include "TinMac/Frameworks/BelowServices.h"
#include "TinMac/Glue/Endpoints.h"
#include "TinMac/Glue/Forwarding.h"
#include "TinMac/Glue/Machine.h"
#include "TinMac/System/Trap.h"

/// A new connection for as long as the program decides on it. The accepting thread alone uses it.
struct TinConnection {
  korvel::XPCConnection& connection;
  korvel::XPCInterface interface;
  std::shared_ptr<tinmac::ForwardingObject> exported;
};

namespace {

thread_local const TinConnection* undecided = nullptr;

TinConnection& checked(TinConnection* connection) {
  if (connection != undecided) tinmac::trap("a connection is changed after its acceptance", "");
  return *connection;
}

/// A text that stays: the seam's interface descriptions only point at theirs.
std::string_view kept(const char* text) {
  static std::mutex mutex;
  static std::set<std::string, std::less<>> texts;
  const std::lock_guard lock(mutex);
  return *texts.emplace(text).first;
}

korvel::ReplyClass replyClass(std::string_view name) {
  struct Row {
    std::string_view name;
    korvel::ReplyClass value;
  };
  static constexpr std::array rows{
      Row{"NSData", korvel::ReplyClass::Data}, Row{"NSError", korvel::ReplyClass::Error},
      Row{"NSString", korvel::ReplyClass::String}, Row{"NSNumber", korvel::ReplyClass::Number},
      Row{"NSDictionary", korvel::ReplyClass::Dictionary}};
  const auto* row = std::ranges::find(rows, name, &Row::name);
  if (row == rows.end()) tinmac::trap("the machine's messages have no such class", name);
  return row->value;
}

class AskingDelegate final : public korvel::XPCListenerDelegate {
 public:
  explicit AskingDelegate(const TinListener& asked) : listener(asked) {}

  bool shouldAcceptNewConnection(korvel::XPCConnection& connection) override {
    TinConnection undecidedConnection{connection, {}, nullptr};
    undecided = &undecidedConnection;
    const bool accepted = listener.accept(listener.context, &undecidedConnection) != 0;
    undecided = nullptr;
    return accepted;
  }

 private:
  TinListener listener;
};

/// Keeps a handler of the program's until its last copy goes.
class KeptHandler {
 public:
  explicit KeptHandler(const TinHandler& given) : handler(given) {}
  ~KeptHandler() { handler.dropped(handler.context); }
  KeptHandler(const KeptHandler&) = delete;
  KeptHandler& operator=(const KeptHandler&) = delete;
  void run() const { handler.run(handler.context); }

 private:
  TinHandler handler;
};

}  // namespace

std::shared_ptr<korvel::XPCListenerDelegate> tinmac::makeAskingDelegate(
    const TinListener& listener) {
  return std::make_shared<AskingDelegate>(listener);
}

extern "C" {

void tinListen(const char* serviceName, const TinListener* listener) {
  // Both stay, as a service that is published stays until the process ends.
  static const auto delegate = tinmac::makeAskingDelegate(*listener);
  static const auto published = tinmac::machine().xpc.makeListener(serviceName);
  published->setDelegate(delegate);
  published->resume();
}

void tinConnectionExport(TinConnection* connection, const char* protocolName,
                         const TinExported* exported) {
  TinConnection& open = checked(connection);
  open.interface.protocolName = kept(protocolName);
  open.exported = std::make_shared<tinmac::ForwardingObject>(*exported);
}

void tinConnectionReplyClasses(TinConnection* connection, const char* selector,
                               std::uint32_t argument, const char* const* classNames,
                               std::size_t count) {
  korvel::ReplyClassSetting setting{
      .selector = kept(selector), .argumentIndex = argument, .classes = {}};
  for (std::size_t index = 0; index < count; ++index)
    setting.classes.push_back(replyClass(classNames[index]));
  checked(connection).interface.replyClasses.push_back(std::move(setting));
}

std::uint32_t tinConnectionRequirement(TinConnection* connection, const char* requirement) {
  return checked(connection).connection.setCodeSigningRequirement(requirement) ? 1 : 0;
}

void tinConnectionHandler(TinConnection* connection, std::uint32_t kind,
                          const TinHandler* handler) {
  const auto kept = std::make_shared<KeptHandler>(*handler);
  const auto run = [kept] { kept->run(); };
  korvel::XPCConnection& open = checked(connection).connection;
  if (kind == TinInvalidation) return open.setInvalidationHandler(run);
  if (kind == TinInterruption) return open.setInterruptionHandler(run);
  tinmac::trap("a connection has no handler of this kind", "");
}

void tinConnectionResume(TinConnection* connection) {
  TinConnection& open = checked(connection);
  open.connection.setExportedInterface(open.interface);
  open.connection.setExportedObject(open.exported);
  open.connection.resume();
}

std::int32_t tinCurrentPeer() { return tinmac::machine().xpc.currentConnectionPid().value_or(-1); }

const TinValueSink* tinReplyValues(TinReply* reply) { return &reply->heard.sink(); }

void tinReplySend(TinReply* reply) {
  const std::unique_ptr<TinReply> once(reply);
  once->send();
}

void tinReplyDrop(TinReply* reply) { const std::unique_ptr<TinReply> dropped(reply); }

}  // extern "C"
