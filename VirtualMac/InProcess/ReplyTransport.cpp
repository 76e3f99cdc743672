#include "VirtualMac/InProcess/ReplyTransport.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "VirtualMac/Machine/ReplyText.h"

namespace virtualmac {

namespace {

using korvel::ReplyClass;

/// The classes set for a reply argument; none: the interface's defaults.
const std::vector<ReplyClass>* settingFor(const korvel::XPCInterface& interface,
                                          const std::string& selector, unsigned argument) {
  // A later setting for the same argument replaces an earlier one.
  const auto found =
      std::find_if(interface.replyClasses.rbegin(), interface.replyClasses.rend(),
                   [&](const korvel::ReplyClassSetting& each) {
                     return each.selector == selector && each.argumentIndex == argument;
                   });
  return found == interface.replyClasses.rend() ? nullptr : &found->classes;
}

bool allows(const std::vector<ReplyClass>* classes, ReplyClass wanted) {
  return classes == nullptr ||
         std::find(classes->begin(), classes->end(), wanted) != classes->end();
}

/// None: a value that no setting of this interface lets through.
std::optional<ReplyClass> classOf(const korvel::PropertyValue& value) {
  if (value.text() != nullptr) return ReplyClass::String;
  if (value.integer() || value.boolean() || value.real()) return ReplyClass::Number;
  if (value.dictionary() != nullptr) return ReplyClass::Dictionary;
  if (value.data() != nullptr) return ReplyClass::Data;
  return std::nullopt;
}

/// Takes one call's answer back to its client.
template <class... Values>
class RouteSink final : public korvel::ReplySink<Values...> {
 public:
  explicit RouteSink(ReplyRoute way) : route(std::move(way)) {}

  void deliver(Values... values) override {
    if (!unheard()) take(std::move(values)...);
  }
  void abandoned() override {
    if (unheard()) return;
    route.around.reportViolation("reply dropped, " + operation());
    route.client->failed(route.call, "the helper dropped the reply");
  }

 private:
  void take(std::uint64_t pid) {
    route.call->pid = pid;
    answered(pid);
  }
  void take(std::string data) {
    if (const auto why = dataRejected(route.interface, route.call->selector)) return rejected(*why);
    route.call->data = std::move(data);
    answered(route.call->data);
  }
  void take(bool success, std::optional<korvel::ErrorObject> error) {
    if (error) {
      const auto why = errorRejected(route.interface, route.call->selector, *error);
      if (why) return rejected(*why);
    }
    route.call->success = success;
    route.call->error = std::move(error);
    answered(success, route.call->error);
  }

  /// A thread of a dead process may come as far as its reply before it unwinds; nobody hears it.
  [[nodiscard]] bool unheard() const { return !route.around.process.alive(); }
  [[nodiscard]] std::string operation() const { return std::string(route.operation.method); }
  template <class... Answer>
  void answered(const Answer&... answer) {
    route.around.journal.record(replied(operation(), answer...));
    route.client->answered(route.call);
  }
  void rejected(const std::string& why) {
    route.around.reportViolation("reply rejected, " + operation() + ": " + why);
    route.client->failed(route.call, "the reply could not be decoded: " + why);
  }

  ReplyRoute route;
};

}  // namespace

void deliverCall(const ReplyRoute& route, korvel::KorvelHelperProtocol& helper,
                 std::uint8_t argument) {
  const auto makeReply = [&]<class... Values>(std::type_identity<korvel::BasicReply<Values...>>) {
    return korvel::BasicReply<Values...>(std::make_unique<RouteSink<Values...>>(route));
  };
  korvel::callOperation(route.operation, helper, argument, makeReply);
}

std::optional<std::string> dataRejected(const korvel::XPCInterface& interface,
                                        const std::string& selector) {
  if (allows(settingFor(interface, selector, 0), ReplyClass::Data)) return std::nullopt;
  return "bytes are not among the allowed classes";
}

std::optional<std::string> errorRejected(const korvel::XPCInterface& interface,
                                         const std::string& selector,
                                         const korvel::ErrorObject& error) {
  const std::vector<ReplyClass>* classes = settingFor(interface, selector, 1);
  if (!allows(classes, ReplyClass::Error)) return "errors are not among the allowed classes";
  if (!error.userInfo.empty() && !allows(classes, ReplyClass::Dictionary)) {
    return "dictionaries are not among the allowed classes";
  }
  for (const auto& [key, value] : error.userInfo) {
    const std::optional<ReplyClass> kind = classOf(value);
    if (!kind || !allows(classes, *kind))
      return "the value of " + key + " is not of an allowed class";
  }
  return std::nullopt;
}

}  // namespace virtualmac
