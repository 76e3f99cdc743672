#include "VirtualMac/Machine/ReplyText.h"

namespace virtualmac {

std::string operationName(std::string_view selector) {
  std::string_view name = selector.substr(0, selector.find(':'));
  constexpr std::string_view suffix = "WithReply";
  if (name.ends_with(suffix)) name.remove_suffix(suffix.size());
  return std::string(name);
}

Effect replied(std::string_view selector, std::uint64_t pid) {
  return effect<EffectID::replyNumber>(operationName(selector), pid);
}

Effect replied(std::string_view selector, const std::string& data) {
  return data.empty() ? effect<EffectID::replyEmpty>(operationName(selector))
                      : effect<EffectID::replySucceeded>(operationName(selector));
}

Effect replied(std::string_view selector, bool success,
               const std::optional<korvel::ErrorObject>& error) {
  const std::string operation = operationName(selector);
  if (!error) {
    return success ? effect<EffectID::replySucceeded>(operation)
                   : effect<EffectID::replyFailedSilently>(operation);
  }
  const std::string text = error->localizedDescription();
  return success ? effect<EffectID::replySucceededDespite>(operation, error->code, text)
                 : effect<EffectID::replyFailed>(operation, error->code, text);
}

}  // namespace virtualmac
