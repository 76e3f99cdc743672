#include "VirtualMac/Machine/ReplyText.h"

namespace virtualmac {

Effect replied(std::string_view operation, std::uint64_t pid) {
  return effect<EffectID::replyNumber>(operation, pid);
}

Effect replied(std::string_view operation, const std::string& data) {
  return data.empty() ? effect<EffectID::replyEmpty>(operation)
                      : effect<EffectID::replySucceeded>(operation);
}

Effect replied(std::string_view operation, bool success,
               const std::optional<korvel::ErrorObject>& error) {
  if (!error) {
    return success ? effect<EffectID::replySucceeded>(operation)
                   : effect<EffectID::replyFailedSilently>(operation);
  }
  const std::string text = error->localizedDescription();
  return success ? effect<EffectID::replySucceededDespite>(operation, error->code, text)
                 : effect<EffectID::replyFailed>(operation, error->code, text);
}

}  // namespace virtualmac
