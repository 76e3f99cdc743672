#include "VirtualMac/Web/PageAnswers.h"

#include <nlohmann/json.hpp>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Server/ControlClient.h"

namespace virtualmac {

using nlohmann::json;

namespace {

/// A reboot waits for the helper's end.
constexpr double machineSeconds = 60;

}  // namespace

void answerWith(httplib::Response& response, const std::string& content, const std::string& type,
                const std::string& policy) {
  response.set_content(content, type);
  response.set_header("Content-Security-Policy", policy);
}

void answerWith(httplib::Response& response, const json& content) {
  answerWith(response, content.dump(-1, ' ', false, json::error_handler_t::replace),
             "application/json");
}

void answerError(httplib::Response& response, int status, const std::string& error) {
  response.status = status;
  answerWith(response, json{{"ok", false}, {"error", error}});
}

std::optional<json> objectIn(const httplib::Request& request, httplib::Response& response) {
  const auto defect = jsonDefect(request.body);
  json object = defect ? json() : json::parse(request.body);
  if (object.is_object()) return object;
  answerError(response, 400, "the body is a JSON object" + (defect ? ": " + *defect : ""));
  return std::nullopt;
}

std::optional<json> askMachine(const RootDirectory& root, const json& question,
                               httplib::Response& response) {
  auto machine = ControlClient::connect(root);
  if (!machine) {
    answerError(response, 503, machine.error());
    return std::nullopt;
  }
  machine->send(question);
  auto answer = machine->receive(machineSeconds);
  if (!answer)
    answerError(response, 503,
                machine->timedOut() ? "the machine does not answer" : "the machine went down");
  return answer;
}

}  // namespace virtualmac
