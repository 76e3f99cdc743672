#pragma once

#include <httplib.h>

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "VirtualMac/Server/RootDirectory.h"

namespace virtualmac {

/// Puts a content into an answer, with the headers that keep a browser from guessing and storing.
void answerWith(httplib::Response& response, const std::string& content, const std::string& type,
                const std::string& policy = "default-src 'none'; frame-ancestors 'none'");
void answerWith(httplib::Response& response, const nlohmann::json& content);
/// {"ok": false, "error": ...} with a status.
void answerError(httplib::Response& response, int status, const std::string& error);

/// A request's body as a JSON object; none: it is not one, and the answer says so.
std::optional<nlohmann::json> objectIn(const httplib::Request& request,
                                       httplib::Response& response);

/// The answer of the machine's door to one request; none: there was none, and the answer says so.
std::optional<nlohmann::json> askMachine(const RootDirectory& root, const nlohmann::json& question,
                                         httplib::Response& response);

}  // namespace virtualmac
