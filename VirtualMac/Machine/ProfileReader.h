#pragma once

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace virtualmac {

/// Reads one JSON object field by field. The first complaint is kept, in one line that names the
/// origin, the path of the key and what it may hold; afterwards every read does nothing.
class ProfileReader {
 public:
  using Json = nlohmann::ordered_json;
  /// Shared by the readers of one file.
  struct Complaint {
    std::string origin;
    std::optional<std::string> text;
  };

  ProfileReader(const Json& value, std::string place, Complaint& first)
      : object(value), path(std::move(place)), complaint(first) {
    if (!object.is_object()) complain(path.empty() ? "the file" : path, "an object");
  }

  void read(std::string_view key, bool& target) {
    const Json* value = field(key);
    if (value == nullptr) return;
    if (!value->is_boolean()) return complain(keyPath(key), "true or false");
    target = value->get<bool>();
  }

  void read(std::string_view key, std::string& target) {
    const Json* value = field(key);
    if (value == nullptr) return;
    if (!value->is_string()) return complain(keyPath(key), "text");
    target = value->get<std::string>();
  }

  void read(std::string_view key, double& target, double low, double high) {
    const Json* value = field(key);
    if (value == nullptr) return;
    if (!value->is_number() || value->get<double>() < low || value->get<double>() > high) {
      return complain(keyPath(key), "a number from " + number(low) + " to " + number(high));
    }
    target = value->get<double>();
  }

  template <std::integral Number>
  void read(std::string_view key, Number& target, std::int64_t low, std::int64_t high) {
    const Json* value = field(key);
    if (value == nullptr) return;
    const bool whole = value->is_number_integer() &&
                       !(value->is_number_unsigned() && value->get<std::uint64_t>() > INT64_MAX);
    if (!whole || value->get<std::int64_t>() < low || value->get<std::int64_t>() > high) {
      return complain(keyPath(key),
                      "a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    }
    target = static_cast<Number>(value->get<std::int64_t>());
  }

  template <class Choice>
  void readChoice(std::string_view key, Choice& target,
                  const std::vector<std::pair<std::string_view, Choice>>& choices) {
    const Json* value = field(key);
    if (value == nullptr) return;
    std::string allowed;
    for (const auto& [name, choice] : choices) {
      if (value->is_string() && value->get_ref<const std::string&>() == name) {
        target = choice;
        return;
      }
      allowed += (allowed.empty() ? "\"" : ", \"") + std::string(name) + "\"";
    }
    complain(keyPath(key), "one of " + allowed);
  }

  /// Visits a nested object, if it is there.
  void readObject(std::string_view key, const std::function<void(ProfileReader&)>& visit) {
    const Json* value = field(key);
    if (value == nullptr) return;
    ProfileReader inner(*value, keyPath(key), complaint);
    visit(inner);
    inner.finish();
  }

  /// Visits each object of a list, if it is there.
  void readList(std::string_view key, const std::function<void(ProfileReader&)>& visit) {
    const Json* value = field(key);
    if (value == nullptr) return;
    if (!value->is_array()) return complain(keyPath(key), "a list of objects");
    for (std::size_t i = 0; i < value->size(); ++i) {
      ProfileReader inner((*value)[i], keyPath(key) + "[" + std::to_string(i) + "]", complaint);
      visit(inner);
      inner.finish();
    }
  }

  /// Visits each named object of an object, whatever its names.
  void readNamed(const std::function<void(const std::string&, ProfileReader&)>& visit) {
    if (failed()) return;
    for (const auto& [name, value] : object.items()) {
      known.push_back(name);
      ProfileReader inner(value, keyPath(name), complaint);
      visit(name, inner);
      inner.finish();
    }
  }

  /// The value itself; null: not there, or something was wrong before.
  const Json* field(std::string_view key) {
    known.emplace_back(key);
    if (failed()) return nullptr;
    const auto found = object.find(std::string(key));
    return found == object.end() ? nullptr : &*found;
  }

  void complain(const std::string& where, const std::string& expected) {
    if (!failed()) complaint.text = complaint.origin + ": " + where + " must be " + expected;
  }
  [[nodiscard]] std::string keyPath(std::string_view key) const {
    return path.empty() ? std::string(key) : path + "." + std::string(key);
  }
  [[nodiscard]] bool failed() const { return complaint.text.has_value(); }

  /// Every key must have been asked for.
  void finish() {
    if (failed()) return;
    for (const auto& [name, value] : object.items()) {
      if (std::ranges::find(known, name) != known.end()) continue;
      std::string allowed;
      for (const std::string& each : known) allowed += (allowed.empty() ? "" : ", ") + each;
      complaint.text = complaint.origin + ": " + keyPath(name) +
                       " is not known; known here: " + (allowed.empty() ? "nothing" : allowed);
      return;
    }
  }

 private:
  static std::string number(double value) {
    std::string text = Json(value).dump();
    if (text.ends_with(".0")) text.resize(text.size() - 2);
    return text;
  }

  const Json& object;
  std::string path;
  Complaint& complaint;
  std::vector<std::string> known;
};

}  // namespace virtualmac
