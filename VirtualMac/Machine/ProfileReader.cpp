#include "VirtualMac/Machine/ProfileReader.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace virtualmac {

namespace {

std::string numberText(double value) {
  std::string text = ProfileReader::Json(value).dump();
  if (text.ends_with(".0")) text.resize(text.size() - 2);
  return text;
}

/// Whether a value is a whole number that fits into 64 signed bits.
bool isWhole(const ProfileReader::Json& value) {
  if (value.is_number_unsigned()) return value.get<std::uint64_t>() <= INT64_MAX;
  return value.is_number_integer();
}

}  // namespace

ProfileReader::ProfileReader(const Json& value, std::string place, Complaint& first)
    : object(value), path(std::move(place)), complaint(first) {
  if (!object.is_object()) complain(path.empty() ? "the file" : path, "an object");
}

const ProfileReader::Json* ProfileReader::field(std::string_view key) {
  known.emplace_back(key);
  if (failed()) return nullptr;
  const auto found = object.find(std::string(key));
  return found == object.end() ? nullptr : &*found;
}

void ProfileReader::read(std::string_view key, bool& target) {
  const auto fits = [](const Json& value) { return value.is_boolean(); };
  if (const Json* value = field(key, "true or false", fits)) target = value->get<bool>();
}

void ProfileReader::read(std::string_view key, std::string& target) {
  const auto fits = [](const Json& value) { return value.is_string(); };
  if (const Json* value = field(key, "text", fits)) target = value->get<std::string>();
}

void ProfileReader::read(std::string_view key, double& target, double low, double high) {
  const auto fits = [&](const Json& value) {
    return value.is_number() && value.get<double>() >= low && value.get<double>() <= high;
  };
  const std::string expected = "a number from " + numberText(low) + " to " + numberText(high);
  if (const Json* value = field(key, expected, fits)) target = value->get<double>();
}

std::optional<std::int64_t> ProfileReader::whole(std::string_view key, std::int64_t low,
                                                 std::int64_t high) {
  const auto fits = [&](const Json& value) {
    return isWhole(value) && value.get<std::int64_t>() >= low && value.get<std::int64_t>() <= high;
  };
  const Json* value = field(
      key, "a whole number from " + std::to_string(low) + " to " + std::to_string(high), fits);
  return value == nullptr ? std::nullopt : std::optional(value->get<std::int64_t>());
}

std::optional<std::size_t> ProfileReader::choiceIndex(std::string_view key,
                                                      std::span<const std::string_view> names) {
  const Json* value = field(key);
  if (value == nullptr) return std::nullopt;
  std::string allowed;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (value->is_string() && value->get_ref<const std::string&>() == names[i]) return i;
    allowed += (allowed.empty() ? "\"" : ", \"") + std::string(names[i]) + "\"";
  }
  complain(keyPath(key), "one of " + allowed);
  return std::nullopt;
}

void ProfileReader::readObject(std::string_view key,
                               const std::function<void(ProfileReader&)>& visit) {
  const Json* value = field(key);
  if (value == nullptr) return;
  ProfileReader inner(*value, keyPath(key), complaint);
  visit(inner);
  inner.finish();
}

void ProfileReader::readList(std::string_view key,
                             const std::function<void(ProfileReader&)>& visit) {
  const Json* value =
      field(key, "a list of objects", [](const Json& each) { return each.is_array(); });
  if (value == nullptr) return;
  for (std::size_t i = 0; i < value->size(); ++i) {
    ProfileReader inner((*value)[i], keyPath(key) + "[" + std::to_string(i) + "]", complaint);
    visit(inner);
    inner.finish();
  }
}

void ProfileReader::readNamed(
    const std::function<void(const std::string&, ProfileReader&)>& visit) {
  if (failed()) return;
  for (const auto& [name, value] : object.items()) {
    known.push_back(name);
    ProfileReader inner(value, keyPath(name), complaint);
    visit(name, inner);
    inner.finish();
  }
}

void ProfileReader::complain(const std::string& where, const std::string& expected) {
  if (!failed()) complaint.text = complaint.origin + ": " + where + " must be " + expected;
}

std::string ProfileReader::keyPath(std::string_view key) const {
  // As the file has it, in one line: a name may hold a line break.
  const std::string quoted = Json(key).dump();
  const std::string written = quoted.substr(1, quoted.size() - 2);
  return path.empty() ? written : path + "." + written;
}

void ProfileReader::finish() {
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

}  // namespace virtualmac
