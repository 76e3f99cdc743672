#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace virtualmac {

/// Prints an object as one line. Bytes that are not UTF-8 are replaced.
void printJSON(const nlohmann::ordered_json& object);

/// The value of a text that came from somewhere else; null: it is no JSON.
nlohmann::ordered_json valueOf(const std::string& text);

}  // namespace virtualmac
