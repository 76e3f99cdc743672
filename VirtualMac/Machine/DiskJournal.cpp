#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/Disk.h"

namespace virtualmac {

namespace {

using nlohmann::json;

json objectIn(const FileCopy& file) {
  const std::string& text = file.bytes;
  if (text.size() < file.size || jsonDefect(text)) return nullptr;
  json parsed = json::parse(text, nullptr, false);
  return parsed.is_object() ? parsed : json(nullptr);
}

/// Words are written as they are, everything else as JSON, so that a line can be parsed again.
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

FileCopy::FileCopy(std::string_view whole)
    : bytes(whole.substr(0, bounds::longestCompared)), size(whole.size()) {}

Effect changeOfFile(std::string_view name, const std::optional<FileCopy>& before,
                    const FileCopy& after) {
  const std::string_view verb = before ? "replaced" : "created";
  const json now = objectIn(after);
  if (now.is_null()) return effect<EffectID::fileOpaque>(name, verb, after.size);
  json earlier = before ? objectIn(*before) : json::object();
  if (earlier.is_null()) earlier = json::object();

  Effect change{EffectID::fileChanged, {std::string(name), std::string(verb)}};
  for (const auto& [key, value] : now.items()) {
    if (!earlier.contains(key) || earlier[key] != value) {
      change.values.push_back(key + "=" + valueText(value));
    }
  }
  for (const auto& [key, value] : earlier.items()) {
    if (!now.contains(key)) change.values.push_back(key + " gone");
  }
  return change.values.size() > 2 ? change : effect<EffectID::fileUnchanged>(name, verb);
}

}  // namespace virtualmac
