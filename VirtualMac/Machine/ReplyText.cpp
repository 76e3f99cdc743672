#include "VirtualMac/Machine/ReplyText.h"

namespace virtualmac {

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
