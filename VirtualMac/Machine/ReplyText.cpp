#include "VirtualMac/Machine/ReplyText.h"

namespace virtualmac {

std::string operationName(std::string_view selector) {
  std::string_view name = selector.substr(0, selector.find(':'));
  constexpr std::string_view suffix = "WithReply";
  if (name.ends_with(suffix)) name.remove_suffix(suffix.size());
  return std::string(name);
}

std::string replyText(std::uint64_t pid) { return std::to_string(pid); }

std::string replyText(const std::string& data) { return data.empty() ? "empty" : "ok"; }

std::string replyText(bool success, const std::optional<korvel::ErrorObject>& error) {
  const std::string outcome = success ? "ok" : "failed";
  if (error) {
    return outcome + ' ' + std::to_string(error->code) + " \"" + error->localizedDescription() +
           '"';
  }
  return success ? outcome : outcome + " without an error";
}

}  // namespace virtualmac
