#include "KorvelHelperProtocol.h"

namespace korvel {

XPCInterface makeHelperInterface() { return {"KorvelHelperProtocol", {}}; }

void applyTypedReplyClasses(XPCInterface& interface) {
  const std::vector<ReplyClass> data = {ReplyClass::Data};
  // An error may carry itself, its texts, its numbers, and the dictionary around them.
  const std::vector<ReplyClass> error = {ReplyClass::Error, ReplyClass::String, ReplyClass::Number,
                                         ReplyClass::Dictionary};
  const auto allow = [&interface](std::string_view selector, unsigned argument,
                                  const std::vector<ReplyClass>& classes) {
    interface.replyClasses.push_back({selector, argument, classes});
  };
  allow(KorvelHelperSelector::capabilities, 0, data);
  allow(KorvelHelperSelector::getState, 0, data);
  allow(KorvelHelperSelector::setChargeLimit, 1, error);
  allow(KorvelHelperSelector::clearChargeLimit, 1, error);
  allow(KorvelHelperSelector::forceDischarge, 1, error);
  allow(KorvelHelperSelector::releaseLimitUntilFullThenRestore, 1, error);
  allow(KorvelHelperSelector::resetAllSMCKeys, 1, error);
  allow(KorvelHelperSelector::cancelTopUp, 1, error);
}

ErrorObject makeError(std::int64_t code, const std::string& message,
                      const PropertyValue::Dictionary& userInfo) {
  PropertyValue::Dictionary merged = userInfo;
  merged.try_emplace(localizedDescriptionKey, message);
  return {std::string(KorvelHelperError::domain), code, std::move(merged)};
}

}  // namespace korvel
