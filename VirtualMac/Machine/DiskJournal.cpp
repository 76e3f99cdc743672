#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "VirtualMac/Machine/Disk.h"

namespace virtualmac {

namespace {

using nlohmann::json;

/// Larger files are told by their size; nothing that is compared by field comes near it.
constexpr std::size_t largestCompared = std::size_t{1} << 20U;

json objectIn(const std::string& text) {
  if (text.size() > largestCompared) return nullptr;
  json parsed = json::parse(text, nullptr, false);
  return parsed.is_object() ? parsed : json(nullptr);
}

/// Words stand as they are; everything else as JSON, so that a line can be told apart again.
std::string valueText(const json& value) {
  if (!value.is_string()) return value.dump();
  const auto& text = value.get_ref<const std::string&>();
  const bool plain = !text.empty() && std::ranges::all_of(text, [](char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == ':' ||
           character == '.' || character == '-';
  });
  return plain ? text : value.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

std::string replacementText(const std::optional<std::string>& before, const std::string& after) {
  const std::string verb = before ? "replaced: " : "created: ";
  const json now = objectIn(after);
  if (now.is_null()) return verb + std::to_string(after.size()) + " bytes";
  json earlier = before ? objectIn(*before) : json::object();
  if (earlier.is_null()) earlier = json::object();

  std::string fields;
  for (const auto& [key, value] : now.items()) {
    if (!earlier.contains(key) || earlier[key] != value)
      fields += " " + key + "=" + valueText(value);
  }
  for (const auto& [key, value] : earlier.items()) {
    if (!now.contains(key)) fields += " " + key + " gone";
  }
  return verb + (fields.empty() ? "no field differs" : fields.substr(1));
}

}  // namespace virtualmac
