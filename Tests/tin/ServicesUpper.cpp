#include <memory>
#include <utility>

#include "Tests/tin/ServicesMachine.h"
#include "TinMac/System/Trap.h"

struct TinConnection {
  std::string classes;
  std::unique_ptr<TinExported> exported;
  std::unique_ptr<TinHandler> invalidation;
  bool isResumed = false;
};

struct TinReply {
  std::string selector;
  tinmac::services::TextSink values;
};

namespace tinmac::services {

namespace {

std::unique_ptr<TinConnection>& connection() {
  static std::unique_ptr<TinConnection> current;
  return current;
}

void note(std::string entry) { machine().journal.push_back(std::move(entry)); }
std::string number(std::uint64_t value) { return std::to_string(value); }

std::int32_t tinStaticCodeWithPath(const char* path, std::uint64_t* code) {
  *code = 70;
  return std::string_view(path) == "/signed" ? 0 : -67068;
}
std::int32_t tinGuestWithPid(std::int32_t pid, std::uint64_t* code) {
  *code = 71;
  return pid == 5 ? 0 : 100003;
}
std::int32_t tinStaticCodeOf(std::uint64_t code, std::uint64_t* staticCode) {
  *staticCode = code + 1;
  return 0;
}
std::int32_t tinSigningInformation(std::uint64_t code, std::uint32_t flags,
                                   const TinValueSink* sink) {
  const std::string text = number(code) + " " + number(flags);
  sink->beginDictionary(sink->context);
  sink->key(sink->context, "identifier", 10);
  sink->text(sink->context, text.data(), text.size());
  sink->end(sink->context);
  return 0;
}
void tinCodeRelease(std::uint64_t code) { note("release code " + number(code)); }

std::uint64_t tinPowerUILoad(const char* path, std::int32_t mode) {
  machine().libraryIsLoaded = std::string_view(path) == "/library" && mode == 2;
  return machine().libraryIsLoaded ? 80 : 0;
}
std::uint64_t tinPowerUIClass(const char* name) {
  return machine().libraryIsLoaded && std::string_view(name) == "Client" ? 81 : 0;
}
std::uint32_t tinPowerUIIsClass(std::uint64_t) { return machine().classIsNoClass ? 0 : 1; }
std::uint64_t tinPowerUIClassMethod(std::uint64_t, const char* selector) {
  return std::string_view(selector) == "alloc" && !machine().lacksAlloc ? 82 : 0;
}
std::uint64_t tinPowerUIInstanceMethod(std::uint64_t, const char* selector) {
  return std::string_view(selector) == "initWithClientName:" ? 83 : 0;
}
std::uint64_t tinPowerUIAlloc(std::uint64_t method, std::uint64_t cls) {
  return method == 82 && cls == 81 ? 84 : 0;
}
std::uint64_t tinPowerUIInit(std::uint64_t method, std::uint64_t object, const char* clientName) {
  note("init " + number(method) + " " + number(object) + " " + clientName);
  return 85;
}
std::uint32_t tinPowerUIResponds(std::uint64_t object, const char* selector) {
  return object == 85 && std::string_view(selector).find("MCL") != std::string_view::npos ? 1 : 0;
}
std::uint32_t tinPowerUIBoolean(std::uint64_t object, const char*) { return object == 85 ? 1 : 0; }
void fill(TinErrorSlot slot, void* context) {
  const std::string& text = machine().callError;
  if (!text.empty()) {
    slot(context, text.data(), text.size());
  }
}
std::int32_t tinPowerUIInt32(std::uint64_t, const char*, TinErrorSlot slot, void* context) {
  fill(slot, context);
  return -3;
}
void tinPowerUIObject(std::uint64_t, const char*, const TinValueSink* sink, TinErrorSlot slot,
                      void* context) {
  fill(slot, context);
  sink->beginArray(sink->context);
  sink->integer(sink->context, 80);
  sink->end(sink->context);
}
std::uint32_t tinPowerUISetUInt8(std::uint64_t, const char*, std::uint32_t value, TinErrorSlot slot,
                                 void* context) {
  fill(slot, context);
  note("limit " + number(value));
  return 1;
}
void tinPowerUIRelease(std::uint64_t object) { note("release object " + number(object)); }

void tinListen(const char* serviceName, const TinListener* listener) {
  machine().service = serviceName;
  machine().listener = *listener;
}
std::uint32_t tinListenWithin(const TinListener* listener) {
  machine().listener = *listener;
  return 90;
}
void tinEndpointEnd(std::uint32_t endpoint) { note("end of endpoint " + number(endpoint)); }
void tinConnectionExport(TinConnection* to, const char* protocolName, const TinExported* exported) {
  note(std::string("export ") + protocolName);
  to->exported = std::make_unique<TinExported>(*exported);
}
void tinConnectionReplyClasses(TinConnection*, const char* selector, std::uint32_t argument,
                               const char* const* classNames, std::size_t count) {
  std::string entry = std::string("classes ") + selector + " " + number(argument);
  for (std::size_t index = 0; index < count; ++index) {
    entry += std::string(" ") + classNames[index];
  }
  note(entry);
}
std::uint32_t tinConnectionRequirement(TinConnection*, const char* requirement) {
  return std::string_view(requirement) == "parses" ? 1 : 0;
}
void tinConnectionHandler(TinConnection* to, std::uint32_t kind, const TinHandler* handler) {
  if (kind == TinInvalidation) {
    to->invalidation = std::make_unique<TinHandler>(*handler);
  } else {
    handler->dropped(handler->context);
  }
}
void tinConnectionResume(TinConnection* resumed) { resumed->isResumed = true; }
std::int32_t tinCurrentPeer() { return machine().peer; }
const TinValueSink* tinReplyValues(TinReply* reply) { return &reply->values.sink(); }
void tinReplySend(TinReply* reply) {
  const std::unique_ptr<TinReply> once(reply);
  note("reply " + reply->selector + " " + reply->values.take());
}
void tinReplyDrop(TinReply* reply) {
  const std::unique_ptr<TinReply> once(reply);
  note("drop " + reply->selector);
}

}  // namespace

bool connectPeer() {
  connection() = std::make_unique<TinConnection>();
  const bool accepted =
      machine().listener.accept(machine().listener.context, connection().get()) != 0;
  if (!accepted) {
    endConnection();
  }
  return accepted;
}

void sendMessage(const char* selector, std::uint32_t argument, bool hasReply) {
  machine().peer = 9;
  TinReply* reply = nullptr;
  if (hasReply) {
    reply = new TinReply;
    reply->selector = selector;
  }
  const TinExported& exported = *connection()->exported;
  exported.deliver(exported.context, selector, argument, reply);
  machine().peer = -1;
}

void endConnection() {
  const std::unique_ptr<TinConnection> ended = std::move(connection());
  if (ended->invalidation != nullptr) {
    if (ended->isResumed) {
      ended->invalidation->run(ended->invalidation->context);
    }
    ended->invalidation->dropped(ended->invalidation->context);
  }
  if (ended->exported != nullptr) {
    ended->exported->dropped(ended->exported->context);
  }
}

void* serviceFunction(std::string_view name) {
  TIN_MACHINE(tinStaticCodeWithPath);
  TIN_MACHINE(tinGuestWithPid);
  TIN_MACHINE(tinStaticCodeOf);
  TIN_MACHINE(tinSigningInformation);
  TIN_MACHINE(tinCodeRelease);
  TIN_MACHINE(tinPowerUILoad);
  TIN_MACHINE(tinPowerUIClass);
  TIN_MACHINE(tinPowerUIIsClass);
  TIN_MACHINE(tinPowerUIClassMethod);
  TIN_MACHINE(tinPowerUIInstanceMethod);
  TIN_MACHINE(tinPowerUIAlloc);
  TIN_MACHINE(tinPowerUIInit);
  TIN_MACHINE(tinPowerUIResponds);
  TIN_MACHINE(tinPowerUIBoolean);
  TIN_MACHINE(tinPowerUIInt32);
  TIN_MACHINE(tinPowerUIObject);
  TIN_MACHINE(tinPowerUISetUInt8);
  TIN_MACHINE(tinPowerUIRelease);
  TIN_MACHINE(tinListen);
  TIN_MACHINE(tinListenWithin);
  TIN_MACHINE(tinEndpointEnd);
  TIN_MACHINE(tinConnectionExport);
  TIN_MACHINE(tinConnectionReplyClasses);
  TIN_MACHINE(tinConnectionRequirement);
  TIN_MACHINE(tinConnectionHandler);
  TIN_MACHINE(tinConnectionResume);
  TIN_MACHINE(tinCurrentPeer);
  TIN_MACHINE(tinReplyValues);
  TIN_MACHINE(tinReplySend);
  TIN_MACHINE(tinReplyDrop);
  return clientFunction(name);
}

}  // namespace tinmac::services
