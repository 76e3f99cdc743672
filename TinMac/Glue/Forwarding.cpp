#include "TinMac/Glue/Forwarding.h"

#include <optional>
#include <string>
#include <utility>

#include "TinMac/System/Trap.h"

namespace tinmac {

using korvel::DataReply;
using korvel::ErrorObject;
using korvel::PidReply;
using korvel::PropertyValue;
using korvel::Reply;

namespace {

[[noreturn]] void refuse() { trap("a reply is not what its operation answers", ""); }

const PropertyValue& plain(const std::vector<HeardValue>& values, std::size_t index) {
  if (index >= values.size() || !std::holds_alternative<PropertyValue>(values[index])) refuse();
  return std::get<PropertyValue>(values[index]);
}

void answer(PidReply& reply, const std::vector<HeardValue>& values) {
  const auto pid = plain(values, 0).integer();
  if (values.size() != 1 || !pid) refuse();
  reply(static_cast<std::uint64_t>(*pid));
}

void answer(DataReply& reply, const std::vector<HeardValue>& values) {
  const auto* bytes = plain(values, 0).data();
  if (values.size() != 1 || bytes == nullptr) refuse();
  reply(std::string(bytes->begin(), bytes->end()));
}

void answer(Reply& reply, const std::vector<HeardValue>& values) {
  const auto success = plain(values, 0).boolean();
  if (values.size() != 2 || !success) refuse();
  std::optional<ErrorObject> error;
  if (const auto* given = std::get_if<ErrorObject>(&values[1])) error = *given;
  if (!error && !plain(values, 1).isAbsent()) refuse();
  reply(*success, std::move(error));
}

template <class AnyReply>
struct OwedReply final : TinReply {
  explicit OwedReply(AnyReply owedReply) : owed(std::move(owedReply)) {}
  void send() override { answer(owed, heard.take()); }

  AnyReply owed;
};

}  // namespace

template <class AnyReply>
void ForwardingObject::forward(std::string_view selector, std::uint32_t argument, AnyReply reply) {
  auto owed = std::make_unique<OwedReply<AnyReply>>(std::move(reply));
  exported.deliver(exported.context, std::string(selector).c_str(), argument, owed.release());
}

void ForwardingObject::ping(PidReply reply) {
  forward(korvel::KorvelHelperSelector::ping, 0, std::move(reply));
}
void ForwardingObject::capabilities(DataReply reply) {
  forward(korvel::KorvelHelperSelector::capabilities, 0, std::move(reply));
}
void ForwardingObject::setChargeLimit(std::uint8_t limit, Reply reply) {
  forward(korvel::KorvelHelperSelector::setChargeLimit, limit, std::move(reply));
}
void ForwardingObject::clearChargeLimit(Reply reply) {
  forward(korvel::KorvelHelperSelector::clearChargeLimit, 0, std::move(reply));
}
void ForwardingObject::forceDischarge(bool enable, Reply reply) {
  forward(korvel::KorvelHelperSelector::forceDischarge, enable ? 1 : 0, std::move(reply));
}
void ForwardingObject::setClamshellKeepAwake(bool enabled, Reply reply) {
  forward(korvel::KorvelHelperSelector::setClamshellKeepAwake, enabled ? 1 : 0, std::move(reply));
}
void ForwardingObject::releaseLimitUntilFullThenRestore(Reply reply) {
  forward(korvel::KorvelHelperSelector::releaseLimitUntilFullThenRestore, 0, std::move(reply));
}
void ForwardingObject::cancelTopUp(Reply reply) {
  forward(korvel::KorvelHelperSelector::cancelTopUp, 0, std::move(reply));
}
void ForwardingObject::getState(DataReply reply) {
  forward(korvel::KorvelHelperSelector::getState, 0, std::move(reply));
}
void ForwardingObject::resetAllSMCKeys(Reply reply) {
  forward(korvel::KorvelHelperSelector::resetAllSMCKeys, 0, std::move(reply));
}
void ForwardingObject::quit() {
  exported.deliver(exported.context, std::string(korvel::KorvelHelperSelector::quit).c_str(), 0,
                   nullptr);
}

}  // namespace tinmac
