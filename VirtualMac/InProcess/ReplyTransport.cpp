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

/// Common to the three sinks: where to, and what becomes of a dropped reply.
class Route {
 public:
  explicit Route(ReplyRoute way) : route(std::move(way)) {}

  /// A thread of a dead process may come as far as its reply before it unwinds; nobody hears it.
  [[nodiscard]] bool unheard() const { return !route.around.process.alive(); }
  template <class... Values>
  void answered(const Values&... values) {
    route.around.journal.record(replied(route.call->selector, values...));
    route.client->answered(route.call);
  }
  void rejected(const std::string& why) {
    const std::string text = operationName(route.call->selector) + ": " + why;
    route.around.reportViolation("reply rejected, " + text);
    route.client->failed(route.call, "the reply could not be decoded: " + why);
  }
  void dropped() {
    if (unheard()) return;
    route.around.reportViolation("reply dropped, " + operationName(route.call->selector));
    route.client->failed(route.call, "the helper dropped the reply");
  }

  ReplyRoute route;
};

class PidSink final : public korvel::ReplySink<std::uint64_t>, Route {
 public:
  using Route::Route;
  void deliver(std::uint64_t pid) override {
    if (unheard()) return;
    route.call->pid = pid;
    answered(pid);
  }
  void abandoned() override { dropped(); }
};

class DataSink final : public korvel::ReplySink<std::string>, Route {
 public:
  using Route::Route;
  void deliver(std::string data) override {
    if (unheard()) return;
    if (const auto why = dataRejected(route.interface, route.call->selector)) {
      rejected(*why);
      return;
    }
    route.call->data = std::move(data);
    answered(route.call->data);
  }
  void abandoned() override { dropped(); }
};

class OutcomeSink final : public korvel::ReplySink<bool, std::optional<korvel::ErrorObject>>,
                          Route {
 public:
  using Route::Route;
  void deliver(bool success, std::optional<korvel::ErrorObject> error) override {
    if (unheard()) return;
    if (error) {
      if (const auto why = errorRejected(route.interface, route.call->selector, *error)) {
        rejected(*why);
        return;
      }
    }
    route.call->success = success;
    route.call->error = std::move(error);
    answered(success, route.call->error);
  }
  void abandoned() override { dropped(); }
};

}  // namespace

korvel::PidReply makePidReply(ReplyRoute route) {
  return korvel::PidReply(std::make_unique<PidSink>(std::move(route)));
}

korvel::DataReply makeDataReply(ReplyRoute route) {
  return korvel::DataReply(std::make_unique<DataSink>(std::move(route)));
}

korvel::Reply makeReply(ReplyRoute route) {
  return korvel::Reply(std::make_unique<OutcomeSink>(std::move(route)));
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
