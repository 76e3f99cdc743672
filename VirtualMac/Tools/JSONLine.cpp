#include "VirtualMac/Tools/JSONLine.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "VirtualMac/Machine/Bounds.h"

namespace virtualmac {

void printJSON(const nlohmann::ordered_json& object) {
  fmt::print("{}\n", object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

nlohmann::ordered_json valueOf(const std::string& text) {
  return jsonDefect(text) ? nlohmann::ordered_json() : nlohmann::ordered_json::parse(text);
}

}  // namespace virtualmac
